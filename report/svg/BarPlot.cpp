#include "report/svg/BarPlot.h"

#include <algorithm>

namespace TarvexDiags::Svg {

namespace {

constexpr double kBarRow = 34;
constexpr double kBarFrom = 18;  ///< below the top of its row
constexpr double kBarHeight = 9;
constexpr double kLimitReach = 3;
constexpr double kNameFoot = 13;
constexpr std::size_t kColumns = 54;  ///< of name and value together
constexpr std::size_t kShortestName = 10;
constexpr double kLeastSeen = 1;

void writeBox(Markup& out, const char* ofClass, double y, double width) {
  out.leaf("rect",
           {{"class", ofClass},
            {"x", "0"},
            {"y", pixels(y)},
            {"width", pixels(width)},
            {"height", pixels(kBarHeight)}},
           "");
}

void writeBar(Markup& out, const BarPlot::Bar& bar, double most, double top) {
  const Scale scale{0, most, 0, kPlotWidth};
  const std::string value = shortened(bar.valueText, kColumns - kShortestName);
  const std::size_t room = kColumns - std::min(kColumns - kShortestName, value.size() + 2);
  label(out, 0, top + kNameFoot, "start", shortened(bar.label, room));
  label(out, kPlotWidth, top + kNameFoot, "end", value);
  writeBox(out, "track", top + kBarFrom, kPlotWidth);
  const double width = scale.at(bar.value);
  writeBox(out, "bar", top + kBarFrom, bar.value > 0 ? std::max(width, kLeastSeen) : 0);
  if (bar.limit) {
    const double x = scale.at(*bar.limit);
    line(out, "limit", x, top + kBarFrom - kLimitReach, x,
         top + kBarFrom + kBarHeight + kLimitReach);
  }
}

}  // namespace

void write(Markup& out, const BarPlot& plot) {
  double most = 0;
  for (const BarPlot::Bar& bar : plot.bars) {
    most = std::max({most, bar.value, bar.limit.value_or(0)});
  }
  openPlot(out, plot.heading, kPlotWidth, kBarRow * static_cast<double>(plot.bars.size()));
  double top = 0;
  for (const BarPlot::Bar& bar : plot.bars) {
    writeBar(out, bar, bar.whole > 0 ? bar.whole : most, top);
    top += kBarRow;
  }
  closePlot(out);
}

}  // namespace TarvexDiags::Svg
