#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <string_view>
#include <utility>

#include "launcher/Items.h"
#include "tools/check/Check.h"
#include "tools/check/ProgramFile.h"
#include "tools/text/Characters.h"

// Not every system declares it.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace {

// The member `key` of `object`; null if there is none.
const Json::Value* Find(const Json::Value* object, const std::string& key) {
  return object == nullptr || !object->isObject()
             ? nullptr
             : object->find(key.data(), key.data() + key.size());
}

class ItemCheck {
 public:
  ItemCheck(int index, JsonObject item, const JsonText& json,
            Findings& findings)
      : item_(item),
        value_(json.root[std::to_string(index)]),
        args_(Find(&value_, "args")),
        json_(json),
        findings_(findings),
        checked_{index, {}, false, {}} {}

  CheckedItem Run() {
    if (Find(&value_, "name") == nullptr) {
      Add("name-missing", "name", nullptr, "is missing");
    } else {
      CheckName();
      const bool has_program = CheckProgram();
      const std::size_t known = findings_.size();
      if (CheckArgc() && CheckArgs() && has_program) {
        checked_.vector = std::move(vector_);
      }
      for (std::size_t i = known; !has_program && i < findings_.size(); ++i) {
        findings_[i].effect.insert(0, "once the item has a program, ");
      }
    }
    CheckKeys();
    return std::move(checked_);
  }

 private:
  // A finding at `value`, or at the item if there is none.
  void Add(RuleName rule, const std::string& key, const Json::Value* value,
           std::string problem, std::string advice = "") {
    AddAt(OffsetOf(value == nullptr ? value_ : *value), rule, key,
          std::move(problem), std::move(advice));
  }

  void AddAt(std::size_t offset, RuleName rule, const std::string& key,
             std::string problem, std::string advice = "") {
    findings_.push_back(Found(rule, {checked_.index, key, offset},
                              std::move(problem), std::move(advice)));
  }

  void CheckName() {
    const std::string name = item_.GetObject("name");
    checked_.name = name;
    checked_.runs = true;
    const Json::Value* const value = Find(&value_, "name");
    CheckText(*value, "name", name);
    if (name.empty() && value->isString()) {
      Add("name-empty", "name", value, "is empty");
    }
  }

  // A value that the launcher reads as `text`.
  void CheckText(const Json::Value& value, const std::string& key,
                 const std::string& text) {
    if (value.isNull()) {
      Add("null", key, &value, IsNot(value, "a string"));
    } else if (!value.isString()) {
      Add("converted", key, &value,
          IsNot(value, "a string") + ", and read as " + Quoted(text),
          "write " + Quoted(text) + " or the text that you mean");
    } else if (value.asString().size() != text.size()) {
      Add("cut-at-nul", key, &value, "contains a NUL character (\\u0000)");
    }
  }

  // False if there is nothing to execute.
  bool CheckProgram() {
    const Json::Value* const value = Find(&value_, "program");
    std::string program;
    try {
      program = ItemProgram(item_);
    } catch (const std::exception&) {
      Add("program-type", "program", value, IsNot(*value, "a string"));
      return false;
    }
    if (value == nullptr) {
      Add("program-missing", "program", nullptr, "is missing");
      return false;
    }
    if (program.empty()) {
      Add("program-empty", "program", value, "is empty");
      return false;
    }
    CheckText(*value, "program", program);
    if (const auto problem = FindProgramProblem(program)) {
      Add(problem->rule, "program", value,
          "is " + Quoted(program) + ", which " + problem->text,
          problem->advice);
    } else if (program[0] != '/') {
      Add("program-relative", "program", value,
          Quoted(program) + " is a relative path");
    }
    program_bytes_ = program.size() + 1;
    vector_[0] = std::move(program);
    return true;
  }

  // False when the forked child gets no further.
  bool CheckArgc() {
    const Json::Value* const value = Find(&value_, "argc");
    try {
      length_ = ItemVectorLength(item_);
    } catch (const std::exception&) {
      Add("argc-type", "argc", value, IsNot(*value, "a 64-bit integer"));
      return false;
    }
    if (value != nullptr) {
      CheckArgcValue(*value);
    }
    if (length_ <= kLargestArgc + 1) {
      return true;
    }
    Add("argc-too-large", "argc", value,
        "needs an argument vector that does not fit on the thread's stack");
    return false;
  }

  void CheckArgcValue(const Json::Value& value) {
    const auto whole = static_cast<long long>(item_["argc"]);
    const int used = static_cast<int>(item_["argc"]);
    const std::string cut = std::to_string(whole) +
                            " is cut to 32 bits, which gives " +
                            std::to_string(used);
    if (used < 0) {
      Add("argc-negative", "argc", &value, whole == used ? "is below 0" : cut);
    } else if (whole != used) {
      Add("argc-cut", "argc", &value, cut);
    } else if (value.type() != Json::intValue &&
               value.type() != Json::uintValue) {
      Add("argc-converted", "argc", &value,
          IsNot(value, "an integer") + ", and read as " + std::to_string(used));
    }
  }

  // False when the forked child gets no further.
  bool CheckArgs() {
    if (args_ != nullptr) {
      CheckUnreadArgs();
    }
    if (length_ == 0) {
      vector_.clear();  // The terminator replaces the program's path.
    }
    std::string missing;  // the first
    std::size_t missing_count = 0;
    for (std::int64_t i = 1; i < length_; ++i) {
      const std::string number = std::to_string(i - 1);
      const std::string key = "args/" + number;
      const Json::Value* const value = Find(args_, number);
      if (!ReadArgument(i, key, value)) {
        return false;
      }
      if (value != nullptr) {
        CheckText(*value, key, vector_.back());
      } else if (missing_count++ == 0) {
        missing = key;
      }
    }
    if (missing_count > 0) {
      const std::size_t more = missing_count - 1;
      Add("arg-missing", missing, args_,
          "is missing" +
              (more == 0 ? "" : ", and " + std::to_string(more) + " more"));
    }
    CheckSizes();
    return true;
  }

  // False when the launcher's own reading throws.
  bool ReadArgument(std::int64_t position, const std::string& key,
                    const Json::Value* value) {
    try {
      vector_.push_back(ItemArgument(item_, position));
      return true;
    } catch (const std::exception&) {
      if (!args_->isObject()) {
        Add("args-type", "args", args_, IsNot(*args_, "an object"));
      } else {
        Add("arg-type", key, value, IsNot(*value, "a string"));
      }
      return false;
    }
  }

  void CheckSizes() {
    // The system also copies the path that it executes.
    std::size_t total = program_bytes_;
    for (char** variable = environ; *variable != nullptr; ++variable) {
      total += std::strlen(*variable) + 1 + sizeof(char*);
    }
    for (std::size_t i = 0; i < vector_.size(); ++i) {
      const std::size_t bytes = vector_[i].size() + 1;
      total += bytes + sizeof(char*);
      // A path this long, the first element, is no program's.
      if (i > 0 && bytes > kLongestArgumentBytes) {
        const std::string number = std::to_string(i - 1);
        Add("arg-too-long", "args/" + number, Find(args_, number),
            "has " + std::to_string(bytes - 1) +
                " bytes, more than the system accepts");
      }
    }
    if (total > LargestArgumentsBytes()) {
      Add("args-too-large", "args", args_,
          "has " + std::to_string(total) +
              " bytes together with this environment, more than the system "
              "accepts");
    }
  }

  void CheckUnreadArgs() {
    if (length_ <= 1) {
      CheckArgsWithoutArgc();
      return;
    }
    const auto count = static_cast<std::uint64_t>(length_ - 1);
    for (const JsonKey& key : json_.KeysOf(args_)) {
      if (IndexOf(key.name).value_or(count) >= count) {
        AddAt(key.offset, "arg-unread", "args/" + key.name,
              "is not read; the keys that are read are \"0\" to " +
                  Quoted(std::to_string(count - 1)));
      }
    }
  }

  void CheckArgsWithoutArgc() {
    int count = 0;
    while (Find(args_, std::to_string(count)) != nullptr) {
      ++count;
    }
    if (!args_->isObject() || !args_->empty()) {
      Add("args-without-argc", "args", args_,
          "is not read, since \"argc\" is missing or below 1",
          args_->isObject() ? "write \"argc\": " + std::to_string(count) : "");
    }
  }

  void CheckKeys() {
    for (const auto& [object, path] :
         {std::pair(&value_, ""), std::pair(args_, "args/")}) {
      for (const JsonKey& key : json_.ReplacedKeysOf(object)) {
        AddAt(key.offset, "duplicate-key", path + key.name,
              "occurs more than once");
      }
    }
    for (const JsonKey& key : json_.KeysOf(&value_)) {
      const std::string meant = KeyMeantBy(key.name);
      if (meant != key.name) {
        AddAt(key.offset, "unknown-key", key.name, "is not a recognised key",
              meant.empty() ? "remove it; the keys of an item are \"name\", "
                              "\"program\", \"argc\" and \"args\""
                            : "write " + Quoted(meant) + " instead");
      }
    }
  }

  JsonObject item_;
  const Json::Value& value_;
  const Json::Value* const args_;
  const JsonText& json_;
  Findings& findings_;
  CheckedItem checked_;
  std::vector<std::string> vector_{""};  // the program's path is the first
  std::size_t program_bytes_ = 0;        // with its terminating zero
  std::int64_t length_ = 1;
};

}  // namespace

void CheckItem(int index, JsonObject item, const JsonText& json,
               CheckResult& result) {
  result.items.push_back(ItemCheck(index, item, json, result.findings).Run());
}
