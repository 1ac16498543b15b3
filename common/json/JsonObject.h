// JsonObject: a handle on a JSON node, on top of jsoncpp.
//
// An object is a document, which owns the value it stands for, or a view, which
// stands for a node inside another object's document and owns nothing. Most
// operations return views, so that a document is walked without copying it. A
// view is valid while its document lives and its node has not been removed or
// moved; nothing tracks this.
//
// Nothing here checks a node's type or translates the library's errors: what
// jsoncpp refuses leaves as a Json::LogicError or Json::RuntimeError. They
// derive from Json::Exception and std::exception alone.
//
// Threads: a document and all views of it belong to one thread at a time, since
// reading through `operator[]` may add to the document. Forks: a forked copy of
// a threaded process may use the objects that it has inherited.

#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "common/AError.h"

class JsonObject {
 public:
  // A document parsed from the `length` bytes at `text`, without its comments;
  // no terminator is needed. Throws AERROR_PARSE_JSON when the text is not
  // JSON. Nesting beyond the library's limit (256 or 1,000 levels, by its
  // version) leaves as Json::RuntimeError. What follows a complete value is
  // ignored.
  JsonObject(const char* text, unsigned int length);

  // The same up to the terminating zero, comments kept for `ToStyledText`. A
  // null pointer gives a document that holds null.
  JsonObject(const char* text);  // NOLINT(google-explicit-constructor)

  // A view of `node`.
  JsonObject(Json::Value& node);  // NOLINT(google-explicit-constructor)

  // A deep copy of a document; a view of the same node for a view. A document
  // that holds null is taken for a view: the copy is valid only as long as it.
  JsonObject(const JsonObject& other);

  virtual ~JsonObject() = default;

  // A document that holds {}.
  static JsonObject GetEmptyObject();

  // The node as a value, by the library's rules: null is "", 0, false; strings
  // never convert to numbers; arrays and objects convert to nothing and throw.

  // As text, up to its first zero byte.
  operator std::string();
  // The same, decoded as by `s2ws`, with its error.
  operator std::wstring();
  operator unsigned long long();
  operator long long();
  operator long();
  // The low 32 bits of the 64-bit value: 4294967297 gives 1.
  operator int();
  // As `operator int`.
  operator AERROR();
  operator double();
  operator bool();

  // Whether the node is not null.
  bool IsValid();
  bool IsArray();
  // Elements of an array, members of an object, 0 for anything else.
  Json::ArrayIndex GetArraySize();
  // The names of an object's members, in ascending order of their bytes.
  std::vector<std::string> GetKeys();

  // A view of the node at `path` below this one. Each piece between slashes
  // names a member; empty pieces are skipped, so "/a//b/" is "a/b", and "" is
  // this node. Array elements have no path: a piece that meets an array or a
  // scalar throws Json::LogicError. Throws AERROR_NOT_FOUND when a member is
  // missing; nothing is added to the document.
  JsonObject GetObject(const char* path);

  // Whether `GetObject(path)` finds a node. Throws what it throws, but for
  // AERROR_NOT_FOUND.
  bool HasObject(const char* path);

  // A view of the member `key`, or of the element `index`. One that is missing
  // is added, as null; a null node turns into an object or array for it.
  JsonObject operator[](const char* key);
  JsonObject operator[](int index);

  // A view of this node; the value is shared, not copied.
  JsonObject Copy();

  // Overwrites the node with the string `text`, also through a view.
  JsonObject& operator=(std::string text);

  // From a document: becomes an independent document with a deep copy, whatever
  // this object was; a node that it viewed stays as it is. From a view, or from
  // a document that holds null: overwrites this node with a deep copy of the
  // value, also through a view.
  JsonObject& operator=(const JsonObject& other);

  // Stores a deep copy of `item` under `key`. The copy is made first, so `item`
  // may be this node or contain it. Always true.
  bool Insert(const char* key, const JsonObject& item);

  // Stores `text`, encoded as by `ws2s`, under `key`. When that throws, nothing
  // is added. Always true.
  bool Insert(const char* key, const std::wstring& text);

  // Appends a string, or a deep copy of `item`, to an array. Always true.
  bool InsertArrayItem(std::string text);
  bool InsertArrayItem(JsonObject& item);

  // Removes the element at the low 32 bits of `index`. False when there is
  // none.
  bool RemoveArrayItem(unsigned long index);

  // Removes the member `key`. False when there is none.
  bool Remove(const char* key);

  // The node as JSON text: on one line, or indented by three spaces with the
  // comments that were kept. No line feed at the end. jsoncpp 1.9.5 and newer
  // write non-ASCII characters as \u escapes; bytes that are not UTF-8 do not
  // survive.
  std::string ToText();
  std::string ToStyledText();

 private:
  // The node at `path` below this one, or null.
  Json::Value* Find(const char* path);

  // What everything acts on: this object's own `m_owned`, or a foreign node.
  Json::Value* m_target;
  // A document's value; null in a view.
  Json::Value m_owned;
};
