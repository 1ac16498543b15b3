// JsonObject: a handle on a JSON node, on top of jsoncpp.
//
// An object is either a document, which owns its value, or a view of a node in
// another object's document. A view is valid while its document lives and its
// node is not removed or moved; nothing checks this.
//
// jsoncpp's type errors propagate: Json::LogicError and Json::RuntimeError,
// which derive from Json::Exception and std::exception only.
//
// One thread at a time may use a document and its views; even reading by
// `operator[]` may add to it. A forked child of a threaded process may use the
// objects that it inherits.

#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "common/AError.h"

class JsonObject {
 public:
  // A document parsed from the `length` bytes at `text`, which needs no
  // terminator. Drops comments, and ignores text after a complete value. Throws
  // AERROR_PARSE_JSON when the text is not JSON, and Json::RuntimeError for
  // nesting beyond the library's limit (256 or 1,000 levels, by its version).
  JsonObject(const char* text, unsigned int length);

  // The same for a C string, but keeps comments for `ToStyledText`. A null
  // pointer gives a document that holds null.
  JsonObject(const char* text);  // NOLINT(google-explicit-constructor)

  // A view of `node`.
  JsonObject(Json::Value& node);  // NOLINT(google-explicit-constructor)

  // A deep copy of a document, or a second view of a view's node. A document
  // that holds null counts as a view: the copy is valid while `other` lives.
  JsonObject(const JsonObject& other);

  virtual ~JsonObject() = default;

  // A document that holds {}.
  static JsonObject GetEmptyObject();

  // The node's value by jsoncpp's rules: null gives "", 0 or false, a string
  // never converts to a number, and arrays and objects throw.

  // The text up to its first zero byte; as a wide string, decoded by `s2ws`.
  operator std::string();
  operator std::wstring();
  operator unsigned long long();
  operator long long();
  operator long();
  // The low 32 bits of the 64-bit value: 4294967297 gives 1.
  operator int();
  operator AERROR();
  operator double();
  operator bool();

  // Whether the node is not null.
  bool IsValid();
  bool IsArray();
  // The number of array elements or object members; 0 for all other types.
  Json::ArrayIndex GetArraySize();
  // The names of an object's members, in ascending order of their bytes.
  std::vector<std::string> GetKeys();

  // A view of a node below this one. `path` consists of member names with
  // slashes between them. Empty names are skipped: "/a//b/" is "a/b", and "" is
  // this node. Throws AERROR_NOT_FOUND for a missing member, which is not
  // added, and Json::LogicError for a name in an array or scalar: paths do not
  // index arrays.
  JsonObject GetObject(const char* path);

  // Whether `GetObject` finds a node. Throws only the Json::LogicError.
  bool HasObject(const char* path);

  // A view of a member or an array element. A missing one is added as null, and
  // a null node becomes an object or an array for it.
  JsonObject operator[](const char* key);
  JsonObject operator[](int index);

  // A view of this node: the two share the value.
  JsonObject Copy();

  // Overwrites the node with a string, even if this object is a view.
  JsonObject& operator=(std::string text);

  // If `other` is a document, this object becomes a document with a deep copy;
  // a node that it viewed stays unchanged. If `other` is a view, or a document
  // that holds null, overwrites this object's node with a deep copy, even if
  // this object is a view.
  JsonObject& operator=(const JsonObject& other);

  // Stores a deep copy of `item`, or `text` as encoded by `ws2s`, under `key`.
  // The copy is made first: `item` may be or contain this node, and when `ws2s`
  // throws, nothing is added. Always true.
  bool Insert(const char* key, const JsonObject& item);
  bool Insert(const char* key, const std::wstring& text);

  // Appends a string, or a deep copy of `item`, to an array. Always true.
  bool InsertArrayItem(std::string text);
  bool InsertArrayItem(JsonObject& item);

  // Removes the element at the low 32 bits of `index`, or the member `key`.
  // False when there is none.
  bool RemoveArrayItem(unsigned long index);
  bool Remove(const char* key);

  // The node as JSON text without a line feed at the end: on one line, or
  // indented by three spaces with the comments that were kept. jsoncpp 1.9.5
  // and newer escape non-ASCII characters (\u) and lose bytes that are not
  // UTF-8.
  std::string ToText();
  std::string ToStyledText();

 private:
  // The node at `path` below this one, or null.
  Json::Value* Find(const char* path);

  // The node that all operations act on: `m_owned`, or one elsewhere.
  Json::Value* m_target;
  // A document's value; null in a view.
  Json::Value m_owned;
};
