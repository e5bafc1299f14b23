// What a page draws: what ran when, what sensors showed, and figures of siblings.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <vector>

#include "diagctl/report/HtmlSections.h"
#include "diagctl/report/HtmlWords.h"
#include "diagctl/terminal/Translation.h"
#include "report/svg/BarPlot.h"
#include "report/svg/LinePlot.h"
#include "report/svg/StripPlot.h"
#include "report/svg/Timeline.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

constexpr std::size_t kMostLanesDrawn = 128;
constexpr std::size_t kLeastLanesDrawn = 64;  ///< however much each of them has
constexpr std::size_t kMostLaneBytes = 450UL << 10U;
constexpr std::size_t kMostLaneTableBytes = 150UL << 10U;
constexpr std::size_t kMostTitles = 300;
constexpr std::size_t kMostMarksDrawn = 300;
constexpr std::size_t kMostMarksTold = 3;  ///< of a lane, in its table
constexpr std::size_t kTitleLength = 200;
constexpr std::size_t kMostSensorsDrawn = 48;
constexpr std::size_t kMostSensorsOpen = 6;  ///< of a group; the others are folded
constexpr std::size_t kMostRowsOfSeries = 24;
constexpr std::size_t kMostFigureBytes = 450UL << 10U;
constexpr std::size_t kMostBars = 8;
constexpr std::size_t kMostRowsOfFigure = 100;
constexpr std::size_t kMostStrips = 12;
constexpr double kLowSpan = 0.5;
constexpr double kBeyondLimit = 1.1;  ///< so that the line at a limit stands within the bar

std::size_t problemsOf(const RunStory::Lane& lane) {
  std::size_t problems = 0;
  for (const auto& [outcome, count] : lane.sums) {
    problems += isProblem(outcome) ? count : 0;
  }
  return problems;
}

using Lanes = std::vector<const RunStory::Lane*>;

// In their order; where there are too many to draw, those with problems before others.
Lanes lanesOf(const RunStory& story) {
  Lanes lanes;
  for (const RunStory::Lane& lane : story.lanes()) {
    lanes.push_back(&lane);
  }
  if (lanes.size() > kLeastLanesDrawn) {
    std::stable_partition(lanes.begin(), lanes.end(), [](const RunStory::Lane* lane) {
      return problemsOf(*lane) > 0 || !lane->marks.empty();
    });
  }
  return lanes;
}

Svg::Timeline::Mark drawn(const RunStory::Mark& mark) {
  const std::string title = shown(mark.text, kTitleLength);
  switch (mark.verdict) {
    case Verdict::Fail:
      return {mark.at, Svg::Timeline::Shape::Cross, "findingfailed", title};
    case Verdict::Unknown:
      return {mark.at, Svg::Timeline::Shape::Triangle, "findingwarned", title};
    case Verdict::Pass:
      break;
  }
  return {mark.at, Svg::Timeline::Shape::Square, "findingtroubled", title};
}

/// What may still be drawn by itself.
struct Room {
  std::size_t titles = kMostTitles;
  std::size_t marks = kMostMarksDrawn;
};

std::string titleOf(const RunStory::Problem& problem) {
  return shown(tr("{}: {}, {}", told(wordOf(problem.outcome)), problem.start.test, problem.finding),
               kTitleLength);
}

Svg::Timeline::Lane laneOf(const RunStory& story, const RunStory::Lane& lane, Room& room) {
  Svg::Timeline::Lane drawing;
  drawing.label = shown(lane.device);
  for (const RunStory::Span& span : lane.spans) {
    const bool isLow = span.outcome == StepRecord::Outcome::Passed;
    const Look look = lookOf(span.outcome);
    Svg::Timeline::Span of{
        span.from, span.to, {look.ofClass, isLow ? kLowSpan : 1, look.symbol}, ""};
    if (!isLow && room.titles > 0) {
      --room.titles;
      of.title = span.problem > 0 ? titleOf(story.problems()[span.problem - 1])
                                  : told(wordOf(span.outcome));
    }
    drawing.spans.push_back(of);
  }
  for (const RunStory::Mark& mark : lane.marks) {
    if (room.marks > 0) {
      --room.marks;
      drawing.marks.push_back(drawn(mark));
    }
  }
  return drawing;
}

std::string findingsOf(const RunStory::Lane& lane) {
  std::string findings;
  const std::size_t told = std::min(lane.marks.size(), kMostMarksTold);
  for (std::size_t place = 0; place < told; ++place) {
    const RunStory::Mark& mark = lane.marks[place];
    findings += fmt::format("{}{} {}", place == 0 ? "" : "\n", offsetText(mark.at),
                            shown(mark.text, kTitleLength));
  }
  return told < lane.marks.size() ? findings + "\n" + tr("and {} more", lane.marks.size() - told)
                                  : findings;
}

void writeLanesAsTable(Svg::Markup& out, const Lanes& lanes) {
  const Folded folded(out, tr("The same as a table"), "data");
  Table table(out, tr("What ran on each device, and when since the beginning of the run"),
              {tr("Device"), "#" + tr("From"), "#" + tr("To"), tr("Tests"), tr("Watch")});
  const std::size_t begin = out.size();
  std::size_t written = 0;
  for (const RunStory::Lane* lane : lanes) {
    if (out.size() - begin > kMostLaneTableBytes && written >= kLeastLanesDrawn) {
      break;
    }
    ++written;
    double from = std::numeric_limits<double>::max();
    double to = 0;
    for (const RunStory::Span& span : lane->spans) {
      from = std::min<double>(from, span.from);
      to = std::max<double>(to, span.to);
    }
    table.row({lane->device, lane->spans.empty() ? "" : offsetText(from),
               lane->spans.empty() ? "" : offsetText(to), toText(lane->sums), findingsOf(*lane)});
  }
  table.rowOfMore(lanes.size() - written);
}

// Sensors of one quantity stand together, under its name.
enum class Group { Temperatures, Frequencies, Fans, Power, Voltages, Shares, Others };

Group groupOf(const std::string& unit) {
  static const std::map<std::string, Group> kGroups = {
      {"\u00b0C", Group::Temperatures}, {"MHz", Group::Frequencies}, {"GHz", Group::Frequencies},
      {"Hz", Group::Frequencies},       {"RPM", Group::Fans},        {"W", Group::Power},
      {"V", Group::Voltages},           {"%", Group::Shares}};
  const auto group = kGroups.find(unit);
  return group != kGroups.end() ? group->second : Group::Others;
}

std::string titleOf(Group group) {
  switch (group) {
    case Group::Temperatures:
      return tr("Temperatures");
    case Group::Frequencies:
      return tr("Frequencies");
    case Group::Fans:
      return tr("Fans");
    case Group::Power:
      return tr("Power");
    case Group::Voltages:
      return tr("Voltages");
    case Group::Shares:
      return tr("Shares");
    case Group::Others:
      break;
  }
  return tr("Other sensors");
}

struct Range {
  double lowest = std::numeric_limits<double>::max();
  double highest = std::numeric_limits<double>::lowest();
};

Range rangeOf(const RunStory::Sensor& sensor) {
  Range range;
  for (const Svg::ThinnedSeries::Bucket& bucket : sensor.values.buckets()) {
    range.lowest = std::min(range.lowest, bucket.lowest.y);
    range.highest = std::max(range.highest, bucket.highest.y);
  }
  return range;
}

std::string rangeText(const RunStory::Sensor& sensor, const Range& range) {
  const std::string text =
      tr("{} to {} {}", numberText(range.lowest), numberText(range.highest), shown(sensor.unit));
  return sensor.most ? tr("{}, limit {}", text, numberText(*sensor.most)) : text;
}

void writeSensor(Svg::Markup& out, const RunStory::Sensor& sensor, const std::string& id,
                 double seconds) {
  const Range range = rangeOf(sensor);
  const std::string name = shown(sensor.name);
  out.open("figure");
  out.open("figcaption");
  out.text(name);
  out.leaf("span", fmt::format(" {}", rangeText(sensor, range)));
  out.close();
  Svg::write(out,
             Svg::LinePlot{
                 {id, name, tr("A line over the time of the run: {}.", rangeText(sensor, range))},
                 sensor.values.points(),
                 seconds,
                 sensor.most});
  {
    const Folded folded(out, tr("The same as a table"), "data");
    Table table(out, tr("{} in {}", name, shown(sensor.unit)),
                {"#" + tr("From"), "#" + tr("To"), "#" + tr("Lowest"), "#" + tr("Highest")});
    const Svg::ThinnedSeries few = sensor.values.thinned(kMostRowsOfSeries);
    for (const Svg::ThinnedSeries::Bucket& bucket : few.buckets()) {
      table.row({offsetText(bucket.from), offsetText(bucket.to), numberText(bucket.lowest.y),
                 numberText(bucket.highest.y)});
    }
  }
  out.close();
}

// The hottest, by what is left to its limit, is what matters first.
std::vector<const RunStory::Sensor*> sensorsOf(const RunStory& story) {
  std::vector<const RunStory::Sensor*> sensors;
  for (const RunStory::Sensor& sensor : story.sensors()) {
    if (sensor.values.count() > 0) {
      sensors.push_back(&sensor);
    }
  }
  const auto shareOf = [](const RunStory::Sensor* sensor) {
    return sensor->most && *sensor->most > 0 ? rangeOf(*sensor).highest / *sensor->most : 0;
  };
  std::stable_sort(sensors.begin(), sensors.end(),
                   [&](const RunStory::Sensor* left, const RunStory::Sensor* right) {
                     const Group first = groupOf(left->unit);
                     const Group second = groupOf(right->unit);
                     return first != second ? first < second : shareOf(left) > shareOf(right);
                   });
  return sensors;
}

void writeLimitsAsTable(Svg::Markup& out, const std::vector<const RunStory::Sensor*>& sensors) {
  const Folded folded(out, tr("The same as a table"), "data");
  Table table(out, tr("Highest values against their limits"),
              {tr("Sensor"), "#" + tr("Highest"), "#" + tr("Limit"), tr("Unit")});
  for (const RunStory::Sensor* sensor : sensors) {
    table.row({sensor->name, numberText(rangeOf(*sensor).highest), numberText(*sensor->most),
               sensor->unit});
  }
}

// The highest value of each against its limit.
void writeLimits(Svg::Markup& out, const PageRun& run,
                 std::vector<const RunStory::Sensor*> sensors) {
  std::erase_if(sensors,
                [](const RunStory::Sensor* sensor) { return !sensor->most || *sensor->most <= 0; });
  if (sensors.empty()) {
    return;
  }
  Svg::BarPlot plot{{run.id + "-limits", tr("Highest values against their limits"),
                     tr("Bars: the highest value of each sensor, with a line at its limit. The "
                        "table below tells the same.")},
                    {}};
  for (std::size_t place = 0; place < std::min(sensors.size(), kMostBars); ++place) {
    const RunStory::Sensor& sensor = *sensors[place];
    const double highest = std::max(rangeOf(sensor).highest, 0.0);
    plot.bars.push_back(
        {shown(sensor.name),
         tr("{} of {} {}", numberText(highest), numberText(*sensor.most), shown(sensor.unit)),
         highest, std::max(highest, *sensor.most) * kBeyondLimit, sensor.most});
  }
  out.open("figure", {{"class", "bars"}});
  out.leaf("figcaption", tr("Highest values against their limits"));
  Svg::write(out, plot);
  writeLimitsAsTable(out, sensors);
  out.close();
}

/// Siblings of one figure in a plot, and what names it.
struct FigurePlot {
  std::string id;
  std::string title;
  std::string description;
};

void writeBars(Svg::Markup& out, const RunStory& story, const FigurePlot& figure,
               const std::string& unit, const std::vector<RunStory::Value>& values) {
  Svg::BarPlot plot{{figure.id, figure.title, figure.description}, {}};
  for (const RunStory::Value& value : values) {
    plot.bars.push_back({shown(story.lanes()[value.lane].device),
                         fmt::format("{} {}", numberText(value.value), shown(unit)), value.value, 0,
                         std::nullopt});
  }
  Svg::write(out, plot);
}

void writeStrips(Svg::Markup& out, const RunStory& story, const FigurePlot& figure,
                 const std::string& unit, const RunStory::ValuesByTest& values) {
  Svg::StripPlot plot{{figure.id, figure.title, figure.description}, {}};
  for (const auto& [test, of] : values) {
    if (of.size() < 2 || plot.rows.size() == kMostStrips) {
      continue;
    }
    Svg::StripPlot::Row row{shown(test), {}};
    for (const RunStory::Value& value : of) {
      row.dots.push_back({fmt::format("{}: {} {}", shown(story.lanes()[value.lane].device),
                                      numberText(value.value), shown(unit)),
                          value.value});
    }
    plot.rows.push_back(row);
  }
  Svg::write(out, plot);
}

void writeFigureTable(Svg::Markup& out, const RunStory& story, const std::string& title,
                      const RunStory::ValuesByTest& values) {
  const Folded folded(out, tr("The same as a table"), "data");
  Table table(out, title, {tr("Test"), tr("Device"), "#" + tr("Value")});
  std::size_t written = 0;
  for (const auto& [test, of] : values) {
    for (const RunStory::Value& value : of) {
      if (written++ < kMostRowsOfFigure) {
        table.row({test, story.lanes()[value.lane].device, numberText(value.value)});
      }
    }
  }
  table.rowOfMore(written > kMostRowsOfFigure ? written - kMostRowsOfFigure : 0);
}

// The two that stand farthest apart, for who does not look at the plot.
std::string extremesOf(const RunStory& story, const std::string& unit,
                       const RunStory::ValuesByTest& values) {
  const RunStory::Value* lowest = nullptr;
  const RunStory::Value* highest = nullptr;
  for (const auto& [test, of] : values) {
    for (const RunStory::Value& value : of) {
      lowest = lowest == nullptr || value.value < lowest->value ? &value : lowest;
      highest = highest == nullptr || value.value > highest->value ? &value : highest;
    }
  }
  return lowest == nullptr
             ? ""
             : tr("lowest {0} {4} on {1}, highest {2} {4} on {3}", numberText(lowest->value),
                  story.lanes()[lowest->lane].device, numberText(highest->value),
                  story.lanes()[highest->lane].device, unit);
}

void writeFigure(Svg::Markup& out, const RunStory& story, const RunStory::FigureKey& key,
                 const RunStory::ValuesByTest& values, const std::string& id) {
  const std::string title = shown(tr("{}: {}", key.package, toWords(key.name)));
  const std::string extremes = shown(extremesOf(story, key.unit, values));
  const FigurePlot figure{
      id, title, tr("Devices beside each other: {}. The table below tells all.", extremes)};
  out.open("figure");
  out.open("figcaption");
  out.text(title);
  out.leaf("span", fmt::format(" {}", extremes));
  out.close();
  const std::vector<RunStory::Value>& first = values.begin()->second;
  const bool isOfBars = values.size() == 1 && first.size() <= kMostBars &&
                        std::all_of(first.begin(), first.end(),
                                    [](const RunStory::Value& value) { return value.value >= 0; });
  if (isOfBars) {
    writeBars(out, story, figure, key.unit, first);
  } else {
    writeStrips(out, story, figure, key.unit, values);
  }
  writeFigureTable(out, story, title, values);
  out.close();
}

// One value alone is no picture; it stands in the table of tests.
bool isWorthAPlot(const RunStory::ValuesByTest& values) {
  return std::any_of(values.begin(), values.end(),
                     [](const auto& of) { return of.second.size() > 1; });
}

using Sensors = std::vector<const RunStory::Sensor*>;
using SensorsFrom = Sensors::const_iterator;

void writePlots(Svg::Markup& out, const PageRun& run, SensorsFrom from, SensorsFrom to,
                std::size_t& number) {
  out.open("div", {{"class", "plots"}});
  for (; from != to; ++from) {
    writeSensor(out, **from, fmt::format("{}-sensor{}", run.id, ++number), run.record.seconds());
  }
  out.close();
}

// What no picture has room for is told in a line.
void writeUndrawn(Svg::Markup& out, SensorsFrom from, SensorsFrom to) {
  const auto count = static_cast<std::size_t>(to - from);
  const Folded folded(out, trn("1 more sensor, as a table", "{} more sensors, as a table", count));
  Table table(
      out, tr("Sensors that are not drawn"),
      {tr("Sensor"), "#" + tr("Lowest"), "#" + tr("Highest"), "#" + tr("Limit"), tr("Unit")});
  for (; from != to; ++from) {
    const RunStory::Sensor& sensor = **from;
    const Range range = rangeOf(sensor);
    table.row({sensor.name, numberText(range.lowest), numberText(range.highest),
               sensor.most ? numberText(*sensor.most) : "", sensor.unit});
  }
}

/// How many sensors of each group are drawn: as many of one as of another while there are any.
std::map<Group, std::size_t> sharesOf(const Sensors& sensors) {
  std::map<Group, std::size_t> counts;
  for (const RunStory::Sensor* sensor : sensors) {
    ++counts[groupOf(sensor->unit)];
  }
  std::map<Group, std::size_t> shares;
  for (std::size_t left = std::min(sensors.size(), kMostSensorsDrawn); left > 0;) {
    for (const auto& [group, count] : counts) {
      if (left > 0 && shares[group] < count) {
        ++shares[group];
        --left;
      }
    }
  }
  return shares;
}

void writeGroup(Svg::Markup& out, const PageRun& run, SensorsFrom from, SensorsFrom to,
                std::size_t& number) {
  const auto open = from + std::min<std::ptrdiff_t>(to - from, kMostSensorsOpen);
  writePlots(out, run, from, open, number);
  if (open != to) {
    const Folded folded(
        out, trn("1 more sensor", "{} more sensors", static_cast<std::size_t>(to - open)));
    writePlots(out, run, open, to, number);
  }
}

Svg::Markup drawingOf(const PageRun& run, const Lanes& lanes, std::size_t count) {
  Svg::Timeline timeline{{run.id + "-lanes", tr("What ran when, by device"),
                          tr("A lane for each device, over the time of the run. The table below "
                             "tells the same.")},
                         run.record.seconds(),
                         {}};
  Room room;
  for (std::size_t place = 0; place < count; ++place) {
    timeline.lanes.push_back(laneOf(run.story, *lanes[place], room));
  }
  Svg::Markup drawing;
  Svg::write(drawing, timeline);
  return drawing;
}

}  // namespace

void writeTimeline(Svg::Markup& out, const PageRun& run) {
  if (run.story.lanes().empty()) {
    return;
  }
  const Section section(out, run.id + "-timeline", tr("What ran when"));
  const Lanes lanes = lanesOf(run.story);
  std::size_t drawn = std::min(lanes.size(), kMostLanesDrawn);
  Svg::Markup drawing = drawingOf(run, lanes, drawn);
  if (drawn > kLeastLanesDrawn && drawing.size() > kMostLaneBytes) {
    drawn = kLeastLanesDrawn;
    drawing = drawingOf(run, lanes, drawn);
  }
  writeParagraph(out, "quiet",
                 tr("Low bars have passed, tall ones have not and bear the sign of their verdict. "
                    "What the watch found beside the tests: \u2715 a failure, \u25b2 a warning or "
                    "trouble, \u25a0 news."));
  out.open("div", {{"class", "wide"},
                   {"tabindex", "0"},
                   {"role", "group"},
                   {"aria-label", tr("What ran when, by device")}});
  out.open("div", {{"class", "timeline"}});
  out.append(drawing);
  out.close();
  out.close();
  if (drawn < lanes.size()) {
    writeParagraph(out, "quiet",
                   trn("and 1 more device, which the table has",
                       "and {} more devices, which the table has", lanes.size() - drawn));
  }
  if (const std::size_t further = run.story.omitted().lanes; further > 0) {
    writeParagraph(
        out, "quiet",
        trn("and 1 more test, which the log has", "and {} more tests, which the log has", further));
  }
  writeLanesAsTable(out, lanes);
}

void writeSensors(Svg::Markup& out, const PageRun& run) {
  std::vector<const RunStory::Sensor*> sensors = sensorsOf(run.story);
  if (sensors.empty()) {
    return;
  }
  const Section section(out, run.id + "-sensors", tr("Temperatures, frequencies, fans, power"));
  writeLimits(out, run, sensors);
  std::size_t number = 0;
  auto from = sensors.cbegin();
  for (const auto& [group, share] : sharesOf(sensors)) {
    const auto to = std::find_if(
        from, sensors.cend(),
        [of = group](const RunStory::Sensor* sensor) { return groupOf(sensor->unit) != of; });
    const auto drawn = from + static_cast<std::ptrdiff_t>(share);
    out.leaf("h4", titleOf(group));
    writeGroup(out, run, from, drawn, number);
    if (drawn != to) {
      writeUndrawn(out, drawn, to);
    }
    from = to;
  }
  if (const std::size_t further = run.story.omitted().sensors; further > 0) {
    writeParagraph(out, "quiet",
                   trn("and 1 more sensor, which the log has",
                       "and {} more sensors, which the log has", further));
  }
}

void writeFigures(Svg::Markup& out, const PageRun& run) {
  const auto& figures = run.story.figures();
  const bool hasAny = std::any_of(figures.begin(), figures.end(),
                                  [](const auto& figure) { return isWorthAPlot(figure.second); });
  if (!hasAny) {
    return;
  }
  const Section section(out, run.id + "-figures", tr("Figures of siblings"));
  const std::size_t begin = out.size();
  std::size_t number = 0;
  std::size_t further = 0;
  out.open("div", {{"class", "plots"}});
  for (const auto& [key, values] : figures) {
    if (!isWorthAPlot(values)) {
      continue;
    }
    if (out.size() - begin > kMostFigureBytes) {
      ++further;
      continue;
    }
    writeFigure(out, run.story, key, values, fmt::format("{}-figure{}", run.id, ++number));
  }
  out.close();
  if (further > 0) {
    writeParagraph(out, "quiet",
                   trn("and 1 more figure, which the log has",
                       "and {} more figures, which the log has", further));
  }
  if (const std::size_t values = run.story.omitted().values; values > 0) {
    writeParagraph(out, "quiet",
                   trn("and 1 more value, which the log has",
                       "and {} more values, which the log has", values));
  }
}

}  // namespace TarvexDiags::FrontEnd::Html
