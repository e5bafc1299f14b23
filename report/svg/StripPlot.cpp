#include "report/svg/StripPlot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

namespace TarvexDiags::Svg {

namespace {

constexpr double kRowHeight = 40;
constexpr double kDotsBelow = 24;  ///< from the top of a row
constexpr double kLabelBelow = 13;
constexpr double kMedianReach = 8;
constexpr double kStripDot = 4;
constexpr double kBelowRows = 22;
constexpr double kSide = 10;
constexpr std::size_t kStripTicks = 5;
constexpr std::size_t kStripLabel = 46;  ///< columns

double medianOf(std::vector<StripPlot::Dot> dots) {
  const auto middle = dots.begin() + static_cast<std::ptrdiff_t>(dots.size() / 2);
  std::nth_element(dots.begin(), middle, dots.end(),
                   [](const auto& left, const auto& right) { return left.value < right.value; });
  return middle->value;
}

std::vector<Tick> ticksOf(const StripPlot& plot) {
  double lowest = std::numeric_limits<double>::max();
  double highest = std::numeric_limits<double>::lowest();
  for (const StripPlot::Row& row : plot.rows) {
    for (const StripPlot::Dot& dot : row.dots) {
      lowest = std::min(lowest, dot.value);
      highest = std::max(highest, dot.value);
    }
  }
  return lowest <= highest ? ticksAround(lowest, highest, kStripTicks)
                           : ticksAround(0, 1, kStripTicks);
}

void writeRow(Markup& out, const StripPlot::Row& row, const Scale& scale, double top) {
  label(out, kSide, top + kLabelBelow, "start", shortened(row.label, kStripLabel));
  if (row.dots.empty()) {
    return;
  }
  const double y = top + kDotsBelow;
  const double median = scale.at(medianOf(row.dots));
  line(out, "median", median, y - kMedianReach, median, y + kMedianReach);
  struct Shared {
    std::string label;
    std::size_t count = 0;
  };
  std::map<double, Shared> byPixel;
  for (const StripPlot::Dot& dot : row.dots) {
    Shared& shared = byPixel[std::round(scale.at(dot.value))];
    shared.label = shared.count++ == 0 ? dot.label : shared.label;
  }
  for (const auto& [x, shared] : byPixel) {
    out.open("circle",
             {{"class", "dot"}, {"cx", pixels(x)}, {"cy", pixels(y)}, {"r", pixels(kStripDot)}});
    out.leaf("title", shared.count == 1 ? shared.label
                                        : fmt::format("{} +{}", shared.label, shared.count - 1));
    out.close();
  }
}

}  // namespace

void write(Markup& out, const StripPlot& plot) {
  const double bottom = kRowHeight * static_cast<double>(plot.rows.size());
  const Area area{.left = kSide, .right = kPlotWidth - kSide, .top = 0, .bottom = bottom};
  const std::vector<Tick> ticks = ticksOf(plot);
  const Scale scale{ticks.front().value, ticks.back().value, area.left, area.right};
  openPlot(out, plot.heading, kPlotWidth, bottom + kBelowRows);
  axisBelow(out, area, scale, ticks);
  double top = 0;
  for (const StripPlot::Row& row : plot.rows) {
    writeRow(out, row, scale, top);
    top += kRowHeight;
  }
  closePlot(out);
}

}  // namespace TarvexDiags::Svg
