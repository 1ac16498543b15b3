#include "tools/check/ItemCheck.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <exception>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "launcher/Items.h"
#include "tools/check/ProgramFile.h"
#include "tools/text/Characters.h"

namespace {

// What the launcher gives to each of its threads. The argument vector lives
// there, so a longer one ends the child.
constexpr std::int64_t kStackBytes = std::int64_t{512} * 1024;

constexpr std::array<const char*, 4> kKnownKeys{"name", "program", "argc",
                                                "args"};

constexpr const char* kChildAborts =
    "the child ends by SIGABRT before it executes anything, at each start, "
    "every 50 ms";
constexpr const char* kChain =
    "nothing is run or logged; each attempt leaves one more process behind, a "
    "chain that grows every 50 ms";

std::string Quoted(std::string_view text) {
  return "\"" + Printable(text) + "\"";
}

// The number of changes that make `a` of `b`.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) {
    row[j] = j;
  }
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
    }
  }
  return row[b.size()];
}

std::string LowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) {
    return static_cast<char>(std::tolower(c));
  });
  return text;
}

// The advice for a key that nobody reads.
std::string DidYouMean(const std::string& key) {
  constexpr std::size_t kSlips = 2;
  const auto distance = [&](const std::string& known) {
    return EditDistance(LowerCase(key), known);
  };
  const std::string nearest = std::ranges::min(kKnownKeys, {}, distance);
  if (distance(nearest) <= kSlips) {
    return "did you mean \"" + nearest + "\"?";
  }
  return "remove it; the keys of an item are \"name\", \"program\", \"argc\" "
         "and \"args\"";
}

bool IsIndexBelow(const std::string& key, std::int64_t count) {
  if (key.empty() || key.size() > 10 ||
      !std::ranges::all_of(key, [](char c) { return c >= '0' && c <= '9'; })) {
    return false;
  }
  const std::int64_t index = std::stoll(key);
  return index < count && std::to_string(index) == key;
}

// The library keeps a text whole; the launcher reads it up to its first NUL.
bool IsCut(JsonObject node, const std::string& text) {
  JsonObject read = JsonObject::GetEmptyObject();
  read["text"] = text;
  return read["text"].ToText() != node.ToText();
}

class ItemCheck {
 public:
  ItemCheck(JsonObject item, const JsonNode& source, CheckedItem* result,
            Findings* findings)
      : item_(item), source_(source), result_(result), findings_(findings) {}

  void Run() {
    const bool has_program = CheckProgram();
    const std::size_t before = findings_->size();
    if (CheckArgc() && CheckArgs() && has_program) {
      result_->vector = vector_;
    }
    if (!has_program) {
      // Without a program the launcher does not come to the arguments.
      for (Finding& finding : std::span(*findings_).subspan(before)) {
        finding.effect = "once the item has a program, " + finding.effect;
      }
    }
    CheckItemKeys(source_, result_->index, findings_);
  }

 private:
  void Add(Severity severity, const std::string& id, const JsonMember* member,
           const std::string& key, const std::string& problem,
           const std::string& effect, const std::string& advice) {
    const std::size_t offset =
        member == nullptr ? source_.offset : member->value.offset;
    findings_->push_back(
        {severity, id, offset, result_->index, key, problem, effect, advice});
  }

  // False when there is nothing to be executed.
  bool CheckProgram() {
    const JsonMember* const member = source_.Find("program");
    const auto error = [&](const std::string& id, const std::string& problem,
                           const std::string& effect,
                           const std::string& advice) {
      Add(Severity::kError, id, member, "program", problem, effect, advice);
      return false;
    };
    std::string program;
    try {
      program = ItemProgram(item_);
    } catch (const std::exception&) {
      return error("program-type", "is no text",
                   "the whole launcher ends by SIGABRT, and the programs that "
                   "run already go on without it",
                   "write the program's path as a string");
    }
    vector_.push_back(program);
    if (program.empty()) {
      return error(member == nullptr ? "program-missing" : "program-empty",
                   member == nullptr ? "is missing" : "is empty",
                   "the item's child kills the launcher's process group, the "
                   "launcher and all other items included",
                   "write the program's absolute path");
    }
    if (member != nullptr) {
      CheckText(item_["program"], *member, "program", result_->index, program,
                findings_);
    }
    if (const auto problem = FindProgramProblem(program)) {
      error(problem->id, Quoted(program) + ": " + problem->text, kChain,
            problem->advice);
    } else if (program[0] != '/') {
      Add(Severity::kWarning, "program-relative", member, "program",
          Quoted(program) + " is a relative path",
          "it is looked for below the directory that the launcher is started "
          "in",
          "write the absolute path");
    }
    return true;
  }

  // False when the child gets no further.
  bool CheckArgc() {
    const JsonMember* const member = source_.Find("argc");
    try {
      length_ = ItemVectorLength(item_);
    } catch (const std::exception&) {
      Add(Severity::kError, "argc-type", member, "argc",
          std::string("is ") + Describe(TypeOf(member)) +
              ", not an integer of 64 bits",
          kChildAborts, "write the number of arguments, without quotes");
      return false;
    }
    if (member != nullptr) {
      CheckArgcValue(*member);
    }
    return CheckLength(member);
  }

  void CheckArgcValue(const JsonMember& member) {
    const auto whole = static_cast<long long>(item_["argc"]);
    const int used = static_cast<int>(item_["argc"]);
    const std::string taken = "taken as " + std::to_string(used);
    if (used < 0) {
      Add(Severity::kError, "argc-negative", &member, "argc",
          "is below 0, " + taken,
          "the program is started without any arguments, its own path as the "
          "first included, which many do not survive",
          "write the number of arguments, 0 for none");
    } else if (whole != used) {
      Add(Severity::kError, "argc-cut", &member, "argc",
          "does not fit 32 bits, " + taken,
          "the program gets so many arguments", "write their number");
    } else if (TypeOf(&member) != JsonType::kNumber ||
               item_["argc"].ToText() != std::to_string(whole)) {
      Add(Severity::kWarning, "argc-converted", &member, "argc",
          std::string("is ") + Describe(TypeOf(&member)) +
              " that is no integer, " + taken,
          "the program gets so many arguments", "write an integer");
    }
  }

  // False when the vector has no room on the thread's stack.
  bool CheckLength(const JsonMember* member) {
    const auto pointer = static_cast<std::int64_t>(sizeof(char*));
    if ((length_ + 1) * pointer <= kStackBytes) {
      return true;
    }
    Add(Severity::kError, "argc-too-large", member, "argc",
        "gives an argument vector that its thread's stack has no room for",
        "the child ends by a memory fault before it executes anything, at each "
        "start, every 50 ms",
        "write the number of arguments");
    return false;
  }

  // False when the child gets no further.
  bool CheckArgs() {
    const JsonMember* const args = source_.Find("args");
    if (args != nullptr) {
      CheckUnusedArgs(*args);
    }
    if (length_ == 0) {
      vector_.clear();  // The program's path gives way to the terminator.
    }
    const JsonMember* first_missing = nullptr;
    std::int64_t missing = 0;
    std::int64_t first = 0;
    for (std::int64_t i = 1; i < length_; ++i) {
      const std::string key = std::to_string(i - 1);
      const JsonMember* const member =
          args == nullptr ? nullptr : args->value.Find(key);
      if (!TakeArgument(i, args, member)) {
        return false;
      }
      if (member == nullptr && missing++ == 0) {
        first = i - 1;
        first_missing = args;
      }
    }
    if (missing > 0) {
      AddMissing(first_missing, first, missing);
    }
    return true;
  }

  // False when the launcher's own reading throws.
  bool TakeArgument(std::int64_t position, const JsonMember* args,
                    const JsonMember* member) {
    const std::string key = "args/" + std::to_string(position - 1);
    try {
      vector_.push_back(ItemArgument(item_, position));
    } catch (const std::exception&) {
      const bool whole = TypeOf(args) != JsonType::kObject;
      const JsonMember* const culprit = whole ? args : member;
      Add(Severity::kError, whole ? "args-type" : "arg-type", culprit,
          whole ? "args" : key,
          std::string("is ") + Describe(TypeOf(culprit)) +
              (whole ? ", not an object" : ", not a text"),
          kChildAborts,
          whole ? R"(write an object: { "0": "first", "1": "second" })"
                : "write a string");
      return false;
    }
    if (member != nullptr) {
      CheckText(item_["args"][std::to_string(position - 1).c_str()], *member,
                key, result_->index, vector_.back(), findings_);
    }
    return true;
  }

  void AddMissing(const JsonMember* args, std::int64_t first,
                  std::int64_t count) {
    const std::string key = std::to_string(first);
    Add(Severity::kWarning, "arg-missing", args, "args/" + key,
        count == 1 ? "is missing"
                   : "is missing, and " + std::to_string(count - 1) + " more",
        "the program gets an empty argument in its place",
        "add it, or write a lower \"argc\"");
  }

  void CheckUnusedArgs(const JsonMember& args) {
    const bool is_object = args.value.type == JsonType::kObject;
    if (is_object) {
      FindReplacedMembers(args.value, "args/", result_->index, findings_);
    }
    if (length_ <= 1) {
      if (!is_object || !args.value.members.empty()) {
        Add(Severity::kWarning, "args-without-argc", &args, "args",
            "is not read, since \"argc\" is missing or below 1",
            "the program gets none of these arguments",
            is_object ? "write \"argc\": " + std::to_string(CountArgs(args))
                      : "write \"argc\", and the arguments as an object");
      }
      return;
    }
    for (const JsonMember& member : args.value.members) {
      if (!IsIndexBelow(member.key, length_ - 1)) {
        findings_->push_back(
            {Severity::kWarning, "arg-unread", member.offset, result_->index,
             "args/" + member.key, "is never looked at",
             "the program does not get it; the keys that are read are \"0\" to "
             "\"" +
                 std::to_string(length_ - 2) + "\"",
             "number the arguments from \"0\" without gaps and write their "
             "number under \"argc\""});
      }
    }
  }

  // How many arguments are there in a row.
  static std::size_t CountArgs(const JsonMember& args) {
    std::size_t count = 0;
    while (args.value.Find(std::to_string(count)) != nullptr) {
      ++count;
    }
    return count;
  }

  static JsonType TypeOf(const JsonMember* member) {
    return member == nullptr ? JsonType::kNull : member->value.type;
  }

  JsonObject item_;
  const JsonNode& source_;
  CheckedItem* result_;
  Findings* findings_;
  std::vector<std::string> vector_;
  std::int64_t length_ = 1;
};

}  // namespace

void CheckItem(JsonObject item, const JsonNode& source, CheckedItem* result,
               Findings* findings) {
  ItemCheck(item, source, result, findings).Run();
}

void CheckItemKeys(const JsonNode& source, int index, Findings* findings) {
  FindReplacedMembers(source, "", index, findings);
  for (const JsonMember& member : source.members) {
    if (std::ranges::find(kKnownKeys, member.key) == kKnownKeys.end()) {
      findings->push_back({Severity::kWarning, "unknown-key", member.offset,
                           index, member.key, "is no key of an item",
                           "it is never looked at", DidYouMean(member.key)});
    }
  }
}

void FindReplacedMembers(const JsonNode& source, const std::string& where,
                         std::optional<int> item, Findings* findings) {
  std::set<std::string> later;
  for (auto member = source.members.rbegin(); member != source.members.rend();
       ++member) {
    if (!later.insert(member->key).second) {
      findings->push_back({Severity::kWarning, "duplicate-key", member->offset,
                           item, where + member->key,
                           "stands here more than once",
                           "only the last one counts", "remove the others"});
    }
  }
}

void CheckText(JsonObject node, const JsonMember& member,
               const std::string& key, int item, const std::string& text,
               Findings* findings) {
  const auto warn = [&](const std::string& id, const std::string& problem,
                        const std::string& advice) {
    findings->push_back({Severity::kWarning, id, member.value.offset, item, key,
                         problem, "the launcher takes it as " + Quoted(text),
                         advice});
  };
  const std::string a_type = std::string("is ") + Describe(member.value.type);
  switch (member.value.type) {
    case JsonType::kNumber:
    case JsonType::kBoolean:
      warn("converted", a_type + ", not a string",
           "write \"" + Printable(text) + "\" or the text that you mean");
      break;
    case JsonType::kNull:
      warn("null", a_type + ", not a string", "write a string");
      break;
    case JsonType::kString:
      if (IsCut(node, text)) {
        warn("cut-at-nul", "holds a NUL character (\\u0000)",
             "remove everything from \\u0000 on");
      }
      break;
    default:
      break;
  }
}
