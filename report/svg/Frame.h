#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "report/svg/Markup.h"
#include "report/svg/Ticks.h"

namespace TarvexDiags::Svg {

/// What stands for a plot to who does not see it.
struct Heading {
  std::string id;  ///< unique in the page, of letters, digits and hyphens
  std::string title;
  std::string description;
};

/// From values to pixels.
struct Scale {
  double lowest = 0;
  double highest = 1;
  double begin = 0;  ///< the pixel of the lowest
  double end = 1;    ///< the pixel of the highest; may be the smaller one

  /// Within the pixels, whatever the value.
  double at(double value) const;
};

/// The part of a plot that holds the values, in pixels.
struct Area {
  double left = 0;
  double right = 0;
  double top = 0;
  double bottom = 0;
};

/// Plots are that wide and grow with the page; narrow windows show them as they are.
inline constexpr double kPlotWidth = 360;

/// Begins a plot: `closePlot` ends it. Colours and fonts come from the page, by class.
void openPlot(Markup& out, const Heading& heading, double width, double height);
void closePlot(Markup& out);

/// A line with round caps of a class.
void line(Markup& out, const char* ofClass, double fromX, double fromY, double toX, double toY);

/// @param anchor "start", "middle" or "end".
void label(Markup& out, double x, double y, const char* anchor, std::string_view text);

/// Lines across the area, with their numbers on the left. @param ticks at least two.
/// @return where the values stand.
Scale valueAxis(Markup& out, const Area& area, const std::vector<Tick>& ticks);

/// Numbers below the area, each with a line through it.
void axisBelow(Markup& out, const Area& area, const Scale& scale, const std::vector<Tick>& ticks);

/// The text cut to so many columns, of which wide characters take two, with an ellipsis.
std::string shortened(std::string_view text, std::size_t columns);

}  // namespace TarvexDiags::Svg
