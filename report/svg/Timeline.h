#pragma once

#include <string>
#include <vector>

#include "report/svg/Frame.h"

namespace TarvexDiags::Svg {

/// What went on side by side: a lane for each part, with spans and marks on it.
struct Timeline {
  /// How a span looks: its height and its sign tell apart what its colour does.
  struct Look {
    const char* ofClass = "";
    double share = 1;       ///< of the lane's height; above 0
    const char* sign = "";  ///< stands on a span that has a title
  };
  struct Span {
    double from = 0;  ///< seconds from the beginning
    double to = 0;
    Look look;
    std::string title;  ///< shown when it is pointed at; empty: it may be drawn in one with others
  };
  enum class Shape { Cross, Triangle, Square };
  struct Mark {
    double at = 0;
    Shape shape = Shape::Triangle;
    const char* ofClass = "";
    std::string title;
  };
  struct Lane {
    std::string label;
    std::vector<Span> spans;
    std::vector<Mark> marks;
  };

  Heading heading;
  double seconds = 0;
  std::vector<Lane> lanes;
};

inline constexpr double kTimelineWidth = 720;

/// Spans without a title that look alike and nearly touch are drawn as one, so that a lane stays
/// small whatever went on in it; none is so short that it is not seen. Of signs that would cover
/// each other and are the same, the first is drawn.
void write(Markup& out, const Timeline& timeline);

}  // namespace TarvexDiags::Svg
