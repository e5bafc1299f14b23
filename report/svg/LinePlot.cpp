#include "report/svg/LinePlot.h"

#include <fmt/format.h>

#include <algorithm>

namespace TarvexDiags::Svg {

namespace {

constexpr double kLinePlotHeight = 140;
constexpr std::size_t kValueTicks = 4;
constexpr std::size_t kTimeTicks = 5;
constexpr double kDotRadius = 3;
constexpr Area kLineArea{.left = 56, .right = kPlotWidth - 8, .top = 10, .bottom = 116};

// A line of one point would not be seen.
void writeLine(Markup& out, const std::vector<Point>& points, const Scale& times,
               const Scale& values) {
  std::string path;
  for (const Point& point : points) {
    path += fmt::format("{}{} {}", path.empty() ? 'M' : 'L', pixels(times.at(point.x)),
                        pixels(values.at(point.y)));
  }
  if (!path.empty()) {
    out.leaf("path", {{"class", "series"}, {"d", path}}, "");
  }
  if (points.size() == 1) {
    out.leaf("circle",
             {{"class", "dot"},
              {"cx", pixels(times.at(points.front().x))},
              {"cy", pixels(values.at(points.front().y))},
              {"r", pixels(kDotRadius)}},
             "");
  }
}

}  // namespace

void write(Markup& out, const LinePlot& plot) {
  double lowest = plot.points.empty() ? 0 : plot.points.front().y;
  double highest = lowest;
  for (const Point& point : plot.points) {
    lowest = std::min(lowest, point.y);
    highest = std::max(highest, point.y);
  }
  if (plot.limit) {
    lowest = std::min(lowest, *plot.limit);
    highest = std::max(highest, *plot.limit);
  }
  openPlot(out, plot.heading, kPlotWidth, kLinePlotHeight);
  const Scale values = valueAxis(out, kLineArea, ticksAround(lowest, highest, kValueTicks));
  const double seconds = std::max(plot.seconds, 1e-3);
  const Scale times{0, seconds, kLineArea.left, kLineArea.right};
  axisBelow(out, kLineArea, times, timesWithin(seconds, kTimeTicks));
  if (plot.limit) {
    const double y = values.at(*plot.limit);
    line(out, "limit", kLineArea.left, y, kLineArea.right, y);
  }
  writeLine(out, plot.points, times, values);
  closePlot(out);
}

}  // namespace TarvexDiags::Svg
