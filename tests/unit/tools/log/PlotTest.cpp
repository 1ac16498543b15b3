#include <gtest/gtest.h>

#include <functional>

#include "tools/log/Plot.h"

namespace {

constexpr LogMicros kSecond = kMicrosPerSecond;

class PlotOf : public testing::Test {
 protected:
  PlotOf() { plot_.Begin(0); }

  void Add(LogMicros time, LogEventKind kind, const std::string& name,
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

  std::string Svg() { return plot_.Svg(history_); }

  static std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; ++at) {
      ++count;
    }
    return count;
  }

  Plot plot_;
  History history_{[this](const ProgramRun& run) { plot_.Add(run); }};
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

TEST_F(PlotOf, LeavesAGapWhereNothingRan) {
  Add(0, LogEventKind::kStart, "a");
  Add(10 * kSecond, LogEventKind::kEnd, "a");
  Add(50 * kSecond, LogEventKind::kStart, "a");
  Add(60 * kSecond, LogEventKind::kEnd, "a");
  EXPECT_EQ(Count(Svg(), "class=\"run\""), 2U);
}

TEST_F(PlotOf, DrawsWhatStillRuns) {
  Add(0, LogEventKind::kStart, "a");
  Add(0, LogEventKind::kStart, "b");
  Add(60 * kSecond, LogEventKind::kEnd, "b");
  Add(60 * kSecond, LogEventKind::kStart, "b");
  const std::string svg = Svg();
  EXPECT_NE(svg.find("width=\"960.0\""), std::string::npos);
}

TEST_F(PlotOf, DrawsNothingBehindAStop) {
  Add(0, LogEventKind::kStart, "a");
  Add(0, LogEventKind::kStart, "b");
  Add(100 * kSecond, LogEventKind::kEnd, "a", 9);
  Add(100 * kSecond + 500'000, LogEventKind::kEnd, "b", 9);
  const std::string svg = Svg();
  EXPECT_EQ(Count(svg, "class=\"run\""), 2U);
  EXPECT_EQ(Count(svg, "class=\"run\" x=\"190.0\""), 2U);
  EXPECT_EQ(Count(svg, "width=\"960.0\""), 1U);
}

TEST_F(PlotOf, MarksEachCauseWithAShapeOfItsOwn) {
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

TEST_F(PlotOf, LosesNoEndWhenTimeGrows) {
  constexpr int kEnds = 5000;
  for (int i = 0; i < kEnds; ++i) {
    Add(static_cast<LogMicros>(i) * i * kSecond, LogEventKind::kEnd, "a", 256);
  }
  const std::string svg = Svg();
  const std::string mark = "<title>exit 1 or more: ";
  int sum = 0;
  for (std::size_t at = 0; (at = svg.find(mark, at)) != svg.npos; ++at) {
    sum += std::stoi(svg.substr(at + mark.size()));
  }
  EXPECT_EQ(sum, kEnds);
  EXPECT_LT(svg.size(), 100'000U);
}

TEST_F(PlotOf, WritesNamesAsText) {
  Add(0, LogEventKind::kStart, "<script>&\"\x1b");
  const std::string svg = Svg();
  EXPECT_EQ(svg.find("<script>"), std::string::npos);
  EXPECT_NE(svg.find("&lt;script&gt;&amp;&quot;\\x1b"), std::string::npos);
}

}  // namespace
