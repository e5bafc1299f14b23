#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/svg/Frame.h"
#include "report/svg/ThinnedSeries.h"

namespace TarvexDiags::Svg {

/// Values over time.
struct LinePlot {
  Heading heading;
  std::vector<Point> points;  ///< x in seconds from the beginning
  double seconds = 0;         ///< that the axis has; points beyond stand at its end
  std::optional<double> limit;
};

/// The value axis holds all points and the limit.
void write(Markup& out, const LinePlot& plot);

}  // namespace TarvexDiags::Svg
