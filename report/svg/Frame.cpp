#include "report/svg/Frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace TarvexDiags::Svg {

namespace {

constexpr double kTextDrop = 4;  ///< from the middle of a line of text to its foot
constexpr double kLineOfText = 15;
constexpr double kGap = 5;

// From the scripts of East Asia on, about.
bool isWide(unsigned char firstByte) {
  return firstByte >= 0xe1;
}

std::size_t lengthOfCharacter(unsigned char firstByte) {
  if (firstByte < 0xc0) {
    return 1;
  }
  return firstByte < 0xe0 ? 2 : firstByte < 0xf0 ? 3 : 4;
}

}  // namespace

double Scale::at(double value) const {
  const double span = highest / 2 - lowest / 2;
  const double share = span > 0 ? (value / 2 - lowest / 2) / span : 0;
  return begin + std::clamp(share, 0.0, 1.0) * (end - begin);
}

void openPlot(Markup& out, const Heading& heading, double width, double height) {
  out.open("svg", {{"class", "plot"},
                   {"viewBox", fmt::format("0 0 {} {}", pixels(width), pixels(height))},
                   {"role", "img"},
                   {"aria-labelledby", fmt::format("{0}-t {0}-d", heading.id)}});
  out.leaf("title", {{"id", heading.id + "-t"}}, heading.title);
  out.leaf("desc", {{"id", heading.id + "-d"}}, heading.description);
}

void closePlot(Markup& out) {
  out.close();
}

void line(Markup& out, const char* ofClass, double fromX, double fromY, double toX, double toY) {
  out.leaf("line",
           {{"class", ofClass},
            {"x1", pixels(fromX)},
            {"y1", pixels(fromY)},
            {"x2", pixels(toX)},
            {"y2", pixels(toY)}},
           "");
}

void label(Markup& out, double x, double y, const char* anchor, std::string_view text) {
  out.leaf("text", {{"x", pixels(x)}, {"y", pixels(y)}, {"text-anchor", anchor}}, text);
}

Scale valueAxis(Markup& out, const Area& area, const std::vector<Tick>& ticks) {
  const Scale scale{ticks.front().value, ticks.back().value, area.bottom, area.top};
  for (const Tick& tick : ticks) {
    const double y = scale.at(tick.value);
    line(out, "grid", area.left, y, area.right, y);
    label(out, area.left - kGap, y + kTextDrop, "end", tick.text);
  }
  return scale;
}

void axisBelow(Markup& out, const Area& area, const Scale& scale, const std::vector<Tick>& ticks) {
  for (const Tick& tick : ticks) {
    const double x = scale.at(tick.value);
    line(out, "grid", x, area.top, x, area.bottom);
    const bool isFirst = x < area.left + kGap;
    const bool isLast = x > area.right - kGap;
    label(out, x, area.bottom + kLineOfText,
          isFirst  ? "start"
          : isLast ? "end"
                   : "middle",
          tick.text);
  }
}

std::string shortened(std::string_view text, std::size_t columns) {
  std::size_t taken = 0;
  std::size_t fits = 0;  // bytes that leave a column for the ellipsis
  for (std::size_t place = 0; place < text.size();) {
    const auto byte = static_cast<unsigned char>(text[place]);
    taken += isWide(byte) ? 2 : 1;
    if (taken > columns) {
      return std::string(text.substr(0, fits)) + "\u2026";
    }
    place = std::min(place + lengthOfCharacter(byte), text.size());
    fits = taken < columns ? place : fits;
  }
  return std::string(text);
}

}  // namespace TarvexDiags::Svg
