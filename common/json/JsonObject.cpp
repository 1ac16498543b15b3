#include "common/json/JsonObject.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "common/util/StringHelpers.h"
#include "common/util/Trim.h"

namespace {

std::string Trimmed(std::string text) { return trim(text); }

}  // namespace

// Deliberate: this constructor drops comments and the next one keeps them. The
// launcher reads its items file with this one and never writes it back. A
// program that edits a file needs the next one: `ToStyledText` would lose the
// comments.
JsonObject::JsonObject(const char* text, unsigned int length)
    : m_target(&m_owned) {
  constexpr bool kCollectComments = false;
  if (!Json::Reader().parse(text, text + length, m_owned, kCollectComments)) {
    throw AERROR_PARSE_JSON;
  }
}

JsonObject::JsonObject(const char* text) : m_target(&m_owned) {
  constexpr bool kCollectComments = true;
  if (text != nullptr &&
      !Json::Reader().parse(std::string(text), m_owned, kCollectComments)) {
    throw AERROR_PARSE_JSON;
  }
}

JsonObject::JsonObject(Json::Value& node) : m_target(&node) {}

// Deliberate: looks at the value of `other`, not at where it points, and so
// takes a document that holds null for a view. Callers rely on that to fill an
// empty document through a copy of it. `operator=` decides in the same way.
JsonObject::JsonObject(const JsonObject& other)
    : m_target(other.m_owned.isNull() ? other.m_target : &m_owned),
      m_owned(other.m_owned) {}

JsonObject JsonObject::GetEmptyObject() { return JsonObject("{}"); }

// Deliberate: ends at the first NUL. Otherwise names that differ only after it
// would be different names.
JsonObject::operator std::string() { return m_target->asString().c_str(); }

JsonObject::operator std::wstring() { return s2ws(operator std::string()); }

JsonObject::operator unsigned long long() { return m_target->asUInt64(); }

JsonObject::operator long long() { return m_target->asInt64(); }

JsonObject::operator long() { return m_target->asInt64(); }

// Deliberate: no range check. Callers read 64-bit values as 32-bit ones, which
// `asInt` would refuse.
JsonObject::operator int() { return static_cast<int>(m_target->asInt64()); }

JsonObject::operator AERROR() { return static_cast<AERROR>(operator int()); }

JsonObject::operator double() { return m_target->asDouble(); }

JsonObject::operator bool() { return m_target->asBool(); }

bool JsonObject::IsValid() { return !m_target->isNull(); }

bool JsonObject::IsArray() { return m_target->isArray(); }

Json::ArrayIndex JsonObject::GetArraySize() { return m_target->size(); }

std::vector<std::string> JsonObject::GetKeys() {
  return m_target->getMemberNames();
}

JsonObject JsonObject::GetObject(const char* path) {
  Json::Value* const node = Find(path);
  if (node == nullptr) {
    throw AERROR_NOT_FOUND;
  }
  return *node;
}

bool JsonObject::HasObject(const char* path) { return Find(path) != nullptr; }

// Cuts the path as `split` at "/" would, but without a regular expression: this
// runs in forked children, and for every item and argument.
Json::Value* JsonObject::Find(const char* path) {
  Json::Value* node = m_target;
  std::string_view rest = path;
  while (!rest.empty()) {
    const std::string piece(rest.substr(0, rest.find('/')));
    rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    if (piece.empty()) {
      continue;
    }
    if (!node->isMember(piece)) {
      return nullptr;
    }
    node = &(*node)[piece];
  }
  return node;
}

// Deliberate: reading a missing member adds it. Callers write new members
// through the result; those that must not change the document call `HasObject`
// first.
JsonObject JsonObject::operator[](const char* key) { return (*m_target)[key]; }

JsonObject JsonObject::operator[](int index) { return (*m_target)[index]; }

// Deliberate: shares the node, despite its name. Callers change the original
// through the result.
JsonObject JsonObject::Copy() { return *m_target; }

JsonObject& JsonObject::operator=(std::string text) {
  *m_target = Json::Value(text);
  return *this;
}

JsonObject& JsonObject::operator=(const JsonObject& other) {
  if (other.m_owned.isNull()) {
    *m_target = *other.m_target;
  } else {
    m_owned = other.m_owned;
    m_target = &m_owned;
  }
  return *this;
}

bool JsonObject::Insert(const char* key, const JsonObject& item) {
  Json::Value copy(*item.m_target);
  (*m_target)[key] = std::move(copy);
  return true;
}

bool JsonObject::Insert(const char* key, const std::wstring& text) {
  Json::Value encoded(ws2s(text));
  (*m_target)[key] = std::move(encoded);
  return true;
}

bool JsonObject::InsertArrayItem(std::string text) {
  m_target->append(Json::Value(text));
  return true;
}

bool JsonObject::InsertArrayItem(JsonObject& item) {
  m_target->append(Json::Value(*item.m_target));
  return true;
}

bool JsonObject::RemoveArrayItem(unsigned long index) {
  Json::Value discarded;
  return m_target->removeIndex(static_cast<Json::ArrayIndex>(index),
                               &discarded);
}

bool JsonObject::Remove(const char* key) {
  Json::Value discarded;
  return m_target->removeMember(key, &discarded);
}

std::string JsonObject::ToText() {
  return Trimmed(Json::FastWriter().write(*m_target));
}

std::string JsonObject::ToStyledText() {
  return Trimmed(Json::StyledWriter().write(*m_target));
}
