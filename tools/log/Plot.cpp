#include "tools/log/Plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string_view>

#include "tools/log/Times.h"
#include "tools/text/Characters.h"

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

// More lanes than a screen holds; the time is shown above them as well.
constexpr std::size_t kManyLanes = 15;

constexpr std::array<const char*, kEndCauses> kCauses{
    "exit 0", "exit 1 or more", "SIGKILL", "other signal", "core file"};

// They differ in shape, not only in colour. The centre is at 0, 0.
constexpr std::array<const char*, kEndCauses> kShapes{
    R"(<circle r="4" fill="#fff" stroke="#007a5a" stroke-width="2"/>)",
    R"(<path d="M-4,-4L4,4M-4,4L4,-4" stroke="#a35200" stroke-width="3"/>)",
    R"(<rect x="-4" y="-4" width="8" height="8" fill="#222"/>)",
    R"(<path d="M0,-5L5,4L-5,4Z" fill="#c43c00"/>)",
    R"(<path d="M0,-6L6,0L0,6L-6,0Z" fill="#8a1c6b"/>)"
    R"(<circle r="2" fill="#fff"/>)"};

std::string XmlText(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string Number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", value);
  return text.data();
}

// `text` at `x`, `y`, whose attributes `style` are added.
std::string Text(double x, double y, const std::string& style,
                 std::string_view text) {
  return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" " + style +
         ">" + XmlText(text) + "</text>";
}

constexpr LogMicros kMinute = 60 * kMicrosPerSecond;
constexpr LogMicros kDay = 1440 * kMinute;

// The span between two ticks of the time axis, of which there are eight at
// most.
LogMicros TickStep(LogMicros span) {
  constexpr int kMaxTicks = 8;
  for (const std::int64_t seconds :
       {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800,
        21600, 43200}) {
    if (span / (seconds * kMicrosPerSecond) < kMaxTicks) {
      return seconds * kMicrosPerSecond;
    }
  }
  LogMicros step = kDay;
  while (span / step >= kMaxTicks) {
    step *= 2;
  }
  return step;
}

// The date at midnight, else the time of day, with seconds for small steps.
std::string TickText(LogMicros tick, LogMicros step) {
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
  SvgWriter(const History& history, const Timeline& timeline,
            const Present& present)
      : items_(history.Items(present)),
        timeline_(timeline),
        present_(present),
        end_(std::max(history.Last(), timeline.Origin() + kMicrosPerSecond)),
        bottom_(kTop + kLaneHeight * static_cast<int>(items_.size())) {}

  std::string Write() {
    const int height = bottom_ + kAxisHeight;
    out_ << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" << kTotalWidth
         << R"(" height=")" << height << R"(" viewBox="0 0 )" << kTotalWidth
         << " " << height
         << R"(" font-family="sans-serif" font-size="13" role="img">)"
         << "\n<title>The launcher's items over time</title>\n"
         << R"(<rect width="100%" height="100%" fill="#fff"/>)"
         << "\n"
         << Text(kLabelGap, 30, R"(font-size="18")",
                 "Items from " + TimeText(timeline_.Origin()) + " to " +
                     TimeText(end_))
         << "\n";
    WriteAxis();
    for (std::size_t i = 0; i < items_.size(); ++i) {
      const int top = kTop + kLaneHeight * static_cast<int>(i);
      WriteLane(*items_[i], top + kLaneHeight / 2);
    }
    WriteLegend(height - 24);
    out_ << "</svg>\n";
    return out_.str();
  }

 private:
  double X(LogMicros time) const {
    const auto part = static_cast<double>(time - timeline_.Origin()) /
                      static_cast<double>(end_ - timeline_.Origin());
    return kLeft + std::clamp(part, 0.0, 1.0) * kWidth;
  }

  double ColumnX(std::size_t column) const {
    return X(timeline_.ColumnStart(column));
  }

  void WriteAxis() {
    const LogMicros step = TickStep(end_ - timeline_.Origin());
    for (LogMicros tick = (timeline_.Origin() / step + 1) * step; tick <= end_;
         tick += step) {
      const double x = X(tick);
      const std::string text = TickText(tick, step);
      const std::string centred = R"(text-anchor="middle")";
      out_ << "<path d=\"M" << Number(x) << "," << kTop << "V" << bottom_
           << R"(" stroke="#ddd"/>)" << Text(x, bottom_ + 18, centred, text);
      if (items_.size() > kManyLanes) {
        out_ << Text(x, kTop - 8, centred, text);
      }
      out_ << "\n";
    }
    out_ << Text(kLeft + kWidth, bottom_ + 38,
                 R"(text-anchor="end" fill="#444")", "time (UTC)")
         << "\n";
  }

  void WriteLane(const ItemHistory& item, int middle) {
    constexpr std::size_t kNameColumns = 22;
    const std::string name = Printable(item.name);
    out_ << "<g><title>" << XmlText(name) << "</title>"
         << Text(kLeft - kLabelGap, middle + kTextShift, R"(text-anchor="end")",
                 Cut(name, kNameColumns))
         << R"(<path d="M)" << kLeft << "," << middle << "H" << kLeft + kWidth
         << R"(" stroke="#bbb"/></g>)"
         << "\n";
    WriteLaneNotes(item, middle);
    if (const Timeline::Lane* const lane = timeline_.Find(item.index)) {
      WriteBars(*lane, middle);
      WriteMarks(*lane, middle);
    }
  }

  // How often it ended and, where that needs attention, its state.
  void WriteLaneNotes(const ItemHistory& item, int middle) {
    const std::string ends =
        CountText(item.ends) + (item.ends == 1 ? " end" : " ends");
    const StateText& state = TextOf(item.StateAt(present_));
    const double x = kLeft + kWidth + kLabelGap;
    if (state.meaning == nullptr) {
      out_ << Text(x, middle + kTextShift, R"(fill="#444")", ends) << "\n";
      return;
    }
    constexpr int kLineHalf = 7;
    out_ << Text(x, middle + kTextShift - kLineHalf, R"(fill="#444")", ends)
         << Text(x, middle + kTextShift + kLineHalf,
                 R"(class="state" fill="#b00020" font-size="11")",
                 std::string(state.name) + ": " + state.meaning)
         << "\n";
  }

  void WriteBars(const Timeline::Lane& lane, int middle) {
    for (std::size_t i = 0; i < lane.size(); ++i) {
      if (!lane[i].ran) {
        continue;
      }
      const double start = ColumnX(i);
      while (i < lane.size() && lane[i].ran) {
        ++i;
      }
      const double width = std::max(ColumnX(i) - start, 1.0);
      out_ << R"(<rect class="run" x=")" << Number(start) << R"(" y=")"
           << middle - kBarHeight / 2 << R"(" width=")" << Number(width)
           << R"(" height=")" << kBarHeight
           << R"(" fill="#b9d9f0" stroke="#4a7fa5"/>)"
           << "\n";
    }
  }

  // A mark stands where the first of its ends was; those that follow within the
  // mark's width are counted with it.
  void WriteMarks(const Timeline::Lane& lane, int middle) {
    double free_from = 0;  // for a number, beside the one before it
    for (std::size_t i = 0; i < lane.size();) {
      if (lane[i].Ends() == 0) {
        ++i;
        continue;
      }
      const double x = ColumnX(i);
      Timeline::Cell sum;
      for (; i < lane.size() && ColumnX(i) < x + kMarkWidth; ++i) {
        sum.Add(lane[i]);
      }
      WriteMark(sum, x, middle);
      free_from = WriteCount(sum.Ends(), x, middle, free_from);
    }
  }

  // The gravest cause's shape.
  void WriteMark(const Timeline::Cell& cell, double x, int middle) {
    std::string counts;
    std::size_t gravest = 0;
    for (std::size_t cause = 0; cause < kEndCauses; ++cause) {
      if (cell.ends[cause] > 0) {
        gravest = cause;
        counts += counts.empty() ? "" : ", ";
        counts += std::string(kCauses[cause]) + ": " +
                  std::to_string(cell.ends[cause]);
      }
    }
    out_ << R"(<g class="end" transform="translate()" << Number(x) << ","
         << middle << ")\"><title>" << counts << "</title>" << kShapes[gravest]
         << "</g>\n";
  }

  // Shows that a mark is several ends: a column whose height grows with their
  // number, and the number where there is room from `free_from` on. Returns
  // from where there is room then.
  double WriteCount(std::uint32_t ends, double x, int middle,
                    double free_from) {
    if (ends < 2) {
      return free_from;
    }
    constexpr double kHeightPerDoubling = 2;
    const int base = middle + kLaneHeight / 2 - 1;
    const double height = std::min<double>(kHeightPerDoubling * std::log2(ends),
                                           kLaneHeight / 2.0);
    out_ << R"(<rect class="density" x=")" << Number(x - kMarkWidth / 2.0)
         << R"(" y=")" << Number(base - height) << R"(" width=")" << kMarkWidth
         << R"(" height=")" << Number(height)
         << R"(" fill="#b00020" fill-opacity="0.3"/>)"
         << "\n";
    const std::string count = CountText(ends);
    const double half = kDigitWidth * static_cast<double>(count.size()) / 2;
    if (x - half < free_from) {
      return free_from;
    }
    out_ << Text(x, middle - kBarHeight / 2 - 1,
                 R"(class="count" text-anchor="middle" font-size="10")", count)
         << "\n";
    return x + half + kNumberGap;
  }

  void WriteLegend(int y) {
    constexpr int kEntryWidth = 190;
    constexpr int kFirstEntryWidth = 120;
    int x = kLabelGap;
    out_ << R"(<rect x=")" << x << R"(" y=")" << y - kBarHeight / 2
         << R"(" width="28" height=")" << kBarHeight
         << R"(" fill="#b9d9f0" stroke="#4a7fa5"/>)"
         << Text(x + 36, y + kTextShift, "", "running") << "\n";
    for (std::size_t cause = 0; cause < kEndCauses; ++cause) {
      x += cause == 0 ? kFirstEntryWidth : kEntryWidth;
      out_ << R"(<g transform="translate()" << x << "," << y << ")\">"
           << kShapes[cause]
           << Text(kLabelGap, kTextShift, "",
                   std::string("ended: ") + kCauses[cause])
           << "</g>\n";
    }
    out_ << Text(x + kEntryWidth, y + kTextShift, "",
                 "a number: that many ends in one mark")
         << "\n";
  }

  const std::vector<const ItemHistory*> items_;
  const Timeline& timeline_;
  const Present& present_;
  const LogMicros end_;
  const int bottom_;
  std::ostringstream out_;
};

}  // namespace

std::string PlotSvg(const History& history, const Timeline& timeline,
                    const Present& present) {
  return SvgWriter(history, timeline, present).Write();
}
