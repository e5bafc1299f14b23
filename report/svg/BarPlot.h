#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/svg/Frame.h"

namespace TarvexDiags::Svg {

/// Amounts from zero, one below the other, each against its limit where it has one.
struct BarPlot {
  struct Bar {
    std::string label;
    std::string valueText;
    double value = 0;  ///< at least 0
    std::optional<double> limit;
    const char* ofClass = "bar";
  };

  Heading heading;
  std::vector<Bar> bars;
  bool isOfLimits = false;  ///< each bar is as wide as its share of its own limit
};

void write(Markup& out, const BarPlot& plot);

}  // namespace TarvexDiags::Svg
