#include "tools/log/Plot.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string_view>

#include "tools/text/Characters.h"
#include "tools/log/Times.h"

namespace {

constexpr int kLeft = 190;
constexpr int kWidth = 960;
constexpr int kRight = 90;
constexpr int kTop = 64;
constexpr int kLaneHeight = 34;
constexpr int kBarHeight = 16;
constexpr int kAxisHeight = 92;
constexpr int kTotalWidth = kLeft + kWidth + kRight;

// Marks are so far apart that they can be told from each other.
constexpr std::size_t kSlots = 80;
constexpr double kSlotWidth = static_cast<double>(kWidth) / kSlots;

constexpr std::array<const char*, kEndCauses> kCauses{
    "exit 0", "exit 1 or more", "SIGKILL", "other signal", "core file"};

// Told apart by their shapes; the colours come on top. The centre is at 0, 0.
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

// The span between two ticks of the time axis, of which there are eight at
// most.
LogMicros TickStep(LogMicros span) {
  constexpr int kMaxTicks = 8;
  constexpr std::int64_t kDaySeconds = 86400;
  for (const std::int64_t seconds :
       {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800,
        21600, 43200}) {
    if (span / (seconds * kMicrosPerSecond) < kMaxTicks) {
      return seconds * kMicrosPerSecond;
    }
  }
  LogMicros step = kDaySeconds * kMicrosPerSecond;
  while (span / step >= kMaxTicks) {
    step *= 2;
  }
  return step;
}

}  // namespace

class SvgWriter {
 public:
  SvgWriter(const Plot& plot, const History& history)
      : plot_(plot),
        history_(history),
        end_(std::max(history.Last(), plot.origin_ + kMicrosPerSecond)),
        height_(kTop + kLaneHeight * Lanes() + kAxisHeight) {}

  std::string Write() {
    out_ << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" << kTotalWidth
         << R"(" height=")" << height_ << R"(" viewBox="0 0 )" << kTotalWidth
         << " " << height_
         << R"(" font-family="sans-serif" font-size="13" role="img">)"
         << "\n<title>The launcher's items over time</title>\n"
         << R"(<rect width="100%" height="100%" fill="#fff"/>)"
         << "\n<text x=\"20\" y=\"30\" font-size=\"18\">Items from "
         << TimeText(plot_.origin_) << " to " << TimeText(end_) << "</text>\n";
    WriteAxis();
    for (int lane = 0; lane < Lanes(); ++lane) {
      WriteLane(static_cast<std::size_t>(lane), kTop + kLaneHeight * lane);
    }
    WriteLegend();
    out_ << "</svg>\n";
    return out_.str();
  }

 private:
  int Lanes() const { return static_cast<int>(history_.Items().size()); }

  double X(LogMicros time) const {
    const auto part = static_cast<double>(time - plot_.origin_) /
                      static_cast<double>(end_ - plot_.origin_);
    return kLeft + std::clamp(part, 0.0, 1.0) * kWidth;
  }

  LogMicros ColumnStart(std::size_t column) const {
    return plot_.origin_ + static_cast<LogMicros>(column) * plot_.column_;
  }

  void WriteAxis() {
    const LogMicros step = TickStep(end_ - plot_.origin_);
    const int bottom = kTop + kLaneHeight * Lanes();
    for (LogMicros tick = (plot_.origin_ / step + 1) * step; tick <= end_;
         tick += step) {
      constexpr LogMicros kDay = 86400 * kMicrosPerSecond;
      const std::string text = TimeText(tick);
      const bool midnight = tick % kDay == 0;
      const std::string label =
          midnight ? text.substr(0, 10)
                   : text.substr(11, step < 60 * kMicrosPerSecond ? 8 : 5);
      out_ << R"(<path d="M)" << Number(X(tick)) << "," << kTop << "V" << bottom
           << R"(" stroke="#ddd"/><text text-anchor="middle" x=")"
           << Number(X(tick)) << R"(" y=")" << bottom + 18 << R"(">)" << label
           << "</text>\n";
    }
    out_ << R"(<text x=")" << kLeft + kWidth << R"(" y=")" << bottom + 38
         << R"(" text-anchor="end" fill="#444">time (UTC)</text>)"
         << "\n";
  }

  void WriteLane(std::size_t item, int top) {
    constexpr std::size_t kLabelColumns = 22;
    const std::string name = Printable(history_.Items()[item].name);
    const std::uint64_t ends = history_.Items()[item].ends;
    const int middle = top + kLaneHeight / 2;
    out_ << "<g><title>" << XmlText(name) << "</title>"
         << R"(<text text-anchor="end" x=")" << kLeft - 12 << R"(" y=")"
         << middle + 4 << R"(">)" << XmlText(Cut(name, kLabelColumns))
         << "</text>"
         << R"(<path d="M)" << kLeft << "," << middle << "H" << kLeft + kWidth
         << R"(" stroke="#bbb"/><text x=")" << kLeft + kWidth + 10 << R"(" y=")"
         << middle + 4 << R"(" fill="#444">)" << CountText(ends)
         << (ends == 1 ? " end" : " ends") << "</text></g>\n";
    if (item < plot_.lanes_.size()) {
      WriteBars(plot_.lanes_[item], middle);
      WriteMarks(plot_.lanes_[item], middle);
    }
  }

  void WriteBars(const Plot::Lane& lane, int middle) {
    for (std::size_t i = 0; i < lane.size(); ++i) {
      if (!lane[i].ran) {
        continue;
      }
      const double start = X(ColumnStart(i));
      while (i < lane.size() && lane[i].ran) {
        ++i;
      }
      const double width = std::max(X(ColumnStart(i)) - start, 1.0);
      out_ << R"(<rect class="run" x=")" << Number(start) << R"(" y=")"
           << middle - kBarHeight / 2 << R"(" width=")" << Number(width)
           << R"(" height=")" << kBarHeight
           << R"(" fill="#b9d9f0" stroke="#4a7fa5"/>)"
           << "\n";
    }
  }

  // One mark for all ends in a slot, the gravest cause's.
  void WriteMarks(const Plot::Lane& lane, int middle) {
    std::array<Plot::Cell, kSlots> slots{};
    for (std::size_t i = 0; i < lane.size(); ++i) {
      const double x = X(ColumnStart(i)) - kLeft;
      const auto slot =
          std::min(static_cast<std::size_t>(x / kSlotWidth), kSlots - 1);
      for (std::size_t cause = 0; cause < kEndCauses; ++cause) {
        slots[slot].ends[cause] += lane[i].ends[cause];
      }
    }
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
      WriteMark(slots[slot],
                kLeft + (static_cast<double>(slot) + 0.5) * kSlotWidth, middle);
    }
  }

  void WriteMark(const Plot::Cell& cell, double x, int y) {
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
    if (!counts.empty()) {
      out_ << R"(<g class="end" transform="translate()" << Number(x) << "," << y
           << ")\"><title>" << counts << "</title>" << kShapes[gravest]
           << "</g>\n";
    }
  }

  void WriteLegend() {
    constexpr int kEntryWidth = 200;
    constexpr int kFirstEntryWidth = 130;
    int x = 30;
    const int y = height_ - 24;
    out_ << R"(<rect x=")" << x << R"(" y=")" << y - 8
         << R"(" width="28" height="16" fill="#b9d9f0" stroke="#4a7fa5"/>)"
         << R"(<text x=")" << x + 36 << R"(" y=")" << y + 4
         << "\">running</text>\n";
    for (std::size_t cause = 0; cause < kEndCauses; ++cause) {
      x += cause == 0 ? kFirstEntryWidth : kEntryWidth;
      out_ << R"(<g transform="translate()" << x << "," << y << ")\">"
           << kShapes[cause] << R"(<text x="12" y="4">ended: )"
           << kCauses[cause] << "</text></g>\n";
    }
  }

  const Plot& plot_;
  const History& history_;
  const LogMicros end_;
  const int height_;
  std::ostringstream out_;
};

void Plot::Add(const ProgramRun& run) {
  if (run.start) {
    Fill(run.item, *run.start, run.end);
  }
  const auto cause = static_cast<std::size_t>(WaitStatus(run.status).Cause());
  const std::size_t column = Column(run.end);
  ++LaneOf(run.item)[column].ends[cause];
}

std::string Plot::Svg(const History& history) {
  FillOpenRuns(history);
  return SvgWriter(*this, history).Write();
}

std::size_t Plot::Column(LogMicros time) {
  const LogMicros past = std::max<LogMicros>(time - origin_, 0);
  while (past / column_ >= static_cast<LogMicros>(kColumns)) {
    Fold();
  }
  return static_cast<std::size_t>(past / column_);
}

void Plot::Fold() {
  column_ *= 2;
  for (Lane& lane : lanes_) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      Cell cell;
      for (std::size_t j = 2 * i; j < 2 * i + 2 && j < kColumns; ++j) {
        cell.ran |= lane[j].ran;
        for (std::size_t cause = 0; cause < kEndCauses; ++cause) {
          cell.ends[cause] += lane[j].ends[cause];
        }
      }
      lane[i] = cell;
    }
  }
}

Plot::Lane& Plot::LaneOf(std::size_t item) {
  if (item >= lanes_.size()) {
    lanes_.resize(item + 1);
  }
  return lanes_[item];
}

void Plot::Fill(std::size_t item, LogMicros start, LogMicros end) {
  const std::size_t last = Column(std::max(start, end));
  Lane& lane = LaneOf(item);
  for (std::size_t i = Column(start); i <= last; ++i) {
    lane[i].ran = true;
  }
}

void Plot::FillOpenRuns(const History& history) {
  for (std::size_t i = 0; i < history.Items().size(); ++i) {
    const ItemHistory& item = history.Items()[i];
    const ItemState state = item.StateAt(history.Last());
    if (state != ItemState::kRunning && state != ItemState::kLooping) {
      continue;
    }
    for (const Supervisor& supervisor : item.supervisors) {
      if (supervisor.start && supervisor.last == item.last_time) {
        Fill(i, *supervisor.start, history.Last());
      }
    }
  }
}
