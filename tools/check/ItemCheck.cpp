#include "tools/check/ItemCheck.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "launcher/Items.h"
#include "tools/check/Execution.h"
#include "tools/check/KeyNames.h"
#include "tools/check/ProgramFile.h"
#include "tools/text/Characters.h"

// Not every system declares it.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace {

const Json::Value* Find(const Json::Value& object, const std::string& key) {
  return object.isObject() ? object.find(key.data(), key.data() + key.size())
                           : nullptr;
}

std::string Quoted(std::string_view text) {
  return "\"" + Printable(text) + "\"";
}

// The key in "args" of the text at `position` of the argument vector.
std::string ArgumentKey(std::int64_t position) {
  return std::to_string(position - 1);
}

bool IsIndexBelow(const std::string& key, std::int64_t count) {
  std::int64_t index = -1;
  std::from_chars(key.data(), key.data() + key.size(), index);
  return index >= 0 && index < count && std::to_string(index) == key;
}

// What this process's environment takes of the room for arguments.
std::size_t EnvironmentBytes() {
  std::size_t bytes = 0;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    bytes += std::strlen(*variable) + 1 + sizeof(char*);
  }
  return bytes;
}

class ItemCheck {
 public:
  ItemCheck(JsonObject item, const ItemSource& source)
      : item_(item), source_(source), args_(Find(source.value, "args")) {
    checked_.index = source.index;
  }

  CheckedItem Run() {
    CheckName();
    if (CheckProgram()) {
      if (CheckArgc() && CheckArgs()) {
        checked_.vector = vector_;
      }
    } else {
      CheckUnreachedArguments();
    }
    CheckKeys();
    return std::move(checked_);
  }

  CheckedItem RunNameless() {
    Add("name-missing", At("name", &source_.value), "is missing");
    CheckKeys();
    return std::move(checked_);
  }

 private:
  Place At(std::string key, const Json::Value* value) const {
    return {source_.index, std::move(key),
            OffsetOf(value == nullptr ? source_.value : *value)};
  }

  void Add(RuleName rule, Place place, std::string problem,
           std::string advice = "") {
    checked_.findings.push_back(
        Found(rule, std::move(place), std::move(problem), std::move(advice)));
  }

  void CheckName() {
    const std::string name = item_.GetObject("name");
    checked_.name = name;
    checked_.runs = true;
    const Json::Value* const value = Find(source_.value, "name");
    CheckText(*value, "name", name);
    if (name.empty() && value->isString()) {
      Add("name-empty", At("name", value), "is empty");
    }
  }

  // A value that the launcher reads as `text`.
  void CheckText(const Json::Value& value, const std::string& key,
                 const std::string& text) {
    const std::string type = std::string("is ") + Describe(value);
    if (value.isNull()) {
      Add("null", At(key, &value), type + ", not a string");
    } else if (!value.isString()) {
      Add("converted", At(key, &value),
          type + ", not a string, and read as " + Quoted(text),
          "write " + Quoted(text) + " or the text that you mean");
    } else if (value.asString().size() != text.size()) {
      Add("cut-at-nul", At(key, &value), "contains a NUL character (\\u0000)");
    }
  }

  // False when there is nothing to execute.
  bool CheckProgram() {
    const Json::Value* const value = Find(source_.value, "program");
    const Place place = At("program", value);
    std::string program;
    try {
      program = ItemProgram(item_);
    } catch (const std::exception&) {
      Add("program-type", place,
          std::string("is ") + Describe(*value) + ", not a string");
      return false;
    }
    if (program.empty()) {
      Add(value == nullptr ? RuleName("program-missing")
                           : RuleName("program-empty"),
          place, value == nullptr ? "is missing" : "is empty");
      return false;
    }
    CheckText(*value, "program", program);
    CheckProgramFile(program, place);
    vector_.push_back(program);
    program_bytes_ = program.size() + 1;
    return true;
  }

  void CheckProgramFile(const std::string& program, const Place& place) {
    if (const auto problem = FindProgramProblem(program)) {
      Add(problem->rule, place,
          "is " + Quoted(program) + ", which " + problem->text,
          problem->advice);
    } else if (program[0] != '/') {
      Add("program-relative", place, Quoted(program) + " is a relative path");
    }
  }

  // The arguments matter only once the item has a program.
  void CheckUnreachedArguments() {
    const std::size_t known = checked_.findings.size();
    vector_.emplace_back();
    if (CheckArgc()) {
      CheckArgs();
    }
    for (std::size_t i = known; i < checked_.findings.size(); ++i) {
      std::string& effect = checked_.findings[i].effect;
      effect = "once the item has a program, " + effect;
    }
  }

  // False when the forked child gets no further.
  bool CheckArgc() {
    const Json::Value* const value = Find(source_.value, "argc");
    try {
      length_ = ItemVectorLength(item_);
    } catch (const std::exception&) {
      Add("argc-type", At("argc", value),
          std::string("is ") + Describe(*value) + ", not a 64-bit integer");
      return false;
    }
    if (value != nullptr) {
      CheckArgcValue(*value);
    }
    if (length_ <= kLongestVector) {
      return true;
    }
    Add("argc-too-large", At("argc", value),
        "gives an argument vector that the thread's stack has no room for");
    return false;
  }

  void CheckArgcValue(const Json::Value& value) {
    const Place place = At("argc", &value);
    const auto whole = static_cast<long long>(item_["argc"]);
    const int used = static_cast<int>(item_["argc"]);
    const std::string cut = std::to_string(whole) +
                            " is cut to 32 bits, which gives " +
                            std::to_string(used);
    const bool is_cut = whole != used;
    if (used < 0) {
      Add("argc-negative", place, is_cut ? cut : "is below 0");
    } else if (is_cut) {
      Add("argc-cut", place, cut);
    } else if (value.type() != Json::intValue &&
               value.type() != Json::uintValue) {
      Add("argc-converted", place,
          std::string("is ") + Describe(value) +
              ", not an integer, and read as " + std::to_string(used));
    }
  }

  // False when the forked child gets no further.
  bool CheckArgs() {
    CheckUnreadArgs();
    if (length_ == 0) {
      vector_.clear();  // The program's path gives way to the terminator.
    }
    std::vector<std::string> missing;
    for (std::int64_t i = 1; i < length_; ++i) {
      const std::string key = ArgumentKey(i);
      const Json::Value* const value =
          args_ == nullptr ? nullptr : Find(*args_, key);
      if (!CheckArgument(i, value)) {
        return false;
      }
      if (value == nullptr) {
        missing.push_back(key);
      }
    }
    if (!missing.empty()) {
      const std::string more =
          ", and " + std::to_string(missing.size() - 1) + " more";
      Add("arg-missing", At("args/" + missing[0], args_),
          "is missing" + (missing.size() == 1 ? "" : more));
    }
    CheckSizes();
    return true;
  }

  void CheckSizes() {
    // The system also copies the path that it executes.
    std::size_t total = EnvironmentBytes() + program_bytes_;
    for (std::size_t i = 0; i < vector_.size(); ++i) {
      const std::size_t bytes = vector_[i].size() + 1;
      total += bytes + sizeof(char*);
      if (bytes > kLongestArgumentBytes) {
        const std::string key = std::to_string(i - 1);
        Add("arg-too-long", At("args/" + key, Find(*args_, key)),
            "has " + std::to_string(bytes - 1) +
                " bytes, more than the system takes");
      }
    }
    if (total > LargestArgumentsBytes()) {
      Add("args-too-large", At("args", args_),
          "has " + std::to_string(total) +
              " bytes together with this environment, more than the system "
              "takes");
    }
  }

  // False when the launcher's own reading throws.
  bool CheckArgument(std::int64_t position, const Json::Value* value) {
    const std::string key = "args/" + ArgumentKey(position);
    try {
      vector_.push_back(ItemArgument(item_, position));
    } catch (const std::exception&) {
      if (!args_->isObject()) {
        Add("args-type", At("args", args_),
            std::string("is ") + Describe(*args_) + ", not an object");
      } else {
        Add("arg-type", At(key, value),
            std::string("is ") + Describe(*value) + ", not a string");
      }
      return false;
    }
    if (value != nullptr) {
      CheckText(*value, key, vector_.back());
    }
    return true;
  }

  void CheckUnreadArgs() {
    if (args_ == nullptr) {
      return;
    }
    if (length_ <= 1) {
      CheckArgsWithoutArgc();
      return;
    }
    for (const JsonKey& key : Keys(*args_)) {
      if (!IsIndexBelow(key.name, length_ - 1)) {
        Add("arg-unread", {source_.index, "args/" + key.name, key.offset},
            "is not read; the keys that are read are \"0\" to " +
                Quoted(ArgumentKey(length_ - 1)));
      }
    }
  }

  void CheckArgsWithoutArgc() {
    const bool is_object = args_->isObject();
    if (is_object && args_->empty()) {
      return;
    }
    int count = 0;
    while (is_object && args_->isMember(std::to_string(count))) {
      ++count;
    }
    Add("args-without-argc", At("args", args_),
        "is not read, since \"argc\" is missing or below 1",
        is_object ? "write \"argc\": " + std::to_string(count) : "");
  }

  const std::vector<JsonKey>& Keys(const Json::Value& object) const {
    return source_.text.KeysAt(OffsetOf(object));
  }

  void CheckKeys() {
    FindReplaced(source_.value, "");
    if (args_ != nullptr && args_->isObject()) {
      FindReplaced(*args_, "args/");
    }
    for (const JsonKey& key : Keys(source_.value)) {
      const std::string meant = KeyMeantBy(key.name);
      if (meant != key.name) {
        Add("unknown-key", {source_.index, key.name, key.offset},
            "is not a recognised key",
            meant.empty() ? "remove it; the keys of an item are \"name\", "
                            "\"program\", \"argc\" and \"args\""
                          : "write " + Quoted(meant) + " instead");
      }
    }
  }

  void FindReplaced(const Json::Value& object, const std::string& path) {
    std::ranges::move(
        FindReplacedKeys(object, source_.text, {source_.index, path, {}}),
        std::back_inserter(checked_.findings));
  }

  // The longest argument vector that fits on a supervision thread's stack, its
  // terminator not counted. The thread's own block and the frames below take
  // between 12 and 13 KiB of it.
  static constexpr std::size_t kStackReserveBytes = std::size_t{16} * 1024;
  static constexpr std::int64_t kLongestVector =
      (kSupervisionStackBytes - kStackReserveBytes) / sizeof(char*) - 1;

  JsonObject item_;
  const ItemSource& source_;
  const Json::Value* const args_;
  CheckedItem checked_;
  std::vector<std::string> vector_;
  std::size_t program_bytes_ = 0;  // with its terminating zero
  std::int64_t length_ = 1;
};

}  // namespace

CheckedItem CheckItem(JsonObject item, const ItemSource& source) {
  return ItemCheck(item, source).Run();
}

CheckedItem CheckNamelessItem(const ItemSource& source) {
  const char* const none = nullptr;
  return ItemCheck(JsonObject(none), source).RunNameless();
}

const char* Describe(const Json::Value& value) {
  switch (value.type()) {
    case Json::objectValue:
      return "an object";
    case Json::arrayValue:
      return "an array";
    case Json::stringValue:
      return "a string";
    case Json::booleanValue:
      return "a boolean";
    case Json::nullValue:
      return "null";
    default:
      return "a number";
  }
}

std::size_t OffsetOf(const Json::Value& value) {
  return static_cast<std::size_t>(value.getOffsetStart());
}

Findings FindReplacedKeys(const Json::Value& object, const JsonText& text,
                          const Place& place) {
  Findings findings;
  std::set<std::string> later;
  const std::vector<JsonKey>& keys = text.KeysAt(OffsetOf(object));
  for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
    if (!later.insert(key->name).second) {
      findings.push_back(Found("duplicate-key",
                               {place.item, place.key + key->name, key->offset},
                               "occurs more than once"));
    }
  }
  return findings;
}
