// The speed of the common library, each function beside the obvious
// alternative.

#include <benchmark/benchmark.h>
#include <fnmatch.h>
#include <unistd.h>

#include <array>
#include <codecvt>
#include <filesystem>
#include <fstream>
#include <locale>
#include <regex>
#include <string>
#include <vector>

#include "common/json/JsonObject.h"
#include "common/util/IniProfile.h"
#include "common/util/StringHelpers.h"
#include "common/util/Wildcard.h"

namespace {

// --- Wildcard matching

struct Pair {
  const char* expression;
  const char* name;
};

// Matches and a mismatch, with names as in a typical folder.
constexpr std::array<Pair, 4> kTypical{{
    {"*.txt", "quarterly-report-2026.txt"},
    {"*.txt", "quarterly-report-2026.docx"},
    {"report-????.*", "report-2026.txt"},
    {"*report*.t?t", "quarterly-report-2026.txt"},
}};

void BM_IsNameInExpressionA(benchmark::State& state) {
  const Pair& pair = kTypical.at(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        IsNameInExpressionA(pair.expression, pair.name, false));
  }
  state.SetLabel(std::string(pair.expression) + " on " + pair.name);
}
BENCHMARK(BM_IsNameInExpressionA)->DenseRange(0, 3);

void BM_IsNameInExpressionAIgnoringCase(benchmark::State& state) {
  const Pair& pair = kTypical.at(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        IsNameInExpressionA(pair.expression, pair.name, true));
  }
}
BENCHMARK(BM_IsNameInExpressionAIgnoringCase)->DenseRange(0, 3);

void BM_IsNameInExpression(benchmark::State& state) {
  const Pair& pair = kTypical.at(static_cast<std::size_t>(state.range(0)));
  const std::wstring expression = s2ws(pair.expression);
  const std::wstring name = s2ws(pair.name);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        IsNameInExpression(expression.c_str(), name.c_str(), false));
  }
}
BENCHMARK(BM_IsNameInExpression)->DenseRange(0, 3);

void BM_Fnmatch(benchmark::State& state) {
  const Pair& pair = kTypical.at(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(fnmatch(pair.expression, pair.name, 0));
  }
}
BENCHMARK(BM_Fnmatch)->DenseRange(0, 3);

// `stars` times "*a", then "b". On a name of letters "a" the matcher tries
// every combination and finds no match.
std::string StarExpression(std::int64_t stars) {
  std::string expression;
  for (std::int64_t i = 0; i < stars; ++i) {
    expression += "*a";
  }
  return expression + "b";
}

void BM_IsNameInExpressionAStars(benchmark::State& state) {
  const std::string expression = StarExpression(state.range(0));
  const std::string name(static_cast<std::size_t>(state.range(1)), 'a');
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        IsNameInExpressionA(expression.c_str(), name.c_str(), false));
  }
}
BENCHMARK(BM_IsNameInExpressionAStars)
    ->ArgNames({"stars", "length"})
    ->ArgsProduct({{1}, {16, 64, 256, 1024}})
    ->ArgsProduct({{2, 3, 4}, {16, 32, 64}});

void BM_FnmatchStars(benchmark::State& state) {
  const std::string expression = StarExpression(state.range(0));
  const std::string name(static_cast<std::size_t>(state.range(1)), 'a');
  for (auto _ : state) {
    benchmark::DoNotOptimize(fnmatch(expression.c_str(), name.c_str(), 0));
  }
}
BENCHMARK(BM_FnmatchStars)
    ->ArgNames({"stars", "length"})
    ->ArgsProduct({{1}, {16, 64, 256, 1024}})
    ->ArgsProduct({{2, 3, 4}, {16, 32, 64}});

// --- JSON paths

// An items document of a thousand items.
Json::Value ItemsDocument() {
  Json::Value items;
  for (int i = 0; i < 1000; ++i) {
    Json::Value& item = items[std::to_string(i)];
    item["name"] = "item";
    item["program"] = "/bin/sh";
    item["args"]["0"] = "-c";
  }
  return items;
}

void BM_GetObjectByPath(benchmark::State& state) {
  Json::Value items = ItemsDocument();
  JsonObject document = items;
  for (auto _ : state) {
    benchmark::DoNotOptimize(document.GetObject("567/args/0"));
  }
}
BENCHMARK(BM_GetObjectByPath);

void BM_HasObject(benchmark::State& state) {
  Json::Value items = ItemsDocument();
  JsonObject document = items;
  for (auto _ : state) {
    benchmark::DoNotOptimize(document.HasObject("567/args/0"));
  }
}
BENCHMARK(BM_HasObject);

void BM_PlainJsoncppPath(benchmark::State& state) {
  Json::Value items = ItemsDocument();
  for (auto _ : state) {
    benchmark::DoNotOptimize(&items["567"]["args"]["0"]);
  }
}
BENCHMARK(BM_PlainJsoncppPath);

// Splits the path with a regular expression that is compiled for each look-up.
void BM_RegexPath(benchmark::State& state) {
  Json::Value items = ItemsDocument();
  for (auto _ : state) {
    Json::Value* node = &items;
    for (const std::string& piece : split("567/args/0", std::regex("/"))) {
      node = &(*node)[piece];
    }
    benchmark::DoNotOptimize(node);
  }
}
BENCHMARK(BM_RegexPath);

// --- JSON conversions

void BM_JsonObjectToString(benchmark::State& state) {
  Json::Value node = "/usr/local/lib/product/helper";
  JsonObject view = node;
  for (auto _ : state) {
    benchmark::DoNotOptimize(static_cast<std::string>(view));
  }
}
BENCHMARK(BM_JsonObjectToString);

void BM_PlainJsoncppToString(benchmark::State& state) {
  const Json::Value node = "/usr/local/lib/product/helper";
  for (auto _ : state) {
    benchmark::DoNotOptimize(node.asString());
  }
}
BENCHMARK(BM_PlainJsoncppToString);

void BM_JsonObjectToInteger(benchmark::State& state) {
  Json::Value node = 4711;
  JsonObject view = node;
  for (auto _ : state) {
    benchmark::DoNotOptimize(static_cast<long long>(view));
  }
}
BENCHMARK(BM_JsonObjectToInteger);

void BM_PlainJsoncppToInteger(benchmark::State& state) {
  const Json::Value node = 4711;
  for (auto _ : state) {
    benchmark::DoNotOptimize(node.asInt64());
  }
}
BENCHMARK(BM_PlainJsoncppToInteger);

// --- INI look-up

// A file of 10,000 lines; the benchmarks look up the last one.
class IniFile {
 public:
  IniFile()
      : path_(std::filesystem::temp_directory_path() /
              ("util-bench-" + std::to_string(getpid()) + ".ini")) {
    constexpr int kLines = 10'000;
    std::ofstream file(path_);
    file << "[OTHER]\nLEVEL=ERROR\n[LOG]\n";
    for (int i = 0; i < kLines - 4; ++i) {
      file << "Key" << i << "=some value " << i << '\n';
    }
    file << "LEVEL=DEBUG\n";
  }
  ~IniFile() { std::filesystem::remove(path_); }
  IniFile(const IniFile&) = delete;
  IniFile& operator=(const IniFile&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

void BM_GetPrivateProfileString(benchmark::State& state) {
  const IniFile file;
  std::array<char, 1024> buffer;
  for (auto _ : state) {
    const bool found =
        GetPrivateProfileString("LOG", "LEVEL", "ERROR", buffer.data(),
                                static_cast<int>(buffer.size()), file.Path());
    if (!found) {
      state.SkipWithError("not found");
    }
  }
}
BENCHMARK(BM_GetPrivateProfileString)->Unit(benchmark::kMicrosecond);

// Reads the lines and ignores them.
void BM_IniGetline(benchmark::State& state) {
  const IniFile file;
  for (auto _ : state) {
    std::ifstream stream(file.Path());
    for (std::string line; std::getline(stream, line);) {
      benchmark::DoNotOptimize(line.data());
    }
  }
}
BENCHMARK(BM_IniGetline)->Unit(benchmark::kMicrosecond);

// Splits each entry with a regular expression that is compiled for it.
void BM_IniRegex(benchmark::State& state) {
  const IniFile file;
  for (auto _ : state) {
    std::ifstream stream(file.Path());
    for (std::string line; std::getline(stream, line);) {
      benchmark::DoNotOptimize(split(line, std::regex("=")));
    }
  }
}
BENCHMARK(BM_IniRegex)->Unit(benchmark::kMicrosecond);

// --- Splitting

const std::string kPath = "/Library/Application Support/Launcher/log.ini";

void BM_Split(benchmark::State& state) {
  const std::regex slash("/");
  for (auto _ : state) {
    benchmark::DoNotOptimize(split(kPath, slash));
  }
}
BENCHMARK(BM_Split);

void BM_SplitCompilingTheExpression(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(split(kPath, std::regex("/")));
  }
}
BENCHMARK(BM_SplitCompilingTheExpression);

void BM_SplitByHandWithTheExpression(benchmark::State& state) {
  const std::regex slash("/");
  for (auto _ : state) {
    std::vector<std::string> pieces;
    auto start = kPath.cbegin();
    for (std::smatch match;
         std::regex_search(start, kPath.cend(), match, slash);
         start = match[0].second) {
      pieces.emplace_back(start, match[0].first);
    }
    pieces.emplace_back(start, kPath.cend());
    benchmark::DoNotOptimize(pieces);
  }
}
BENCHMARK(BM_SplitByHandWithTheExpression);

void BM_SplitByHand(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<std::string> pieces;
    for (std::size_t start = 0, end = 0; end != std::string::npos;
         start = end + 1) {
      end = kPath.find('/', start);
      pieces.push_back(kPath.substr(start, end - start));
    }
    benchmark::DoNotOptimize(pieces);
  }
}
BENCHMARK(BM_SplitByHand);

// --- Conversions

using Converter =
    std::wstring_convert<std::codecvt_utf8<wchar_t, 0x10FFFF>, wchar_t>;

// Kind 0 is ASCII only; in kind 1, half of the characters take two to four
// bytes.
std::wstring WideText(std::int64_t kind) {
  const std::wstring unit = kind == 0 ? L"abcdefgh"
                                      : L"a\u00E9b\u20ACc\u4E2D"
                                        L"d\U0001F600";
  std::wstring text;
  for (int i = 0; i < 128; ++i) {
    text += unit;
  }
  return text;
}

void CountCharacters(benchmark::State& state, const std::wstring& text) {
  state.SetItemsProcessed(state.iterations() *
                          static_cast<std::int64_t>(text.size()));
  state.SetLabel(state.range(0) == 0 ? "ASCII" : "mixed");
}

void BM_S2ws(benchmark::State& state) {
  const std::wstring wide = WideText(state.range(0));
  const std::string text = ws2s(wide);
  for (auto _ : state) {
    benchmark::DoNotOptimize(s2ws(text));
  }
  CountCharacters(state, wide);
}
BENCHMARK(BM_S2ws)->DenseRange(0, 1);

void BM_ConverterFromBytes(benchmark::State& state) {
  const std::wstring wide = WideText(state.range(0));
  const std::string text = ws2s(wide);
  for (auto _ : state) {
    benchmark::DoNotOptimize(Converter().from_bytes(text));
  }
  CountCharacters(state, wide);
}
BENCHMARK(BM_ConverterFromBytes)->DenseRange(0, 1);

void BM_Ws2s(benchmark::State& state) {
  const std::wstring wide = WideText(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(ws2s(wide));
  }
  CountCharacters(state, wide);
}
BENCHMARK(BM_Ws2s)->DenseRange(0, 1);

void BM_ConverterToBytes(benchmark::State& state) {
  const std::wstring wide = WideText(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(Converter().to_bytes(wide));
  }
  CountCharacters(state, wide);
}
BENCHMARK(BM_ConverterToBytes)->DenseRange(0, 1);

}  // namespace

BENCHMARK_MAIN();
