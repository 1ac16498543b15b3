#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include "common/json/JsonObject.h"
#include "tests/support/LocalStatics.h"

namespace {

using namespace std::string_literals;

#ifdef __GLIBCXX__

// jsoncpp copies its null, a function-local static, into each member that it
// adds. A forked child that made the null could wait forever for a thread that
// was making it at the fork. This test must be the first to use jsoncpp.
TEST(JsonObjectNull, IsMadeBeforeAnyThread) {
  JsonObject document("{}");
  const int before = LocalStaticsMade();
  document["x"];
  EXPECT_EQ(LocalStaticsMade(), before);
}

#endif

// The AERROR that `action` throws, if any.
template <class Action>
std::optional<AERROR> Thrown(Action action) {
  try {
    action();
  } catch (AERROR error) {
    return error;
  }
  return std::nullopt;
}

template <class Value>
Value As(JsonObject object) {
  return object.operator Value();
}

std::string TextOf(JsonObject object) { return object.ToText(); }

TEST(JsonObjectClass, HasAVirtualDestructorAndNoBase) {
  EXPECT_TRUE(std::is_polymorphic_v<JsonObject>);
  EXPECT_TRUE(std::has_virtual_destructor_v<JsonObject>);
  // The table of virtual operations, the target and the value.
  EXPECT_EQ(sizeof(JsonObject), 2 * sizeof(void*) + sizeof(Json::Value));
}

// The addresses of an object's private members. An explicit instantiation may
// name them.
template <auto... kMembers>
struct JsonObjectMembers {
  friend auto AddressesIn(const JsonObject& object) {
    return std::array<const void*, sizeof...(kMembers)>{&(object.*kMembers)...};
  }
};
auto AddressesIn(const JsonObject& object);
template struct JsonObjectMembers<&JsonObject::m_target, &JsonObject::m_owned>;

TEST(JsonObjectClass, HasItsTargetBeforeItsValue) {
  const JsonObject document("{}");
  const auto [target, owned] = AddressesIn(document);
  EXPECT_TRUE(std::less<>()(target, owned));
}

// A pointer to a virtual function begins with the function's offset in the
// table, where the destructor has two entries.
TEST(JsonObjectClass, HasNoVirtualFunctionButItsDestructor) {
  struct Derived : JsonObject {
    using JsonObject::JsonObject;
    virtual void Next() {}
  };
  void (Derived::*const next)() = &Derived::Next;
  std::size_t offset = 0;
  std::memcpy(&offset, &next, sizeof(offset));
  EXPECT_EQ(offset / sizeof(void*), 2U);
}

TEST(JsonObjectClass, IsDeletedThroughAPointerToIt) {
  struct Derived : JsonObject {
    explicit Derived(bool& destroyed) : JsonObject("{}"), flag(destroyed) {}
    ~Derived() override { flag = true; }
    bool& flag;
  };
  bool destroyed = false;
  std::unique_ptr<JsonObject> object = std::make_unique<Derived>(destroyed);
  object.reset();
  EXPECT_TRUE(destroyed);
}

// The tests of this fixture run with both text constructors.
struct Constructor {
  const char* name;
  JsonObject (*parse)(const std::string&);
};

void PrintTo(const Constructor& constructor, std::ostream* out) {
  *out << constructor.name;
}

JsonObject FromRange(const std::string& text) {
  return {text.data(), static_cast<unsigned int>(text.size())};
}

JsonObject FromCString(const std::string& text) { return text.c_str(); }

class JsonObjectFromText : public testing::TestWithParam<Constructor> {
 protected:
  static JsonObject Parse(const std::string& text) {
    return GetParam().parse(text);
  }
};

INSTANTIATE_TEST_SUITE_P(Constructors, JsonObjectFromText,
                         testing::Values(Constructor{"FromRange", FromRange},
                                         Constructor{"FromCString",
                                                     FromCString}));

TEST_P(JsonObjectFromText, HoldsTheParsedValue) {
  EXPECT_EQ(Parse(R"( {"b":[1,"x",true,null,2.5],"a":{}} )").ToText(),
            R"({"a":{},"b":[1,"x",true,null,2.5]})");
  EXPECT_EQ(Parse("{}").ToText(), "{}");
  EXPECT_EQ(Parse("5").ToText(), "5");
  EXPECT_EQ(Parse("\"s\"").ToText(), "\"s\"");
  EXPECT_FALSE(Parse("null").IsValid());
}

TEST_P(JsonObjectFromText, ThrowsAParseErrorWhenTheTextIsNotJson) {
  for (const char* const text : {"",         " ",          "\n",
                                 "// only",  "{",          "[",
                                 "}",        "{\"a\":1,}", "[1,]",
                                 "[,]",      "{a:1}",      "{'a':1}",
                                 "{1:2}",    "\"open",     "nul",
                                 "NaN",      "+1",         "{\"a\"}",
                                 "{\"a\":}", "[1 2]",      "\xEF\xBB\xBF{}",
                                 "\f{}"}) {
    EXPECT_EQ(Thrown([&] { Parse(text); }), AERROR_PARSE_JSON) << text;
  }
}

TEST_P(JsonObjectFromText, IgnoresTextAfterACompleteValue) {
  EXPECT_EQ(Parse("{} x").ToText(), "{}");
  EXPECT_EQ(Parse("1 2").ToText(), "1");
  EXPECT_EQ(Parse("{}}").ToText(), "{}");
}

TEST_P(JsonObjectFromText, KeepsTheLastOfEqualKeys) {
  EXPECT_EQ(Parse(R"({"a":{"x":1},"a":{"y":2}})").ToText(), R"({"a":{"y":2}})");
}

TEST_P(JsonObjectFromText, AcceptsComments) {
  EXPECT_EQ(Parse("// c\n{\"a\":1 /* d */}").ToText(), R"({"a":1})");
}

TEST_P(JsonObjectFromText, AcceptsNestingUpToTheLibrarysLimit) {
  EXPECT_EQ(Parse(std::string(255, '[') + std::string(255, ']')).GetArraySize(),
            1U);
  const std::string deep(1001, '[');
  EXPECT_THROW(Parse(deep + std::string(1001, ']')), Json::RuntimeError);
}

TEST_P(JsonObjectFromText, MakesADocument) {
  JsonObject original = Parse(R"({"a":1})");
  JsonObject copy = original;
  copy["a"] = "changed"s;
  EXPECT_EQ(original.ToText(), R"({"a":1})");
}

TEST(JsonObjectFromRange, ReadsExactlyTheGivenBytes) {
  EXPECT_EQ(JsonObject("123456", 3).ToText(), "123");
  EXPECT_EQ(JsonObject("[1]]", 3).ToText(), "[1]");
  EXPECT_EQ(Thrown([] { JsonObject("[1]", 2); }), AERROR_PARSE_JSON);
  EXPECT_EQ(Thrown([] { JsonObject("{}", 0); }), AERROR_PARSE_JSON);
  EXPECT_EQ(Thrown([] { JsonObject(static_cast<const char*>(nullptr), 0); }),
            AERROR_PARSE_JSON);
}

TEST(JsonObjectFromRange, NeedsNoTerminator) {
  const std::vector<char> text = {'[', '1', ',', '2', ']'};
  EXPECT_EQ(
      JsonObject(text.data(), static_cast<unsigned int>(text.size())).ToText(),
      "[1,2]");
}

TEST(JsonObjectFromRange, ReadsPastAZero) {
  const std::string text = "[\"a\\u0000b\", 1]";
  EXPECT_EQ(FromRange(text).GetArraySize(), 2U);
  EXPECT_EQ(Thrown([] { FromRange("[1,\0 2]"s); }), AERROR_PARSE_JSON);
}

TEST(JsonObjectFromRange, DropsComments) {
  EXPECT_EQ(FromRange("// c\n{\"a\" : 1}").ToStyledText().find("c"),
            std::string::npos);
}

TEST(JsonObjectFromCString, EndsAtTheTerminator) {
  EXPECT_EQ(FromCString("[1]\0junk"s).ToText(), "[1]");
  EXPECT_EQ(Thrown([] { FromCString("[1,\0 2]"s); }), AERROR_PARSE_JSON);
}

TEST(JsonObjectFromCString, KeepsComments) {
  EXPECT_EQ(FromCString("// kept\n{\"a\":1}").ToStyledText(),
            "// kept\n{\n   \"a\" : 1\n}");
}

TEST(JsonObjectFromCString, HoldsNullForANullPointer) {
  const char* const none = nullptr;
  JsonObject object(none);
  EXPECT_FALSE(object.IsValid());
  EXPECT_EQ(object.ToText(), "null");
  EXPECT_EQ(object.GetArraySize(), 0U);
}

TEST(JsonObjectFromNode, IsAViewOfIt) {
  Json::Value node = 5;
  JsonObject view = node;
  EXPECT_EQ(As<int>(view), 5);
  view = "written"s;
  EXPECT_EQ(node, Json::Value("written"));
}

TEST(JsonObjectGetEmptyObject, HoldsAnObjectWithoutMembers) {
  JsonObject object = JsonObject::GetEmptyObject();
  EXPECT_TRUE(object.IsValid());
  EXPECT_EQ(object.GetArraySize(), 0U);
  EXPECT_EQ(object.ToText(), "{}");
  EXPECT_FALSE(object.IsArray());
}

TEST(JsonObjectGetEmptyObject, ReturnsANewDocumentEachTime) {
  JsonObject first = JsonObject::GetEmptyObject();
  first["a"];
  EXPECT_EQ(JsonObject::GetEmptyObject().ToText(), "{}");
}

// Expects the result or the exception of jsoncpp's own `conversion`.
template <class Expected, class Conversion>
void ExpectConversion(Json::Value node, Conversion conversion) {
  JsonObject view = node;
  std::optional<Expected> expected;
  try {
    expected = static_cast<Expected>(conversion(node));
  } catch (const Json::LogicError&) {
    EXPECT_THROW(view.operator Expected(), Json::LogicError) << node;
    return;
  }
  EXPECT_EQ(view.operator Expected(), *expected) << node;
}

std::vector<Json::Value> ValuesOfAllTypes() {
  std::vector<Json::Value> values = {Json::Value(),
                                     Json::Value(true),
                                     Json::Value(false),
                                     Json::Value(0),
                                     Json::Value(1),
                                     Json::Value(-1),
                                     Json::Value("5"),
                                     Json::Value(""),
                                     Json::Value("true"),
                                     Json::Value(Json::arrayValue),
                                     Json::Value(Json::objectValue),
                                     Json::Value(2.75),
                                     Json::Value(-2.75),
                                     Json::Value(1e300),
                                     Json::Value(-1e300)};
  for (const Json::Int64 base :
       {Json::Int64{0}, Json::Int64{1} << 31, Json::Int64{1} << 32,
        std::numeric_limits<Json::Int64>::max() - 2,
        std::numeric_limits<Json::Int64>::min() + 2}) {
    for (Json::Int64 offset = -2; offset <= 2; ++offset) {
      values.emplace_back(base + offset);
      values.emplace_back(static_cast<Json::UInt64>(base + offset));
    }
  }
  return values;
}

TEST(JsonObjectConversion, FollowsTheLibrary) {
  for (const Json::Value& value : ValuesOfAllTypes()) {
    const auto as_int64 = [](const Json::Value& v) { return v.asInt64(); };
    ExpectConversion<unsigned long long>(
        value, [](const Json::Value& v) { return v.asUInt64(); });
    ExpectConversion<long long>(value, as_int64);
    ExpectConversion<long>(value, as_int64);
    ExpectConversion<int>(value, as_int64);
    ExpectConversion<AERROR>(value, as_int64);
    ExpectConversion<double>(value,
                             [](const Json::Value& v) { return v.asDouble(); });
    ExpectConversion<bool>(value,
                           [](const Json::Value& v) { return v.asBool(); });
    ExpectConversion<std::string>(
        value, [](const Json::Value& v) { return v.asString(); });
  }
}

TEST(JsonObjectConversion, ReadsNumbersAndFlags) {
  EXPECT_EQ(As<unsigned long long>("18446744073709551615"),
            18446744073709551615ULL);
  EXPECT_EQ(As<long long>("-9223372036854775808"),
            std::numeric_limits<long long>::min());
  EXPECT_EQ(As<long>("4294967297"), 4294967297L);
  EXPECT_EQ(As<int>("-7"), -7);
  EXPECT_EQ(As<double>("2.5"), 2.5);
  EXPECT_TRUE(As<bool>("true"));
  EXPECT_FALSE(As<bool>("false"));
  EXPECT_EQ(As<int>("2.9"), 2);
  EXPECT_EQ(As<int>("-2.9"), -2);
}

TEST(JsonObjectConversion, KeepsTheLow32BitsOfAnInteger) {
  EXPECT_EQ(As<int>("4294967297"), 1);
  EXPECT_EQ(As<int>("4294967295"), -1);
  EXPECT_EQ(As<int>("2147483648"), std::numeric_limits<int>::min());
  EXPECT_EQ(As<int>("-4294967298"), -2);
  EXPECT_EQ(As<AERROR>("4294967300"), AERROR_NOT_FOUND);
  EXPECT_EQ(As<AERROR>("6001"), AERROR_PARSE_JSON);
}

TEST(JsonObjectConversion, NeverConvertsAStringToANumber) {
  EXPECT_THROW(As<int>("\"5\""), Json::LogicError);
  EXPECT_THROW(As<long>("\"5\""), Json::LogicError);
  EXPECT_THROW(As<long long>("\"5\""), Json::LogicError);
  EXPECT_THROW(As<unsigned long long>("\"5\""), Json::LogicError);
  EXPECT_THROW(As<double>("\"5\""), Json::LogicError);
  EXPECT_THROW(As<bool>("\"true\""), Json::LogicError);
  EXPECT_THROW(As<AERROR>("\"4\""), Json::LogicError);
}

TEST(JsonObjectConversion, ThrowsWhenANumberIsOutOfRange) {
  EXPECT_THROW(As<long long>("9223372036854775808"), Json::LogicError);
  EXPECT_THROW(As<long>("9223372036854775808"), Json::LogicError);
  EXPECT_THROW(As<int>("18446744073709551615"), Json::LogicError);
  EXPECT_THROW(As<unsigned long long>("-1"), Json::LogicError);
}

TEST(JsonObjectConversion, ConvertsScalarsToText) {
  EXPECT_EQ(As<std::string>("\"text\""), "text");
  EXPECT_EQ(As<std::string>("null"), "");
  EXPECT_EQ(As<std::string>("true"), "true");
  EXPECT_EQ(As<std::string>("-12"), "-12");
  EXPECT_EQ(As<std::string>("0.1"), "0.10000000000000001");
  EXPECT_EQ(As<std::string>("\"\xC3\xA9\""), "\xC3\xA9");
  EXPECT_THROW(As<std::string>("[]"), Json::LogicError);
  EXPECT_THROW(As<std::string>("{}"), Json::LogicError);
}

TEST(JsonObjectConversion, EndsTextAtItsFirstZero) {
  EXPECT_EQ(As<std::string>(R"("ab\u0000cd")"), "ab");
  EXPECT_EQ(As<std::string>(R"("\u0000cd")"), "");
  EXPECT_EQ(As<std::wstring>(R"("ab\u0000cd")"), L"ab");
}

TEST(JsonObjectConversion, DecodesWideText) {
  EXPECT_EQ(As<std::wstring>("\"a\\u00e9\\u20ac\\ud83d\\ude00\""),
            L"a\u00E9\u20AC\U0001F600");
  EXPECT_EQ(As<std::wstring>("\"\xF4\x8F\xBF\xBF\""), L"\U0010FFFF");
  EXPECT_EQ(As<std::wstring>("7"), L"7");
  EXPECT_EQ(As<std::wstring>("null"), L"");
  EXPECT_THROW(As<std::wstring>("[]"), Json::LogicError);
}

TEST(JsonObjectConversion, ThrowsWhenWideTextIsNotUtf8) {
  for (const char* const text :
       {"\"\xFF\"", "\"\xC3\"", "\"\xED\xA0\x80\"", "\"\xF4\x90\x80\x80\""}) {
    try {
      As<std::wstring>(text);
      ADD_FAILURE() << text;
    } catch (const std::range_error& error) {
      EXPECT_STREQ(error.what(), "wstring_convert: from_bytes error");
    }
  }
}

TEST(JsonObjectConversion, DecodesNothingAfterAZero) {
  EXPECT_EQ(As<std::wstring>("\"a\\u0000\xFF\""), L"a");
}

TEST(JsonObjectReading, OnlyNullIsInvalid) {
  EXPECT_FALSE(JsonObject("null").IsValid());
  for (const char* const text :
       {"0", "false", "\"\"", "[]", "{}", "\"null\""}) {
    EXPECT_TRUE(JsonObject(text).IsValid()) << text;
  }
}

TEST(JsonObjectReading, OnlyArraysAreArrays) {
  EXPECT_TRUE(JsonObject("[]").IsArray());
  EXPECT_TRUE(JsonObject("[1]").IsArray());
  for (const char* const text : {"null", "0", "\"[]\"", "{}"}) {
    EXPECT_FALSE(JsonObject(text).IsArray()) << text;
  }
}

TEST(JsonObjectReading, CountsElementsAndMembers) {
  EXPECT_EQ(JsonObject("[1,2,3]").GetArraySize(), 3U);
  EXPECT_EQ(JsonObject(R"({"a":1,"b":[1,2,3]})").GetArraySize(), 2U);
  for (const char* const text : {"null", "7", "\"text\"", "true"}) {
    EXPECT_EQ(JsonObject(text).GetArraySize(), 0U) << text;
  }
  EXPECT_TRUE((
      std::is_same_v<decltype(JsonObject("1").GetArraySize()), std::uint32_t>));
}

TEST(JsonObjectReading, ListsKeysInTheOrderOfTheirBytes) {
  EXPECT_EQ(
      JsonObject(R"({"b":1,"a":2,"10":3,"9":4,"":5,"B":6,"aa":7})").GetKeys(),
      (std::vector<std::string>{"", "10", "9", "B", "a", "aa", "b"}));
  EXPECT_TRUE(JsonObject("{}").GetKeys().empty());
  EXPECT_TRUE(JsonObject("null").GetKeys().empty());
  EXPECT_THROW(JsonObject("[]").GetKeys(), Json::LogicError);
  EXPECT_THROW(JsonObject("1").GetKeys(), Json::LogicError);
}

class JsonObjectPath : public testing::Test {
 protected:
  JsonObject document_{R"({"a":{"b":5,"":7,"b c":8},"list":[1,2],
                           "text":"t","null":null,"0":{"name":"n"}})"};
};

TEST_F(JsonObjectPath, LeadsToTheNode) {
  EXPECT_EQ(As<int>(document_.GetObject("a/b")), 5);
  EXPECT_EQ(As<int>(document_.GetObject("a/b c")), 8);
  EXPECT_EQ(As<std::string>(document_.GetObject("0/name")), "n");
  EXPECT_EQ(TextOf(document_.GetObject("list")), "[1,2]");
  EXPECT_FALSE(document_.GetObject("null").IsValid());
}

TEST_F(JsonObjectPath, SkipsEmptyPieces) {
  for (const char* const path :
       {"/a/b", "a/b/", "/a/b/", "a//b", "///a//b//"}) {
    EXPECT_EQ(As<int>(document_.GetObject(path)), 5) << path;
    EXPECT_TRUE(document_.HasObject(path)) << path;
  }
}

TEST_F(JsonObjectPath, WithoutNamesLeadsToTheNodeItself) {
  for (const char* const path : {"", "/", "///"}) {
    EXPECT_EQ(document_.GetObject(path).ToText(), document_.ToText());
    EXPECT_TRUE(document_.HasObject(path));
    EXPECT_EQ(As<int>(JsonObject("5").GetObject(path)), 5);
    EXPECT_TRUE(JsonObject("[]").HasObject(path));
  }
}

TEST_F(JsonObjectPath, StartsAtTheNode) {
  JsonObject inner = document_["a"];
  EXPECT_EQ(As<int>(inner.GetObject("b")), 5);
  EXPECT_EQ(As<int>(inner.GetObject("/b")), 5);
  EXPECT_FALSE(inner.HasObject("a"));
}

TEST_F(JsonObjectPath, ThrowsNotFoundForAMissingMember) {
  const std::string before = document_.ToText();
  for (const char* const path :
       {"a/c", "x", "x/y/z", "a/bb", "A", "a/B", "null/x", "a/b c ", " a"}) {
    EXPECT_EQ(Thrown([&] { document_.GetObject(path); }), AERROR_NOT_FOUND)
        << path;
    EXPECT_FALSE(document_.HasObject(path)) << path;
  }
  EXPECT_EQ(document_.ToText(), before);
}

TEST_F(JsonObjectPath, FindsMembersThatAreNull) {
  EXPECT_TRUE(document_.HasObject("null"));
}

TEST_F(JsonObjectPath, NeverIndexesArrays) {
  EXPECT_THROW(document_.HasObject("list/0"), Json::LogicError);
  EXPECT_THROW(document_.GetObject("list/0"), Json::LogicError);
}

TEST_F(JsonObjectPath, LetsTheLibrarysErrorPropagateAtAScalar) {
  for (const char* const path : {"text/x", "a/b/x"}) {
    EXPECT_THROW(document_.HasObject(path), Json::LogicError) << path;
    EXPECT_THROW(document_.GetObject(path), Json::LogicError) << path;
  }
}

TEST_F(JsonObjectPath, LeadsToAView) {
  document_.GetObject("a/b") = "new"s;
  EXPECT_EQ(As<std::string>(document_.GetObject("a/b")), "new");
  document_.GetObject("") = "all"s;
  EXPECT_EQ(document_.ToText(), "\"all\"");
}

TEST_F(JsonObjectPath, SkipsMembersWithAnEmptyName) {
  EXPECT_EQ(TextOf(document_.GetObject("a/")), TextOf(document_["a"]));
}

// Finds the node at `path` with the library alone; null if a member is missing.
Json::Value* Walk(Json::Value& root, const std::string& path) {
  Json::Value* node = &root;
  std::string piece;
  for (const char character : path + "/") {
    if (character != '/') {
      piece += character;
      continue;
    }
    if (!piece.empty()) {
      if (!node->isMember(piece)) {
        return nullptr;
      }
      node = &(*node)[piece];
    }
    piece.clear();
  }
  return node;
}

// Generates trees of objects with few names; leaves are of all other types.
class TreeGenerator {
 public:
  Json::Value Tree(int depth) {
    const auto kind = random_() % 8;
    if (depth > 0 && kind > 2) {
      Json::Value object(Json::objectValue);
      for (auto count = random_() % 4; count > 0; --count) {
        object[Name()] = Tree(depth - 1);
      }
      return object;
    }
    switch (kind) {
      case 0:
        return Json::Value();
      case 1:
        return Json::Value(Json::arrayValue);
      default:
        return Json::Value(static_cast<int>(random_() % 100));
    }
  }

  std::string Path() {
    std::string path;
    for (auto count = random_() % 6; count > 0; --count) {
      path += random_() % 2 == 0 ? "/" : Name();
    }
    return path;
  }

 private:
  std::string Name() {
    static constexpr std::array<const char*, 6> kNames = {
        "a", "b", "ab", "0", "a b", "\xC3\xA9"};
    return kNames[random_() % kNames.size()];
  }

  std::mt19937 random_{4711};
};

TEST_F(JsonObjectPath, AgreesWithPlainAccessOnGeneratedTrees) {
  TreeGenerator generate;
  int found = 0;
  for (int i = 0; i < 3'000; ++i) {
    constexpr int kDepth = 5;
    Json::Value tree = generate.Tree(kDepth);
    const Json::Value before = tree;
    JsonObject object = tree;
    for (int j = 0; j < 10; ++j) {
      const std::string path = generate.Path();
      Json::Value* node = nullptr;
      try {
        node = Walk(tree, path);
      } catch (const Json::LogicError&) {
        EXPECT_THROW(object.HasObject(path.c_str()), Json::LogicError);
        EXPECT_THROW(object.GetObject(path.c_str()), Json::LogicError);
        continue;
      }
      EXPECT_EQ(object.HasObject(path.c_str()), node != nullptr);
      if (node == nullptr) {
        EXPECT_EQ(Thrown([&] { object.GetObject(path.c_str()); }),
                  AERROR_NOT_FOUND);
        continue;
      }
      EXPECT_EQ(object.GetObject(path.c_str()).ToText(),
                JsonObject(*node).ToText());
      found += path.empty() ? 0 : 1;
    }
    ASSERT_EQ(tree, before);
  }
  EXPECT_GT(found, 1'000);
}

TEST(JsonObjectMember, IsAViewOfTheMember) {
  JsonObject document(R"({"a":1})");
  EXPECT_EQ(As<int>(document["a"]), 1);
  document["a"] = "x"s;
  EXPECT_EQ(document.ToText(), R"({"a":"x"})");
}

TEST(JsonObjectMember, IsAddedWhenMissing) {
  JsonObject document(R"({"a":1})");
  EXPECT_FALSE(document["x"].IsValid());
  EXPECT_EQ(document.ToText(), R"({"a":1,"x":null})");
}

TEST(JsonObjectMember, TurnsANullNodeIntoAnObject) {
  JsonObject document("null");
  document["x"]["y"] = "z"s;
  EXPECT_EQ(document.ToText(), R"({"x":{"y":"z"}})");
}

TEST(JsonObjectMember, MayHaveSlashesInItsName) {
  JsonObject document(R"({"a/b":1,"":2})");
  EXPECT_EQ(As<int>(document["a/b"]), 1);
  EXPECT_EQ(As<int>(document[""]), 2);
}

TEST(JsonObjectMember, OfAnArrayOrAScalarThrows) {
  JsonObject array("[1]");
  JsonObject scalar("5");
  EXPECT_THROW(array["a"], Json::LogicError);
  EXPECT_THROW(scalar["a"], Json::LogicError);
}

TEST(JsonObjectElement, IsAViewOfTheElement) {
  JsonObject document("[1,2]");
  EXPECT_EQ(As<int>(document[1]), 2);
  document[1] = "x"s;
  EXPECT_EQ(document.ToText(), R"([1,"x"])");
}

TEST(JsonObjectElement, IsAddedAtTheEnd) {
  JsonObject document("[1]");
  EXPECT_FALSE(document[1].IsValid());
  EXPECT_EQ(document.ToText(), "[1,null]");
}

TEST(JsonObjectElement, TurnsANullNodeIntoAnArray) {
  JsonObject document("null");
  document[0] = "x"s;
  EXPECT_EQ(document.ToText(), R"(["x"])");
}

TEST(JsonObjectElement, WithANegativeIndexOrOfAnObjectThrows) {
  JsonObject array("[1]");
  JsonObject object(R"({"0":1})");
  EXPECT_THROW(array[-1], Json::LogicError);
  EXPECT_THROW(object[0], Json::LogicError);
}

TEST(JsonObjectCopy, SharesTheNode) {
  JsonObject document(R"({"a":1})");
  JsonObject shared = document.Copy();
  shared = "x"s;
  EXPECT_EQ(document.ToText(), "\"x\"");
  JsonObject tree(R"({"a":1})");
  tree["a"].Copy() = "y"s;
  EXPECT_EQ(tree.ToText(), R"({"a":"y"})");
}

TEST(JsonObjectCopyConstructor, DeepCopiesADocument) {
  auto document = std::make_unique<JsonObject>(R"({"a":{"b":1}})");
  JsonObject copy = *document;
  copy.GetObject("a/b") = "x"s;
  EXPECT_EQ(document->ToText(), R"({"a":{"b":1}})");
  document.reset();
  EXPECT_EQ(copy.ToText(), R"({"a":{"b":"x"}})");
}

TEST(JsonObjectCopyConstructor, ViewsTheSameNodeForAView) {
  JsonObject document(R"({"a":1})");
  const JsonObject view = document["a"];
  JsonObject copy = view;  // NOLINT(performance-unnecessary-copy-*)
  copy = "x"s;
  EXPECT_EQ(document.ToText(), R"({"a":"x"})");
}

TEST(JsonObjectCopyConstructor, TreatsADocumentThatHoldsNullAsAView) {
  JsonObject document("null");
  JsonObject copy = document;  // NOLINT(performance-unnecessary-copy-*)
  copy = "x"s;
  EXPECT_EQ(document.ToText(), "\"x\"");
}

TEST(JsonObjectCopyConstructor, DependsOnTheDocumentsCurrentValue) {
  JsonObject document("5");
  const char* const none = nullptr;
  document = JsonObject(none);
  JsonObject copy = document;  // NOLINT(performance-unnecessary-copy-*)
  copy = "x"s;
  EXPECT_EQ(document.ToText(), "\"x\"");
}

TEST(JsonObjectAssignText, ReplacesTheNodeWithAString) {
  JsonObject document(R"({"a":{"b":1}})");
  document["a"] = "t"s;
  EXPECT_EQ(document.ToText(), R"({"a":"t"})");
  JsonObject& same = document = "5"s;
  EXPECT_EQ(&same, &document);
  EXPECT_EQ(document.ToText(), "\"5\"");
}

TEST(JsonObjectAssignText, StoresZerosWhole) {
  JsonObject document("{}");
  document = "a\0b"s;
  EXPECT_EQ(document.ToText(), R"("a\u0000b")");
}

TEST(JsonObjectAssign, FromADocumentMakesAnIndependentDocument) {
  JsonObject target("1");
  {
    const JsonObject source(R"({"a":1})");
    JsonObject& result = target = source;
    EXPECT_EQ(&result, &target);
  }
  EXPECT_EQ(target.ToText(), R"({"a":1})");
}

TEST(JsonObjectAssign, FromADocumentDeepCopies) {
  JsonObject source(R"({"a":1})");
  JsonObject target("1");
  target = source;
  target["a"] = "x"s;
  EXPECT_EQ(source.ToText(), R"({"a":1})");
}

TEST(JsonObjectAssign, FromADocumentLeavesAViewedNodeAlone) {
  JsonObject document(R"({"a":1})");
  JsonObject view = document["a"];
  view = JsonObject(R"({"n":2})");
  EXPECT_EQ(document.ToText(), R"({"a":1})");
  EXPECT_EQ(view.ToText(), R"({"n":2})");
  view["n"] = "x"s;
  EXPECT_EQ(document.ToText(), R"({"a":1})");
  JsonObject copy = view;
  copy["n"] = "y"s;
  EXPECT_EQ(view.ToText(), R"({"n":"x"})");
}

TEST(JsonObjectAssign, FromAViewOverwritesTheNode) {
  JsonObject source(R"({"x":{"y":2}})");
  JsonObject document(R"({"a":1,"b":3})");
  JsonObject view = document["a"];
  view = source["x"];
  EXPECT_EQ(document.ToText(), R"({"a":{"y":2},"b":3})");
  source["x"]["y"] = "changed"s;
  EXPECT_EQ(document.ToText(), R"({"a":{"y":2},"b":3})");
  view["y"] = "still a view"s;
  EXPECT_EQ(document.ToText(), R"({"a":{"y":"still a view"},"b":3})");
}

TEST(JsonObjectAssign, FromAViewLeavesADocumentADocument) {
  JsonObject target("1");
  {
    JsonObject source(R"({"x":{"y":2}})");
    target = source["x"];
    source["x"]["y"] = "changed"s;
  }
  EXPECT_EQ(target.ToText(), R"({"y":2})");
  JsonObject copy = target;
  copy["y"] = "z"s;
  EXPECT_EQ(target.ToText(), R"({"y":2})");
}

TEST(JsonObjectAssign, FromADocumentThatHoldsNullWritesNull) {
  JsonObject document(R"({"a":1})");
  JsonObject view = document["a"];
  view = JsonObject("null");
  EXPECT_EQ(document.ToText(), R"({"a":null})");
  view = "x"s;
  EXPECT_EQ(document.ToText(), R"({"a":"x"})");
}

TEST(JsonObjectAssign, KeepsAPrivateCopyOfANode) {
  const char* const none = nullptr;
  JsonObject item(none);
  {
    JsonObject source(R"({"0":{"name":"n"}})");
    item = source["0"];
  }
  EXPECT_EQ(item.ToText(), R"({"name":"n"})");
}

TEST(JsonObjectAssign, ToItselfChangesNothing) {
  JsonObject document(R"({"a":{"b":1}})");
  const JsonObject& same = document;
  document = same;
  EXPECT_EQ(document.ToText(), R"({"a":{"b":1}})");
  JsonObject view = document["a"];
  const JsonObject& same_view = view;
  view = same_view;
  EXPECT_EQ(document.ToText(), R"({"a":{"b":1}})");
}

TEST(JsonObjectAssign, AcceptsItsOwnMember) {
  JsonObject document(R"({"a":{"b":1}})");
  document = document["a"];
  EXPECT_EQ(document.ToText(), R"({"b":1})");
}

TEST(JsonObjectInsert, AddsOrReplacesAMember) {
  JsonObject document(R"({"a":1})");
  EXPECT_TRUE(document.Insert("b", JsonObject("[2]")));
  EXPECT_TRUE(document.Insert("a", JsonObject("\"x\"")));
  EXPECT_EQ(document.ToText(), R"({"a":"x","b":[2]})");
}

TEST(JsonObjectInsert, WritesThroughAView) {
  JsonObject document(R"({"a":{}})");
  EXPECT_TRUE(document["a"].Insert("b", JsonObject("1")));
  EXPECT_TRUE(document["a"].Insert("c", L"w"));
  EXPECT_EQ(document.ToText(), R"({"a":{"b":1,"c":"w"}})");
}

TEST(JsonObjectInsert, DeepCopiesDocumentsAndViews) {
  JsonObject source(R"({"x":{"y":1}})");
  JsonObject document("{}");
  document.Insert("view", source["x"]);
  document.Insert("document", source);
  source["x"]["y"] = "changed"s;
  EXPECT_EQ(document.ToText(), R"({"document":{"x":{"y":1}},"view":{"y":1}})");
}

TEST(JsonObjectInsert, AcceptsTheNodeItself) {
  JsonObject document(R"({"a":1})");
  document.Insert("self", document);
  EXPECT_EQ(document.ToText(), R"({"a":1,"self":{"a":1}})");
  JsonObject null("null");
  null.Insert("self", null);
  EXPECT_EQ(null.ToText(), R"({"self":null})");
}

TEST(JsonObjectInsert, AcceptsAParentOfTheNode) {
  JsonObject document(R"({"a":{"b":1}})");
  document["a"].Insert("parent", document.Copy());
  EXPECT_EQ(document.ToText(), R"({"a":{"b":1,"parent":{"a":{"b":1}}}})");
}

TEST(JsonObjectInsert, IntoAnArrayOrScalarThrows) {
  JsonObject array("[1]");
  EXPECT_THROW(array.Insert("a", JsonObject("1")), Json::LogicError);
  EXPECT_THROW(array.Insert("a", L"w"), Json::LogicError);
  EXPECT_EQ(array.ToText(), "[1]");
}

TEST(JsonObjectInsert, EncodesWideText) {
  JsonObject document("{}");
  EXPECT_TRUE(document.Insert("k", L"a\u00E9\U0001F600"));
  EXPECT_EQ(As<std::string>(document["k"]), "a\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_TRUE(document.Insert("k", std::wstring(L"a\0b", 3)));
  EXPECT_EQ(document.ToText(), R"({"k":"a\u0000b"})");
}

TEST(JsonObjectInsert, AddsNothingWhenWideTextCannotBeEncoded) {
  JsonObject document(R"({"a":1})");
  for (const std::uint32_t value : {0xD800U, 0x110000U}) {
    try {
      document.Insert("k", std::wstring(1, static_cast<wchar_t>(value)));
      ADD_FAILURE() << value;
    } catch (const std::range_error& error) {
      EXPECT_STREQ(error.what(), "wstring_convert: to_bytes error");
    }
  }
  EXPECT_EQ(document.ToText(), R"({"a":1})");
}

TEST(JsonObjectInsertArrayItem, Appends) {
  JsonObject document("[1]");
  JsonObject item(R"({"x":1})");
  EXPECT_TRUE(document.InsertArrayItem("t"s));
  EXPECT_TRUE(document.InsertArrayItem(item));
  item["x"] = "changed"s;
  EXPECT_EQ(document.ToText(), R"([1,"t",{"x":1}])");
}

TEST(JsonObjectInsertArrayItem, StoresZerosWhole) {
  JsonObject document("[]");
  document.InsertArrayItem("a\0b"s);
  EXPECT_EQ(document.ToText(), R"(["a\u0000b"])");
}

TEST(JsonObjectInsertArrayItem, WritesThroughAView) {
  JsonObject document(R"({"list":[],"item":{"y":2}})");
  JsonObject item = document["item"];
  document["list"].InsertArrayItem("t"s);
  document["list"].InsertArrayItem(item);
  EXPECT_EQ(document.ToText(), R"({"item":{"y":2},"list":["t",{"y":2}]})");
}

TEST(JsonObjectInsertArrayItem, TurnsANullNodeIntoAnArray) {
  JsonObject document("null");
  document.InsertArrayItem("t"s);
  EXPECT_EQ(document.ToText(), R"(["t"])");
}

TEST(JsonObjectInsertArrayItem, AcceptsTheArrayItself) {
  JsonObject document("[1]");
  document.InsertArrayItem(document);
  EXPECT_EQ(document.ToText(), "[1,[1]]");
}

TEST(JsonObjectInsertArrayItem, IntoAnObjectOrScalarThrows) {
  JsonObject object("{}");
  JsonObject scalar("\"s\"");
  EXPECT_THROW(object.InsertArrayItem("t"s), Json::LogicError);
  EXPECT_THROW(scalar.InsertArrayItem(object), Json::LogicError);
}

TEST(JsonObjectRemoveArrayItem, RemovesTheElement) {
  JsonObject document("[0,1,2]");
  EXPECT_TRUE(document.RemoveArrayItem(1));
  EXPECT_EQ(document.ToText(), "[0,2]");
  EXPECT_TRUE(document.RemoveArrayItem(1));
  EXPECT_TRUE(document.RemoveArrayItem(0));
  EXPECT_FALSE(document.RemoveArrayItem(0));
  EXPECT_EQ(document.ToText(), "[]");
}

TEST(JsonObjectRemoveArrayItem, UsesTheLow32BitsOfTheIndex) {
  JsonObject document("[0,1,2]");
  EXPECT_TRUE(document.RemoveArrayItem(0x1'0000'0001UL));
  EXPECT_EQ(document.ToText(), "[0,2]");
}

TEST(JsonObjectRemoveArrayItem, IsFalseWhenThereIsNone) {
  JsonObject array("[0,1]");
  EXPECT_FALSE(array.RemoveArrayItem(2));
  EXPECT_FALSE(array.RemoveArrayItem(0xFFFF'FFFFUL));
  EXPECT_EQ(array.ToText(), "[0,1]");
  for (const char* const text : {"null", R"({"0":1})", "5", "\"s\""}) {
    JsonObject other(text);
    EXPECT_FALSE(other.RemoveArrayItem(0)) << text;
    EXPECT_EQ(other.ToText(), text);
  }
}

TEST(JsonObjectRemove, RemovesTheMember) {
  JsonObject document(R"({"a":1,"b":2,"a/b":3})");
  EXPECT_TRUE(document.Remove("a"));
  EXPECT_TRUE(document.Remove("a/b"));
  EXPECT_EQ(document.ToText(), R"({"b":2})");
}

TEST(JsonObjectRemove, WritesThroughAView) {
  JsonObject document(R"({"a":{"b":1},"l":[1]})");
  EXPECT_TRUE(document["a"].Remove("b"));
  EXPECT_TRUE(document["l"].RemoveArrayItem(0));
  EXPECT_EQ(document.ToText(), R"({"a":{},"l":[]})");
}

TEST(JsonObjectRemove, IsFalseWhenThereIsNone) {
  JsonObject document(R"({"a":1})");
  EXPECT_FALSE(document.Remove("x"));
  EXPECT_EQ(document.ToText(), R"({"a":1})");
  for (const char* const text : {"null", "[1]", "5", "\"s\""}) {
    JsonObject other(text);
    EXPECT_FALSE(other.Remove("a")) << text;
    EXPECT_EQ(other.ToText(), text);
  }
}

TEST(JsonObjectText, IsOneLineWithoutALineFeed) {
  EXPECT_EQ(JsonObject("{ \"b\" : [ 1 , 2 ],\n\"a\" : { } }").ToText(),
            R"({"a":{},"b":[1,2]})");
  EXPECT_EQ(JsonObject("5").ToText(), "5");
  EXPECT_EQ(JsonObject("1e5").ToText(), "100000.0");
}

// The parser keeps a comment with the blanks after it.
TEST(JsonObjectText, EndsWithoutWhiteSpaceOfAnyKind) {
  EXPECT_TRUE(JsonObject("5 // c \t\n").ToStyledText().ends_with("// c"));
}

TEST(JsonObjectText, KeepsWhiteSpaceInsideStrings) {
  EXPECT_EQ(JsonObject("\" a \"").ToText(), "\" a \"");
  EXPECT_EQ(JsonObject("\" a \"").ToStyledText(), "\" a \"");
}

TEST(JsonObjectText, IsIndentedByThreeSpacesWhenStyled) {
  EXPECT_EQ(JsonObject(R"({"b":[1,2],"a":{},"c":{"d":"e"}})").ToStyledText(),
            "{\n   \"a\" : {},\n   \"b\" : [ 1, 2 ],\n   \"c\" : {\n"
            "      \"d\" : \"e\"\n   }\n}");
  EXPECT_EQ(JsonObject("[]").ToStyledText(), "[]");
}

TEST(JsonObjectText, IsTheViewedNodesForAView) {
  JsonObject document(R"({"a":{"b":1}})");
  EXPECT_EQ(document["a"].ToText(), R"({"b":1})");
  EXPECT_EQ(document["a"].ToStyledText(), "{\n   \"b\" : 1\n}");
}

TEST(JsonObjectText, ParsesBackToTheSameValue) {
  JsonObject document("[\"\xC3\xA9\xF0\x9F\x98\x80\", \"\\u0001\\t\", 0.1]");
  for (const std::string& text : {document.ToText(), document.ToStyledText()}) {
    JsonObject again(text.c_str());
    EXPECT_EQ(As<std::string>(again[0]), "\xC3\xA9\xF0\x9F\x98\x80");
    EXPECT_EQ(As<std::string>(again[1]), "\x01\t");
    EXPECT_EQ(As<double>(again[2]), 0.1);
  }
}

TEST(JsonObjectDestructor, LeavesTheViewedNodeAlone) {
  JsonObject document(R"({"a":{"b":1}})");
  { const JsonObject view = document["a"]; }
  EXPECT_EQ(document.ToText(), R"({"a":{"b":1}})");
}

}  // namespace
