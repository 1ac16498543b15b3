#include <gtest/gtest.h>

#include "tools/text/Times.h"

namespace {

constexpr Micros kNow = 1795242031000000;  // 2026-11-21T06:20:31Z

TEST(Times, ReadsSpansBeforeNow) {
  const auto ago = [](const char* text) {
    return (kNow - ParseSince(text, kNow).value()) / kMicrosPerSecond;
  };
  EXPECT_EQ(ago("90s"), 90);
  EXPECT_EQ(ago("15m"), 900);
  EXPECT_EQ(ago("2h"), 7200);
  EXPECT_EQ(ago("3d"), 259200);
  EXPECT_EQ(ago("0s"), 0);
}

TEST(Times, ReadsTimes) {
  EXPECT_EQ(ParseSince("2026-11-21T06:20:31", 0), kNow);
  EXPECT_EQ(ParseSince("2026-11-21T06:20:31Z", 0), kNow);
  EXPECT_EQ(ParseSince("2026-11-21T06:20:31.123456Z", 0), kNow + 123456);
  EXPECT_EQ(ParseSince("2026-11-21T06:20:31.000000", 0), kNow);
  EXPECT_EQ(TimeText(ParseSince("2024-02-29T23:59:59", 0).value()),
            "2024-02-29T23:59:59Z");
  EXPECT_EQ(TimeText(ParseSince("2026-11-21T06:20", 0).value()),
            "2026-11-21T06:20:00Z");
  EXPECT_EQ(TimeText(ParseSince("2026-11-21", 0).value()),
            "2026-11-21T00:00:00Z");
}

TEST(Times, RefusesOtherText) {
  for (const char* const text : {"",
                                 "5",
                                 "m",
                                 "-5m",
                                 "5x",
                                 "5 m",
                                 "yesterday",
                                 "2026-11-41",
                                 "2026-11-21T06",
                                 "9999999d",
                                 "2026-11-21T06:20:3x",
                                 "25:00",
                                 "2026-11-21T25:00",
                                 "2026-11-21T24:00:00",
                                 "2026-11-21T06:60",
                                 "2026-11-21T06:20:60",
                                 "2026-02-29",
                                 "2026-11-21T06:20:31.1",
                                 "2026-11-21T06:20:31.123456ZZ",
                                 "1000001s"}) {
    EXPECT_FALSE(ParseSince(text, kNow)) << text;
  }
}

TEST(Times, ReadsTheTimeThatALineBeginsWith) {
  EXPECT_EQ(ParseLogTime("2026-11-21T06:20:31.000001Z ERROR"), kNow + 1);
  EXPECT_EQ(ParseLogTime("1970-01-01T00:00:00.000000Z"), 0);
  for (const char* const text :
       {"2026-11-21T06:20:31.00000Z", "2026-11-21T25:20:31.000000Z",
        "2026-11-21T06:20:31.000000", "2026-13-21T06:20:31.000000Z",
        "2026-11-21 06:20:31.000000Z", ""}) {
    EXPECT_FALSE(ParseLogTime(text)) << text;
  }
}

TEST(Times, ReadsWholeNumbersOnly) {
  EXPECT_EQ(ToNumber("-17"), -17);
  EXPECT_EQ(ToNumber("9223372036854775807"), INT64_MAX);
  for (const char* const text :
       {"", "-", "+1", " 1", "1 ", "1x", "9223372036854775808"}) {
    EXPECT_FALSE(ToNumber(text)) << text;
  }
}

TEST(Times, WritesTimes) {
  EXPECT_EQ(TimeText(kNow + 999999), "2026-11-21T06:20:31Z");
  EXPECT_EQ(TimeText(0), "1970-01-01T00:00:00Z");
}

TEST(Times, WritesSpansInFiveColumns) {
  EXPECT_EQ(SpanText(-5), "0ms");
  EXPECT_EQ(SpanText(49'999), "49ms");
  EXPECT_EQ(SpanText(999'999), "999ms");
  EXPECT_EQ(SpanText(999'000), "999ms");
  EXPECT_EQ(SpanText(1'000'000), "1.0s");
  EXPECT_EQ(SpanText(3'290'000), "3.2s");
  EXPECT_EQ(SpanText(9'990'000), "9.9s");
  EXPECT_EQ(SpanText(59'999'999), "59s");
  EXPECT_EQ(SpanText(60'000'000), "1m");
  EXPECT_EQ(SpanText(3'599'000'000), "59m");
  EXPECT_EQ(SpanText(47 * 3'600'000'000), "47h");
  EXPECT_EQ(SpanText(48 * 3'600'000'000), "2d");
}

TEST(Times, WritesCountsInFiveColumns) {
  EXPECT_EQ(CountText(0), "0");
  EXPECT_EQ(CountText(99'999), "99999");
  EXPECT_EQ(CountText(100'000), "100k");
  EXPECT_EQ(CountText(999'999), "999k");
  EXPECT_EQ(CountText(1'250'000), "1.2M");
  EXPECT_EQ(CountText(45'000'000'000), "45G");
}

}  // namespace
