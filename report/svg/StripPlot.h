#pragma once

#include <string>
#include <vector>

#include "report/svg/Frame.h"

namespace TarvexDiags::Svg {

/// Siblings beside each other on one axis: a dot for each, so that one that differs stands alone.
struct StripPlot {
  struct Dot {
    std::string label;
    double value = 0;
  };
  struct Row {
    std::string label;
    std::vector<Dot> dots;
  };

  Heading heading;
  std::vector<Row> rows;
};

/// Dots of a row that share a pixel are drawn as one, which names the first of them. A line marks
/// the median.
void write(Markup& out, const StripPlot& plot);

}  // namespace TarvexDiags::Svg
