#include "report/svg/Timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace TarvexDiags::Svg {

namespace {

constexpr double kLaneHeight = 40;
constexpr double kLaneName = 13;  ///< its foot, below the top of the lane
constexpr double kSpanTop = 18;   ///< below the top of the lane
constexpr double kSpanHeight = 16;
constexpr double kShortestSpan = 2;
constexpr double kNearby = 1.5;
constexpr double kSignFoot = 12;  ///< below the top of the spans
constexpr double kSignWidth = 10;
constexpr double kReach = 5;  ///< of a mark, from its middle
constexpr double kBelowLanes = 22;
constexpr double kTimelineSide = 6;
constexpr std::size_t kTimelineTicks = 7;
constexpr std::size_t kLaneColumns = 90;

/// In pixels.
struct Stretch {
  double from = 0;
  double to = 0;
};

std::string boxOf(const Stretch& stretch, double share, double top) {
  const double height = kSpanHeight * share;
  return fmt::format(
      "M{} {}h{}v{}h-{}z", pixels(stretch.from), pixels(top + kSpanTop + kSpanHeight - height),
      pixels(stretch.to - stretch.from), pixels(height), pixels(stretch.to - stretch.from));
}

void writeSpan(Markup& out, const char* ofClass, const std::string& path,
               const std::string& title) {
  out.open("path", {{"class", ofClass}, {"d", path}});
  if (!title.empty()) {
    out.leaf("title", title);
  }
  out.close();
}

std::vector<Stretch> joined(std::vector<Stretch> stretches) {
  std::sort(stretches.begin(), stretches.end(),
            [](const Stretch& left, const Stretch& right) { return left.from < right.from; });
  std::vector<Stretch> joined;
  for (const Stretch& stretch : stretches) {
    if (!joined.empty() && stretch.from <= joined.back().to + kNearby) {
      joined.back().to = std::max(joined.back().to, stretch.to);
    } else {
      joined.push_back(stretch);
    }
  }
  return joined;
}

Stretch stretchOf(const Timeline::Span& span, const Scale& times) {
  const double from = std::min(times.at(span.from), times.end - kShortestSpan);
  return {from, std::max(times.at(span.to), from + kShortestSpan)};
}

void writeSpans(Markup& out, const Timeline::Lane& lane, const Scale& times, double top) {
  std::map<std::pair<std::string, double>, std::vector<Stretch>> alike;
  for (const Timeline::Span& span : lane.spans) {
    if (span.title.empty()) {
      alike[{span.look.ofClass, span.look.share}].push_back(stretchOf(span, times));
    }
  }
  for (const auto& [look, stretches] : alike) {
    std::string path;
    for (const Stretch& stretch : joined(stretches)) {
      path += boxOf(stretch, look.second, top);
    }
    writeSpan(out, look.first.c_str(), path, "");
  }
  for (const Timeline::Span& span : lane.spans) {
    if (!span.title.empty()) {
      writeSpan(out, span.look.ofClass, boxOf(stretchOf(span, times), span.look.share, top),
                span.title);
    }
  }
}

// Each beside the one before it.
void writeSigns(Markup& out, const Timeline::Lane& lane, const Scale& times, double top) {
  std::map<double, std::string> signs;
  for (const Timeline::Span& span : lane.spans) {
    if (!span.title.empty() && *span.look.sign != '\0') {
      signs.emplace(stretchOf(span, times).from, span.look.sign);
    }
  }
  double free = times.begin;
  std::string last;
  for (const auto& [from, sign] : signs) {
    if (from < free && sign == last) {
      continue;
    }
    const double x = std::min(std::max(from, free), times.end - kSignWidth);
    out.leaf("text",
             {{"class", "sign"}, {"x", pixels(x)}, {"y", pixels(top + kSpanTop + kSignFoot)}},
             sign);
    free = x + kSignWidth;
    last = sign;
  }
}

std::string pathOf(Timeline::Shape shape, double x, double y) {
  const std::string reach = pixels(kReach);
  const std::string twice = pixels(2 * kReach);
  switch (shape) {
    case Timeline::Shape::Cross:
      return fmt::format("M{0} {1}l{3} {3}M{2} {1}l-{3} {3}", pixels(x - kReach),
                         pixels(y - kReach), pixels(x + kReach), twice);
    case Timeline::Shape::Triangle:
      return fmt::format("M{} {}l{} {}h-{}z", pixels(x), pixels(y - kReach), reach, twice, twice);
    case Timeline::Shape::Square:
      break;
  }
  return fmt::format("M{} {}h{}v{}h-{}z", pixels(x - kReach), pixels(y - kReach), twice, twice,
                     twice);
}

void writeLane(Markup& out, const Timeline::Lane& lane, const Scale& times, double top) {
  label(out, kTimelineSide, top + kLaneName, "start", shortened(lane.label, kLaneColumns));
  line(out, "lane", times.begin, top + kSpanTop + kSpanHeight, times.end,
       top + kSpanTop + kSpanHeight);
  writeSpans(out, lane, times, top);
  writeSigns(out, lane, times, top);
  for (const Timeline::Mark& mark : lane.marks) {
    const double x = std::clamp(times.at(mark.at), times.begin + kReach, times.end - kReach);
    writeSpan(out, mark.ofClass, pathOf(mark.shape, x, top + kSpanTop + kSpanHeight / 2),
              mark.title);
  }
}

}  // namespace

void write(Markup& out, const Timeline& timeline) {
  const double bottom = kLaneHeight * static_cast<double>(timeline.lanes.size());
  const Area area{
      .left = kTimelineSide, .right = kTimelineWidth - kTimelineSide, .top = 0, .bottom = bottom};
  const double seconds = std::max(timeline.seconds, 1e-3);
  const Scale times{0, seconds, area.left, area.right};
  openPlot(out, timeline.heading, kTimelineWidth, bottom + kBelowLanes);
  axisBelow(out, area, times, timesWithin(seconds, kTimelineTicks));
  double top = 0;
  for (const Timeline::Lane& lane : timeline.lanes) {
    writeLane(out, lane, times, top);
    top += kLaneHeight;
  }
  closePlot(out);
}

}  // namespace TarvexDiags::Svg
