#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/svg/Frame.h"

namespace TarvexDiags::Svg {

/// Amounts from zero, one below the other, each against its whole or its limit where it has one.
struct BarPlot {
  struct Bar {
    std::string label;
    std::string valueText;
    double value = 0;             ///< at least 0
    double whole = 0;             ///< what the bar is a part of; 0: the largest of the plot
    std::optional<double> limit;  ///< marked by a line
  };

  Heading heading;
  std::vector<Bar> bars;
};

void write(Markup& out, const BarPlot& plot);

}  // namespace TarvexDiags::Svg
