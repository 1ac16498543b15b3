#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>

#include "tools/check/Check.h"
#include "tools/text/Characters.h"

namespace {

// The names of the members in a natural order: known ones first, numbers by
// value.
std::vector<std::string> Ordered(const Json::Value& object) {
  constexpr std::string_view kFirst[] = {"$schema", "name", "program", "argc",
                                         "args"};
  std::vector<std::string> names = object.getMemberNames();
  std::ranges::stable_sort(names, {}, [&](const std::string& name) {
    return std::pair(std::ranges::find(kFirst, name),
                     IndexOf(name).value_or(UINT64_MAX));
  });
  return names;
}

class Fixer {
 public:
  explicit Fixer(const std::string& text) : text_(text) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    writer_.reset(builder.newStreamWriter());
  }

  std::optional<FixedItems> Run() {
    if (!Parse() || !(root_.isObject() || root_.isArray())) {
      return std::nullopt;
    }
    Number("the list of items", root_);
    Renumber();
    for (const std::string& key : root_.getMemberNames()) {
      if (IndexOf(key) && root_[key].isObject()) {
        where_ = "item " + key + ": ";
        FixItem(root_[key]);
      }
    }
    if (changes_.empty()) {
      return FixedItems{text_, {}};
    }
    Write(root_, "");
    return FixedItems{written_.str() + "\n", changes_};
  }

 private:
  void Note(const std::string& change) { changes_.push_back(where_ + change); }

  bool Parse() {
    if (text_.starts_with(kByteOrderMark)) {
      text_.erase(0, kByteOrderMark.size());
      Note("removed the byte order mark");
    }
    JsonText json = ReadJson(text_);
    if (json.comment) {
      Note("removed the comments");
    }
    root_.swap(json.root);
    return json.errors.empty() || ParseLeniently();
  }

  bool ParseLeniently() {
    Json::CharReaderBuilder builder;
    builder["allowTrailingCommas"] = true;
    builder["allowSingleQuotes"] = true;
    builder["collectComments"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    Note("put texts in double quotes and removed commas after the last member");
    try {
      return reader->parse(text_.data(), text_.data() + text_.size(), &root_,
                           &errors);
    } catch (const Json::Exception&) {
      return false;
    }
  }

  // Turns `list`, if it is an array, into an object with the members "0",
  // "1", ...
  void Number(const std::string& name, Json::Value& list) {
    if (!list.isArray()) {
      return;
    }
    Json::Value object = Json::objectValue;
    for (const Json::Value& element : list) {
      object[std::to_string(object.size())] = element;
    }
    list.swap(object);
    Note("turned " + name + " into an object with the keys \"0\", \"1\", ...");
  }

  // Closes the gaps. Keys that are not numbers stay.
  void Renumber() {
    int next = 0;
    for (const std::string& old_key : Ordered(root_)) {
      if (!IndexOf(old_key)) {
        continue;
      }
      const std::string key = std::to_string(next++);
      if (key != old_key) {
        root_[key] = Json::Value(root_[old_key]);
        root_.removeMember(old_key);
        Note("item " + Quoted(old_key) + ": renumbered to " + Quoted(key));
      }
    }
  }

  void FixItem(Json::Value& item) {
    for (const std::string& key : item.getMemberNames()) {
      const std::string meant = KeyMeantBy(key);
      if (!meant.empty() && !item.isMember(meant)) {
        item[meant] = Json::Value(item[key]);
        item.removeMember(key);
        Note("renamed " + Quoted(key) + " to " + Quoted(meant));
      }
    }
    for (const std::string key : {"name", "program"}) {
      if (item.isMember(key)) {
        FixText(key, item[key]);
      }
    }
    if (item.isMember("args")) {
      FixArgs(item);
    }
  }

  // Turns a number or boolean into its text in the file.
  void FixText(const std::string& name, Json::Value& value) {
    if (value.isNumeric() || value.isBool()) {
      const auto limit = static_cast<std::size_t>(value.getOffsetLimit());
      value = text_.substr(OffsetOf(value), limit - OffsetOf(value));
      Note("wrote " + Quoted(name) + " as the text " +
           Quoted(value.asString()));
    }
  }

  void FixArgs(Json::Value& item) {
    Json::Value& args = item["args"];
    const bool was_array = args.isArray();
    Number("\"args\"", args);
    if (!args.isObject()) {
      return;
    }
    const auto count = static_cast<int>(args.size());
    bool has_gap = false;
    for (const std::string& key : args.getMemberNames()) {
      FixText("args/" + key, args[key]);
      has_gap = has_gap || IndexOf(key).value_or(UINT64_MAX) >= args.size();
    }
    const Json::Value& argc = std::as_const(item)["argc"];
    const bool is_meant = argc.isInt() ? !was_array || argc.asInt() == count
                                       : argc.isNull() && count == 0;
    // With a gap, the intended number of arguments is not certain.
    if (!has_gap && !is_meant) {
      item["argc"] = count;
      Note("set \"argc\" to " + std::to_string(count));
    }
  }

  // Writes objects down to the items on lines of their own.
  void Write(const Json::Value& value, const std::string& indent) {
    constexpr std::size_t kItemIndent = 2;
    if (!value.isObject() || value.empty()) {
      writer_->write(value, &written_);
      return;
    }
    const bool breaks = indent.size() <= kItemIndent;
    std::string separator = "{";
    for (const std::string& key : Ordered(value)) {
      written_ << separator << (breaks ? "\n  " + indent : " ");
      writer_->write(key, &written_);
      written_ << ": ";
      Write(value[key], indent + "  ");
      separator = ",";
    }
    written_ << (breaks ? "\n" + indent : " ") << "}";
  }

  std::string text_;
  Json::Value root_;
  std::string where_;  // begins each note: "item 3: ", or nothing
  std::vector<std::string> changes_;
  std::unique_ptr<Json::StreamWriter> writer_;
  std::ostringstream written_;
};

}  // namespace

std::optional<FixedItems> FixItems(const std::string& text) {
  return Fixer(text).Run();
}
