#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <string>

#include "tools/log/Plot.h"

namespace {

constexpr Micros kSecond = kMicrosPerSecond;

class PlotOf : public testing::Test {
 protected:
  void Add(Micros time, LogEventKind kind, const std::string& name,
           int status = 0) {
    LogEvent event;
    event.time = time;
    event.kind = kind;
    event.name = name;
    event.status = status;
    event.process = 1;
    event.thread =
        static_cast<std::int64_t>(std::hash<std::string>()(name) % 1000) + 2;
    history_.Add(event);
  }

  std::string Svg() {
    history_.AddOpenRuns();
    return PlotSvg(history_, {history_.Totals().last,
                              [this](std::int64_t) { return exists_; }});
  }

  static std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; ++at) {
      ++count;
    }
    return count;
  }

  bool exists_ = true;  // the launcher
  History history_{{}, true};
};

TEST_F(PlotOf, DrawsALaneWithABarAndAMarkForEachItem) {
  Add(0, LogEventKind::kStart, "a");
  Add(0, LogEventKind::kStart, "b");
  Add(10 * kSecond, LogEventKind::kEnd, "a", 0);
  Add(20 * kSecond, LogEventKind::kEnd, "b", 256);
  Add(20 * kSecond, LogEventKind::kEnd, "b", 256);
  const std::string svg = Svg();
  EXPECT_EQ(Count(svg, "class=\"run\""), 2U);
  EXPECT_EQ(Count(svg, "class=\"end\""), 2U);
  EXPECT_NE(svg.find("<title>exit 0: 1</title>"), std::string::npos);
  EXPECT_NE(svg.find("<title>exit 1 or more: 2</title>"), std::string::npos);
  EXPECT_NE(svg.find(">1 end<"), std::string::npos);
  EXPECT_NE(svg.find(">2 ends<"), std::string::npos);
}

TEST(PlotWithoutALine, BeginsAtThePresentAndHasNoBar) {
  constexpr Micros kNow = 1'795'242'031 * kSecond;
  History history({kNow, {}}, true);
  LogEvent start;
  start.time = kNow - 3600 * kSecond;
  start.kind = LogEventKind::kStart;
  start.process = 1;
  history.Add(start);
  history.AddOpenRuns();
  const std::string svg = PlotSvg(history, {kNow, [](auto) { return true; }});
  EXPECT_NE(
      svg.find(">Items from 2026-11-21T06:20:31Z to 2026-11-21T06:20:32Z<"),
      std::string::npos);
  EXPECT_NE(svg.find(">0 ends<"), std::string::npos);
  EXPECT_EQ(svg.find("class=\"run\""), std::string::npos);
}

TEST_F(PlotOf, LeavesAGapWhereNoProgramRan) {
  Add(0, LogEventKind::kStart, "a");
  Add(10 * kSecond, LogEventKind::kEnd, "a");
  Add(50 * kSecond, LogEventKind::kStart, "a");
  Add(60 * kSecond, LogEventKind::kEnd, "a");
  EXPECT_EQ(Count(Svg(), "class=\"run\""), 2U);
}

TEST_F(PlotOf, DrawsRunsThatHaveNotEnded) {
  Add(0, LogEventKind::kStart, "a");
  Add(0, LogEventKind::kStart, "b");
  Add(60 * kSecond, LogEventKind::kEnd, "b");
  Add(60 * kSecond, LogEventKind::kStart, "b");
  const std::string svg = Svg();
  EXPECT_NE(svg.find("width=\"960.0\""), std::string::npos);
}

TEST_F(PlotOf, DrawsNothingAfterAStop) {
  Add(0, LogEventKind::kStart, "a");
  Add(0, LogEventKind::kStart, "b");
  Add(100 * kSecond, LogEventKind::kEnd, "a", 9);
  Add(100 * kSecond + 500'000, LogEventKind::kEnd, "b", 9);
  const std::string svg = Svg();
  EXPECT_EQ(Count(svg, "class=\"run\""), 2U);
  EXPECT_EQ(Count(svg, "class=\"run\" x=\"190.0\""), 2U);
  EXPECT_EQ(Count(svg, "width=\"960.0\""), 1U);
}

TEST_F(PlotOf, MarksEachCauseWithItsOwnShape) {
  const std::string legend = Svg();
  for (const char* const shape : {"<circle r=\"4\"", "M-4,-4L4,4",
                                  "<rect x=\"-4\"", "M0,-5L5,4", "M0,-6L6,0"}) {
    EXPECT_EQ(Count(legend, shape), 1U) << shape;
  }
  Add(0, LogEventKind::kEnd, "a", 0);
  Add(20 * kSecond, LogEventKind::kEnd, "a", 256);
  Add(40 * kSecond, LogEventKind::kEnd, "a", 9);
  Add(60 * kSecond, LogEventKind::kEnd, "a", 15);
  Add(80 * kSecond, LogEventKind::kEnd, "a", 139);
  const std::string svg = Svg();
  for (const char* const shape : {"<circle r=\"4\"", "M-4,-4L4,4",
                                  "<rect x=\"-4\"", "M0,-5L5,4", "M0,-6L6,0"}) {
    EXPECT_EQ(Count(svg, shape), 2U) << shape;
  }
}

TEST_F(PlotOf, ShowsTheGravestCauseAndCountsAll) {
  Add(0, LogEventKind::kEnd, "a", 0);
  Add(1, LogEventKind::kEnd, "a", 139);
  Add(2, LogEventKind::kEnd, "a", 256);
  Add(900 * kSecond, LogEventKind::kStart, "a");
  const std::string svg = Svg();
  EXPECT_EQ(Count(svg, "class=\"end\""), 1U);
  EXPECT_NE(svg.find("<title>exit 0: 1, exit 1 or more: 1, core file: 1<"),
            std::string::npos);
}

TEST_F(PlotOf, WritesNamesAsText) {
  Add(0, LogEventKind::kStart, "<script>&\"\x1b");
  const std::string svg = Svg();
  EXPECT_EQ(svg.find("<script>"), std::string::npos);
  EXPECT_NE(svg.find("&lt;script&gt;&amp;&quot;\\x1b"), std::string::npos);
}

TEST_F(PlotOf, PutsAMarkAtTheEndOfItsBar) {
  Add(0, LogEventKind::kStart, "a");
  Add(30 * kSecond, LogEventKind::kEnd, "a");
  Add(100 * kSecond, LogEventKind::kStart, "b");
  const std::string svg = Svg();
  const auto number = [&](const std::string& before, std::size_t from) {
    return std::stod(svg.substr(svg.find(before, from) + before.size()));
  };
  const std::size_t bar = svg.find("class=\"run\"");
  const double end = number(" x=\"", bar) + number(" width=\"", bar);
  const double mark = number("translate(", svg.find("class=\"end\""));
  EXPECT_NEAR(mark, end, 2);
  EXPECT_NEAR(mark, 190 + 0.3 * 960, 3);
}

TEST_F(PlotOf, ShowsHowManyEndsAMarkIs) {
  Add(0, LogEventKind::kStart, "a");
  for (int i = 0; i < 200; ++i) {
    Add(20 * kSecond + i * 100'000, LogEventKind::kEnd, "a", 256);
  }
  Add(14'400 * kSecond, LogEventKind::kEnd, "b");
  const std::string svg = Svg();
  EXPECT_NE(svg.find(">200</text>"), std::string::npos);
  EXPECT_EQ(Count(svg, "class=\"density\""), 1U);
  EXPECT_EQ(Count(svg, "class=\"count\""), 1U);
  EXPECT_EQ(Count(svg, "class=\"end\""), 2U);
  EXPECT_NE(svg.find(">200 ends</text>"), std::string::npos);
}

TEST_F(PlotOf, DrawsALoopAsManyMarks) {
  for (int i = 0; i < 6000; ++i) {
    Add(i * 100'000, LogEventKind::kEnd, "a", 256);
  }
  const std::string svg = Svg();
  EXPECT_GT(Count(svg, "class=\"density\""), 60U);
  EXPECT_LT(Count(svg, "class=\"density\""), 90U);
}

TEST_F(PlotOf, LeavesOutNumbersThatWouldOverlap) {
  for (int i = 0; i < 200'000; ++i) {
    Add(i * 1'000, LogEventKind::kEnd, "a", 256);
  }
  const std::string svg = Svg();
  EXPECT_LT(Count(svg, "class=\"count\""), Count(svg, "class=\"end\""));
  EXPECT_GT(Count(svg, "class=\"count\""), 20U);
  const std::regex number(
      "<text x=\"([0-9.]+)\" y=\"[0-9.]+\" class=\"count\"");
  double last = 0;
  for (std::sregex_iterator it(svg.begin(), svg.end(), number), end; it != end;
       ++it) {
    constexpr double kFourDigits = 24;
    EXPECT_GT(std::stod((*it)[1]), last + kFourDigits);
    last = std::stod((*it)[1]);
  }
}

TEST_F(PlotOf, MarksLanesThatNeedAttention) {
  Add(0, LogEventKind::kForkFailed, "forkless");
  Add(0, LogEventKind::kNoProgram, "pathless");
  LogEvent link;
  link.kind = LogEventKind::kStart;
  link.name = "chain";
  link.process = 5;
  link.thread = 5;
  history_.Add(link);
  Add(0, LogEventKind::kStart, "fine");
  const std::string svg = Svg();
  EXPECT_NE(svg.find(">no fork: given up for good<"), std::string::npos);
  EXPECT_NE(svg.find(">no path: missing or empty &quot;program&quot;<"),
            std::string::npos);
  EXPECT_NE(svg.find(">chain: cannot be executed<"), std::string::npos);
  EXPECT_EQ(Count(svg, "class=\"state\""), 3U);
  exists_ = false;
  EXPECT_EQ(Count(Svg(), ">gone: launcher no longer there<"), 1U);
}

TEST_F(PlotOf, RepeatsTheTimeAboveManyLanes) {
  const auto times = [&] { return Count(Svg(), ">00:01:00<"); };
  for (int i = 0; i < 15; ++i) {
    Add(i * 10 * kSecond, LogEventKind::kEnd, "item" + std::to_string(i));
  }
  EXPECT_EQ(times() + Count(Svg(), ">00:01<"), 1U);
  Add(141 * kSecond, LogEventKind::kEnd, "item15");
  EXPECT_EQ(times() + Count(Svg(), ">00:01<"), 2U);
}

TEST_F(PlotOf, ShowsTimesThatFitTheSpan) {
  constexpr Micros kDay = 86400 * kSecond;
  Add(0, LogEventKind::kEnd, "a");
  Add(10 * kSecond, LogEventKind::kEnd, "a");
  EXPECT_EQ(Count(Svg(), ">00:00:06<"), 1U);
  Add(kDay * 3 / 2, LogEventKind::kEnd, "a");
  EXPECT_EQ(Count(Svg(), ">12:00<"), 2U);
  EXPECT_EQ(Count(Svg(), ">1970-01-02<"), 1U);
  Add(100 * kDay, LogEventKind::kEnd, "a");
  EXPECT_EQ(Count(Svg(), ">1970-01-17<"), 1U);
  EXPECT_EQ(Count(Svg(), "stroke=\"#ddd\""), 6U);
}

}  // namespace
