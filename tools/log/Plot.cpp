#include "tools/log/Plot.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <iterator>
#include <map>

#include "common/util/StringHelpers.h"
#include "tools/text/Characters.h"
#include "tools/text/Times.h"

namespace {

// Pixels.
constexpr int kLeft = 190;
constexpr int kWidth = 960;
constexpr int kRight = 200;
constexpr int kTop = 70;
constexpr int kLaneHeight = 34;
constexpr int kBarHeight = 14;
constexpr int kAxisHeight = 92;
constexpr int kTotalWidth = kLeft + kWidth + kRight;
constexpr int kLabelGap = 12;   // between a lane and the text beside it
constexpr int kTextShift = 4;   // puts the middle of a text on a line
constexpr int kMarkWidth = 12;  // marks closer than this become one
constexpr int kDigitWidth = 6;  // of the numbers above marks
constexpr int kNumberGap = 4;   // between two of them

// More lanes than fit on a screen; the time axis is also above them.
constexpr std::size_t kManyLanes = 15;

// The marks differ in shape, not only in colour. The centre is at 0, 0.
struct Mark {
  const char* text;
  const char* shape;
};

// In the order of the causes.
constexpr Mark kMarks[] = {
    {"exit 0",
     R"(<circle r="4" fill="#fff" stroke="#007a5a" stroke-width="2"/>)"},
    {"exit 1 or more",
     R"(<path d="M-4,-4L4,4M-4,4L4,-4" stroke="#a35200" stroke-width="3"/>)"},
    {"SIGKILL", R"(<rect x="-4" y="-4" width="8" height="8" fill="#222"/>)"},
    {"other signal", R"(<path d="M0,-5L5,4L-5,4Z" fill="#c43c00"/>)"},
    {"core file", R"(<path d="M0,-6L6,0L0,6L-6,0Z" fill="#8a1c6b"/>)"
                  R"(<circle r="2" fill="#fff"/>)"}};
static_assert(std::size(kMarks) == static_cast<int>(EndCause::kCore) + 1);

std::string XmlText(std::string text) {
  replace_all(text, "&", "&amp;");
  replace_all(text, "<", "&lt;");
  replace_all(text, ">", "&gt;");
  replace_all(text, "\"", "&quot;");
  return text;
}

constexpr Micros kMinute = 60 * kMicrosPerSecond;
constexpr Micros kDay = 1440 * kMinute;

// The span between two ticks of the time axis, of which there are eight at
// most.
Micros TickStep(Micros span) {
  constexpr int kMaxTicks = 8;
  for (const std::int64_t seconds :
       {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800,
        21600, 43200}) {
    if (span / (seconds * kMicrosPerSecond) < kMaxTicks) {
      return seconds * kMicrosPerSecond;
    }
  }
  Micros step = kDay;
  while (span / step >= kMaxTicks) {
    step *= 2;
  }
  return step;
}

// The date at midnight, else the time of day, with seconds for small steps.
std::string TickText(Micros tick, Micros step) {
  const std::string text = TimeText(tick);
  const std::size_t day_end = text.find('T');
  if (tick % kDay == 0) {
    return text.substr(0, day_end);
  }
  const std::size_t end = step < kMinute ? text.size() - 1 : text.rfind(':');
  return text.substr(day_end + 1, end - day_end - 1);
}

class SvgWriter {
 public:
  SvgWriter(const History& history, const Present& present)
      : items_(history.Items(present)),
        timeline_(history.Runs()),
        begin_(history.Totals().lines > 0 ? timeline_.origin : present.now),
        end_(std::max(history.Totals().last, begin_ + kMicrosPerSecond)),
        bottom_(kTop + kLaneHeight * static_cast<int>(items_.size())) {}

  std::string Write() {
    const int height = bottom_ + kAxisHeight;
    svg_ = string_format(
        R"(<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d")"
        R"( viewBox="0 0 %d %d" font-family="sans-serif" font-size="13")"
        " role=\"img\">\n<title>The launcher's items over time</title>\n"
        R"(<rect width="100%%" height="100%%" fill="#fff"/>)",
        kTotalWidth, height, kTotalWidth, height);
    WriteText(kLabelGap, 30, R"(font-size="18")",
              "Items from " + TimeText(begin_) + " to " + TimeText(end_));
    WriteAxis();
    int middle = kTop + kLaneHeight / 2;
    for (const ItemNow& item : items_) {
      WriteLane(item, middle);
      middle += kLaneHeight;
    }
    WriteLegend(height - 24);
    return svg_ + "</svg>\n";
  }

 private:
  double X(Micros time) const {
    const auto part =
        static_cast<double>(time - begin_) / static_cast<double>(end_ - begin_);
    return kLeft + std::clamp(part, 0.0, 1.0) * kWidth;
  }

  double ColumnX(std::size_t column) const {
    return X(timeline_.ColumnStart(column));
  }

  // `attributes` are added to the element's own.
  void WriteText(double x, int y, const char* attributes,
                 const std::string& text) {
    svg_ += string_format("<text x=\"%.1f\" y=\"%d\" %s>%s</text>\n", x, y,
                          attributes, XmlText(text).c_str());
  }

  void WriteBar(double x, int middle, double width, const char* attributes) {
    svg_ += string_format(R"(<rect %s x="%.1f" y="%d" width="%.1f" height="%d")"
                          " fill=\"#b9d9f0\" stroke=\"#4a7fa5\"/>\n",
                          attributes, x, middle - kBarHeight / 2, width,
                          kBarHeight);
  }

  void WriteAxis() {
    constexpr const char* kCentred = R"(text-anchor="middle")";
    const Micros step = TickStep(end_ - begin_);
    for (Micros tick = (begin_ / step + 1) * step; tick <= end_; tick += step) {
      const double x = X(tick);
      const std::string text = TickText(tick, step);
      svg_ += string_format(R"(<path d="M%.1f,%dV%d" stroke="#ddd"/>)", x, kTop,
                            bottom_);
      WriteText(x, bottom_ + 18, kCentred, text);
      if (items_.size() > kManyLanes) {
        WriteText(x, kTop - 8, kCentred, text);
      }
    }
    WriteText(kLeft + kWidth, bottom_ + 38, R"(text-anchor="end" fill="#444")",
              "time (UTC)");
  }

  void WriteLane(const ItemNow& item, int middle) {
    constexpr std::size_t kNameColumns = 22;
    const std::string name = Printable(item.history.name);
    svg_ += "<g><title>" + XmlText(name) + "</title>";
    WriteText(kLeft - kLabelGap, middle + kTextShift, R"(text-anchor="end")",
              Cut(name, kNameColumns));
    svg_ += string_format("<path d=\"M%d,%dH%d\" stroke=\"#bbb\"/></g>\n",
                          kLeft, middle, kLeft + kWidth);
    WriteLaneNotes(item, middle);
    const auto lane = timeline_.lanes.find(item.history.index);
    if (lane != timeline_.lanes.end()) {
      WriteRuns(lane->second.ran, middle);
      WriteMarks(lane->second.ends, middle);
    }
  }

  // The number of its ends and, if it needs attention, its state.
  void WriteLaneNotes(const ItemNow& item, int middle) {
    constexpr int kLineHalf = 7;
    const StateText& state = TextOf(item.state);
    const std::uint64_t ends = item.history.ends;
    const bool has_state = state.meaning != nullptr;
    const double x = kLeft + kWidth + kLabelGap;
    const int y = middle + kTextShift;
    WriteText(x, has_state ? y - kLineHalf : y, R"(fill="#444")",
              CountText(ends) + (ends == 1 ? " end" : " ends"));
    if (has_state) {
      WriteText(x, y + kLineHalf,
                R"(class="state" fill="#b00020" font-size="11")",
                std::string(state.name) + ": " + state.meaning);
    }
  }

  // Columns that touch are one bar.
  void WriteRuns(const std::bitset<Timeline::kColumns>& ran, int middle) {
    for (std::size_t end = 0; end < ran.size(); ++end) {
      const std::size_t first = end;
      while (end < ran.size() && ran[end]) {
        ++end;
      }
      if (end > first) {
        const double x = ColumnX(first);
        WriteBar(x, middle, std::max(ColumnX(end) - x, 1.0), R"(class="run")");
      }
    }
  }

  // A mark is at the first of its ends, and counts the ends that follow within
  // its width.
  void WriteMarks(const Timeline::Ends& all, int middle) {
    double free_from = 0;  // for a number, beside the one before it
    for (auto next = all.begin(); next != all.end();) {
      const double x = ColumnX(next->first.first);
      std::map<EndCause, std::uint32_t> causes;
      std::uint32_t ends = 0;
      for (; next != all.end() && ColumnX(next->first.first) < x + kMarkWidth;
           ++next) {
        causes[next->first.second] += next->second;
        ends += next->second;
      }
      WriteMark(causes, x, middle);
      free_from = WriteCount(ends, x, middle, free_from);
    }
  }

  // The gravest cause's shape.
  void WriteMark(const std::map<EndCause, std::uint32_t>& causes, double x,
                 int middle) {
    std::string title;
    const char* shape = "";
    for (const auto& [cause, ends] : causes) {
      const Mark& mark = kMarks[static_cast<std::size_t>(cause)];
      title += (title.empty() ? "" : ", ") + std::string(mark.text) + ": " +
               std::to_string(ends);
      shape = mark.shape;
    }
    svg_ += string_format(
        "<g class=\"end\" transform=\"translate(%.1f,%d)\">"
        "<title>%s</title>%s</g>\n",
        x, middle, title.c_str(), shape);
  }

  // Shows that a mark counts several ends: draws a column whose height grows
  // with their number, and the number if there is room from `free_from` on.
  // Returns the new start of the free room.
  double WriteCount(std::uint32_t ends, double x, int middle,
                    double free_from) {
    if (ends < 2) {
      return free_from;
    }
    constexpr double kHeightPerDoubling = 2;
    const int base = middle + kLaneHeight / 2 - 1;
    const double height = std::min<double>(kHeightPerDoubling * std::log2(ends),
                                           kLaneHeight / 2.0);
    svg_ += string_format(
        R"(<rect class="density" x="%.1f" y="%.1f" width="%d" height="%.1f")"
        " fill=\"#b00020\" fill-opacity=\"0.3\"/>\n",
        x - kMarkWidth / 2.0, base - height, kMarkWidth, height);
    const std::string count = CountText(ends);
    const double half = kDigitWidth * static_cast<double>(count.size()) / 2;
    if (x - half < free_from) {
      return free_from;
    }
    WriteText(x, middle - kBarHeight / 2 - 1,
              R"(class="count" text-anchor="middle" font-size="10")", count);
    return x + half + kNumberGap;
  }

  void WriteLegend(int y) {
    constexpr int kEntryWidth = 190;
    constexpr int kFirstEntryWidth = 120;
    int x = kLabelGap;
    WriteBar(x, y, 28, "");
    WriteText(x + 36, y + kTextShift, "", "running");
    x += kFirstEntryWidth;
    for (const Mark& mark : kMarks) {
      svg_ += string_format("<g transform=\"translate(%d,%d)\">%s</g>", x, y,
                            mark.shape);
      WriteText(x + kLabelGap, y + kTextShift, "",
                std::string("ended: ") + mark.text);
      x += kEntryWidth;
    }
    WriteText(x, y + kTextShift, "", "a number: that many ends in one mark");
  }

  const std::vector<ItemNow> items_;
  const Timeline& timeline_;
  const Micros begin_;  // the present if there are no lines
  const Micros end_;
  const int bottom_;
  std::string svg_;
};

}  // namespace

std::string PlotSvg(const History& history, const Present& present) {
  return SvgWriter(history, present).Write();
}
