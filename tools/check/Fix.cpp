#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <sstream>
#include <string_view>
#include <tuple>
#include <utility>

#include "tools/check/Check.h"
#include "tools/text/Characters.h"

namespace {

// The members "0", "1", ... of an object made from an array.
Json::Value Numbered(const Json::Value& array) {
  Json::Value object = Json::objectValue;
  for (Json::ArrayIndex i = 0; i < array.size(); ++i) {
    object[std::to_string(i)] = array[i];
  }
  return object;
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
    if (root_.isArray()) {
      root_ = Numbered(root_);
      Note(
          "turned the list of items into an object with the keys \"0\", "
          "\"1\", ...");
    }
    Renumber();
    for (const std::string& key : root_.getMemberNames()) {
      if (IndexOf(key) && root_[key].isObject()) {
        FixItem("item " + key + ": ", root_[key]);
      }
    }
    if (changes_.empty()) {
      return FixedItems{text_, {}};
    }
    Write(root_, "");
    return FixedItems{written_.str() + "\n", changes_};
  }

 private:
  void Note(std::string change) { changes_.push_back(std::move(change)); }

  bool Parse() {
    if (text_.starts_with(kByteOrderMark)) {
      text_.erase(0, kByteOrderMark.size());
      Note("removed the byte order mark");
    }
    if (ScanJson(text_).comment) {
      Note("removed the comments");
    }
    try {
      return Json::Reader().parse(text_, root_, false) || ParseLeniently();
    } catch (const Json::Exception&) {
      return false;
    }
  }

  bool ParseLeniently() {
    Json::CharReaderBuilder builder;
    builder["allowTrailingCommas"] = true;
    builder["allowSingleQuotes"] = true;
    builder["collectComments"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    Note("put texts in double quotes and removed commas after the last member");
    return reader->parse(text_.data(), text_.data() + text_.size(), &root_,
                         &errors);
  }

  // Closes the gaps. Keys that are not numbers stay.
  void Renumber() {
    std::map<std::uint64_t, std::string> keys;
    for (const std::string& key : root_.getMemberNames()) {
      if (const auto index = IndexOf(key)) {
        keys.emplace(*index, key);
      }
    }
    int next = 0;
    for (const auto& [index, old_key] : keys) {
      const std::string key = std::to_string(next++);
      if (key != old_key) {
        root_[key] = Json::Value(root_[old_key]);
        root_.removeMember(old_key);
        Note("item " + Quoted(old_key) + ": renumbered to " + Quoted(key));
      }
    }
  }

  void FixItem(const std::string& where, Json::Value& item) {
    for (const std::string& key : item.getMemberNames()) {
      const std::string meant = KeyMeantBy(key);
      if (!meant.empty() && !item.isMember(meant)) {
        item[meant] = Json::Value(item[key]);
        item.removeMember(key);
        Note(where + "renamed " + Quoted(key) + " to " + Quoted(meant));
      }
    }
    for (const std::string key : {"name", "program"}) {
      FixText(where, key, item, key);
    }
    FixArgs(where, item);
  }

  // Turns a number or boolean into its text in the file. `name` is the name of
  // the member `key` in the list of changes.
  void FixText(const std::string& where, const std::string& name,
               Json::Value& object, const std::string& key) {
    if (!object.isMember(key)) {
      return;
    }
    Json::Value& value = object[key];
    if (value.isNumeric() || value.isBool()) {
      const auto start = static_cast<std::size_t>(value.getOffsetStart());
      const auto limit = static_cast<std::size_t>(value.getOffsetLimit());
      value = text_.substr(start, limit - start);
      Note(where + "wrote " + Quoted(name) + " as the text " +
           Quoted(value.asString()));
    }
  }

  void FixArgs(const std::string& where, Json::Value& item) {
    if (!item.isMember("args")) {
      return;
    }
    Json::Value& args = item["args"];
    const bool was_array = args.isArray();
    if (was_array) {
      args = Numbered(args);
      Note(where +
           "turned \"args\" into an object with the keys \"0\", \"1\", ...");
    }
    if (!args.isObject()) {
      return;
    }
    for (const std::string& key : args.getMemberNames()) {
      FixText(where, "args/" + key, args, key);
    }
    const auto count = static_cast<int>(args.size());
    for (int i = 0; i < count; ++i) {
      if (!args.isMember(std::to_string(i))) {
        return;  // The intended number of arguments is not certain.
      }
    }
    const Json::Value& argc = std::as_const(item)["argc"];
    const bool is_meant = argc.isInt() ? !was_array || argc.asInt() == count
                                       : argc.isNull() && count == 0;
    if (!is_meant) {
      item["argc"] = count;
      Note(where + "set \"argc\" to " + std::to_string(count));
    }
  }

  // Writes objects down to the items on lines of their own, and members in a
  // natural order: known keys first, numbers by value.
  void Write(const Json::Value& value, const std::string& indent) {
    constexpr std::string_view kFirst[] = {"$schema", "name", "program", "argc",
                                           "args"};
    constexpr std::size_t kItemIndent = 2;
    if (!value.isObject() || value.empty()) {
      writer_->write(value, &written_);
      return;
    }
    std::map<std::tuple<std::ptrdiff_t, std::uint64_t, std::string>,
             const Json::Value*>
        members;
    for (auto member = value.begin(); member != value.end(); ++member) {
      const std::string key = member.name();
      members[{std::ranges::find(kFirst, key) - kFirst,
               IndexOf(key).value_or(UINT64_MAX), key}] = &*member;
    }
    const bool breaks = indent.size() <= kItemIndent;
    std::string separator = "{";
    for (const auto& [order, member] : members) {
      written_ << separator << (breaks ? "\n  " + indent : " ");
      writer_->write(std::get<std::string>(order), &written_);
      written_ << ": ";
      Write(*member, indent + "  ");
      separator = ",";
    }
    written_ << (breaks ? "\n" + indent : " ") << "}";
  }

  std::string text_;
  Json::Value root_;
  std::vector<std::string> changes_;
  std::unique_ptr<Json::StreamWriter> writer_;
  std::ostringstream written_;
};

}  // namespace

std::optional<FixedItems> FixItems(const std::string& text) {
  return Fixer(text).Run();
}
