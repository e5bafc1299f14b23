// What a page begins with: verdict, what to do, the machine, coverage.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <vector>

#include "diagctl/report/HtmlSections.h"
#include "diagctl/report/HtmlWords.h"
#include "diagctl/report/NodeNames.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Translation.h"
#include "report/svg/BarPlot.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

constexpr std::size_t kMostPartsBytes = 200UL << 10U;
constexpr std::size_t kMostPerPart = 8;
constexpr std::size_t kMostBarsOfBytes = 64;
constexpr std::size_t kMostTestsNamed = 5;
constexpr std::size_t kMostReasons = 30;
constexpr std::size_t kMostPlatforms = 20;
constexpr std::size_t kMostHardwareBytes = 100UL << 10U;
constexpr std::size_t kFindingLength = 600;

int urgencyOf(StepRecord::Outcome outcome) {
  switch (outcome) {
    case StepRecord::Outcome::Failed:
      return 0;
    case StepRecord::Outcome::Trouble:
      return 1;
    default:
      return 2;
  }
}

/// One thing to do about a part, whichever tests have found it.
struct Task {
  StepRecord::Outcome outcome;
  std::string finding;
  std::string action;
  std::vector<std::string> tests;
};

struct Part {
  std::string device;
  int urgency = 2;
  std::vector<Task> tasks;
};

void addTo(Part& part, const RunStory::Problem& problem) {
  part.urgency = std::min(part.urgency, urgencyOf(problem.outcome));
  for (Task& task : part.tasks) {
    if (std::tie(task.outcome, task.finding, task.action) ==
        std::tie(problem.outcome, problem.finding, problem.action)) {
      task.tests.push_back(problem.start.test);
      return;
    }
  }
  part.tasks.push_back({problem.outcome, problem.finding, problem.action, {problem.start.test}});
}

// The most urgent first, else in the order in which they showed.
std::vector<Part> partsOf(const RunStory& story) {
  std::vector<Part> parts;
  std::map<std::string, std::size_t> places;
  for (const RunStory::Problem& problem : story.problems()) {
    const auto [place, isNew] = places.try_emplace(problem.start.device, parts.size());
    if (isNew) {
      parts.push_back({problem.start.device, 2, {}});
    }
    addTo(parts[place->second], problem);
  }
  for (Part& part : parts) {
    std::stable_sort(part.tasks.begin(), part.tasks.end(), [](const Task& left, const Task& right) {
      return urgencyOf(left.outcome) < urgencyOf(right.outcome);
    });
  }
  std::stable_sort(parts.begin(), parts.end(), [](const Part& left, const Part& right) {
    return left.urgency < right.urgency;
  });
  return parts;
}

std::string namesOf(const std::vector<std::string>& tests) {
  std::string names;
  for (std::size_t place = 0; place < std::min(tests.size(), kMostTestsNamed); ++place) {
    names += (place == 0 ? "" : ", ") + tests[place];
  }
  return tests.size() > kMostTestsNamed
             ? tr("{} and {} more", names, tests.size() - kMostTestsNamed)
             : names;
}

void writeTask(Svg::Markup& out, const Task& task) {
  out.open("li");
  writeBadge(out, task.outcome);
  out.leaf("span", {{"class", "told"}}, " " + shown(task.finding, kFindingLength));
  writeParagraph(out, "action",
                 task.action.empty() ? "" : "\u2192 " + shown(task.action, kFindingLength));
  writeParagraph(out, "quiet", tr("Found by: {}", namesOf(task.tests)));
  out.close();
}

// Where it is and what names it to who replaces it.
std::string identityOf(const RunStory& story, const std::string& device) {
  for (const HardwareItem& item : story.start().hardware) {
    if (item.name == device) {
      return item.serialNumber.empty()
                 ? item.location
                 : tr("{}, serial number {}", item.location, item.serialNumber);
    }
  }
  return "";
}

void writePart(Svg::Markup& out, const RunStory& story, const Part& part) {
  out.open("li");
  out.open("h4");
  out.text(shown(part.device));
  if (const std::string identity = identityOf(story, part.device); !identity.empty()) {
    out.leaf("span", {{"class", "quiet"}}, fmt::format(" ({})", shown(identity)));
  }
  out.close();
  out.open("ul");
  for (std::size_t place = 0; place < std::min(part.tasks.size(), kMostPerPart); ++place) {
    writeTask(out, part.tasks[place]);
  }
  out.close();
  if (part.tasks.size() > kMostPerPart) {
    writeParagraph(out, "quiet", tr("and {} more", part.tasks.size() - kMostPerPart));
  }
  out.close();
}

void writeTroublesOfRun(Svg::Markup& out, const RunRecord& record) {
  if (record.hasEnded() && record.troubles().empty()) {
    return;
  }
  out.open("li");
  out.leaf("h4", tr("The run as a whole"));
  out.open("ul");
  if (!record.hasEnded()) {
    out.open("li");
    writeBadge(out, StepRecord::Outcome::Trouble);
    out.text(" " + tr("The run was cut short."));
    writeParagraph(out, "action", "\u2192 " + tr("Run it again."));
    out.close();
  }
  for (const std::string& trouble : record.troubles()) {
    out.open("li");
    writeBadge(out, StepRecord::Outcome::Trouble);
    out.leaf("span", {{"class", "told"}}, " " + shown(trouble, kFindingLength));
    out.close();
  }
  out.close();
  if (record.troubles().omitted() > 0) {
    writeParagraph(out, "quiet", moreOf(record.troubles()));
  }
  out.close();
}

// What has no verdict because it did not run, by its reasons.
void writeLeftOut(Svg::Markup& out, const RunStory& story) {
  std::map<std::pair<StepRecord::Outcome, std::string>, std::size_t> reasons;
  for (const auto& [key, fold] : story.folds()) {
    if (key.outcome != StepRecord::Outcome::Passed && !isProblem(key.outcome)) {
      reasons[{key.outcome, key.reason}] += fold.count;
    }
  }
  if (reasons.empty()) {
    return;
  }
  out.open("li");
  out.leaf("h4", tr("Not tested"));
  out.open("ul");
  std::size_t written = 0;
  for (const auto& [reason, count] : reasons) {
    if (written++ == kMostReasons) {
      out.leaf("li", tr("and {} more", reasons.size() - kMostReasons));
      break;
    }
    out.open("li");
    writeBadge(out, reason.first);
    out.text(" " + testsText(count));
    out.text(reason.first == StepRecord::Outcome::NotRun
                 ? ": " + tr("the run was ended before their turn")
             : reason.second.empty() ? ""
                                     : ": " + shown(reason.second, kFindingLength));
    out.close();
  }
  out.close();
  out.close();
}

void writeFact(Svg::Markup& out, const std::string& name, const std::string& value) {
  if (!value.empty()) {
    out.leaf("dt", name);
    out.leaf("dd", shown(value));
  }
}

void writeHardware(Svg::Markup& out, const RunStarted& start) {
  if (start.hardware.empty()) {
    return;
  }
  const Folded folded(out, tr("Devices that were found ({})", start.hardware.size()));
  Table table(out, tr("Devices that were found"),
              {tr("Device"), tr("Place"), tr("Manufacturer"), tr("Part number"),
               tr("Serial number"), tr("Firmware")});
  const std::size_t begin = out.size();
  std::size_t written = 0;
  for (const HardwareItem& item : start.hardware) {
    if (out.size() - begin > kMostHardwareBytes) {
      break;
    }
    table.row({item.name, item.location, item.manufacturer, item.partNumber, item.serialNumber,
               item.version});
    ++written;
  }
  table.rowOfMore(start.hardware.size() - written);
}

void writeBytes(Svg::Markup& out, const PageRun& run) {
  Svg::BarPlot plot{{run.id + "-bytes", tr("Covered of each device"),
                     tr("Bars: how much of each device the tests have covered. The table below "
                        "tells the same.")},
                    {}};
  for (const RunStory::Lane& lane : run.story.lanes()) {
    if (lane.coveredBytes > 0 && plot.bars.size() < kMostBarsOfBytes) {
      plot.bars.push_back({shown(lane.device), describeCoverage(lane.coveredBytes, lane.totalBytes),
                           lane.coveredBytes, std::max(lane.totalBytes, lane.coveredBytes),
                           std::nullopt});
    }
  }
  if (plot.bars.empty()) {
    return;
  }
  out.open("figure", {{"class", "bars"}});
  Svg::write(out, plot);
  out.close();
}

// Which they are, as their devices are named.
void writeCores(Svg::Markup& out, const RunStory& story) {
  std::vector<std::string> names;
  for (const RunStory::Lane& lane : story.lanes()) {
    if (lane.coveredCores > 0) {
      names.push_back(lane.device);
    }
  }
  writeParagraph(out, "told",
                 names.empty() ? "" : tr("Cores that were tested: {}", foldedNames(names)));
}

std::size_t countOf(const OutcomeSums& sums) {
  std::size_t count = 0;
  for (const auto& [outcome, number] : sums) {
    count += number;
  }
  return count;
}

}  // namespace

void writeVerdict(Svg::Markup& out, const PageRun& run) {
  const Look look = lookOf(run.verdict);
  const std::string sums = toText(run.record.sums());
  out.open("div", {{"class", look.ofClass}});
  out.open("div", {{"class", "verdict"}});
  out.open("h2", {{"id", run.id + "-verdict"}});
  writeSymbol(out, look.symbol);
  out.text(toText(run.verdict));
  out.close();
  writeParagraph(out, "sums",
                 tr("{} in {}: {}", testsText(run.record.begun()),
                    durationText(run.record.seconds()), sums.empty() ? tr("nothing ran") : sums));
  if (!run.record.hasEnded()) {
    writeParagraph(out, "sums", tr("The run was cut short: what it did not come to is not known."));
  }
  out.close();
  out.close();
}

void writeWhatToDo(Svg::Markup& out, const PageRun& run) {
  const Section section(out, run.id + "-todo", tr("What to do"));
  if (run.verdict == RunVerdict::Passed) {
    writeParagraph(out, "told", tr("Nothing: all that ran has passed."));
  }
  const std::vector<Part> parts = partsOf(run.story);
  const std::size_t begin = out.size();
  std::size_t written = 0;
  out.open("ul", {{"class", "parts"}});
  for (const Part& part : parts) {
    if (out.size() - begin > kMostPartsBytes) {
      out.leaf("li",
               trn("and 1 more device; the table of tests has it",
                   "and {} more devices; the table of tests has them", parts.size() - written));
      break;
    }
    writePart(out, run.story, part);
    ++written;
  }
  writeTroublesOfRun(out, run.record);
  if (run.story.omitted().problems > 0) {
    out.leaf("li", trn("and 1 more finding, which the log has",
                       "and {} more findings, which the log has", run.story.omitted().problems));
  }
  writeLeftOut(out, run.story);
  out.close();
}

void writeMachine(Svg::Markup& out, const PageRun& run) {
  const RunStarted& start = run.story.start();
  const Section section(out, run.id + "-machine", tr("The machine"));
  out.open("dl");
  writeFact(out, tr("Machine"), start.machineName);
  writeFact(out, tr("Identifier"), start.machineId);
  for (std::size_t place = 0; place < std::min(start.platforms.size(), kMostPlatforms); ++place) {
    writeFact(out, tr("Platform"), start.platforms[place]);
  }
  if (start.platforms.size() > kMostPlatforms) {
    writeFact(out, tr("Platform"), tr("and {} more", start.platforms.size() - kMostPlatforms));
  }
  writeFact(out, tr("Begun"), timeText(run.story.begin()));
  writeFact(out, tr("Last news"), timeText(run.record.last()));
  writeFact(out, tr("User"), parameterOf(start, "user"));
  writeFact(out, tr("Profile"), parameterOf(start, "profile"));
  writeFact(out, tr("Mode"), parameterOf(start, "mode"));
  out.close();
  writeHardware(out, start);
}

void writeCoverage(Svg::Markup& out, const PageRun& run) {
  const std::string sentence = run.record.coverage().describe();
  if (sentence.empty()) {
    return;
  }
  const Section section(out, run.id + "-coverage", tr("What was covered"));
  writeParagraph(out, "told", sentence);
  writeCores(out, run.story);
  writeBytes(out, run);
  const Folded folded(out, tr("Coverage by device"));
  Table table(out, tr("Coverage by device"),
              {tr("Device"), tr("Covered"), "#" + tr("Cores"), "#" + tr("Tests"),
               "#" + tr("Seconds of tests")});
  const std::size_t begin = out.size();
  std::size_t written = 0;
  for (const RunStory::Lane& lane : run.story.lanes()) {
    if (out.size() - begin > kMostPartsBytes) {
      break;
    }
    table.row({lane.device,
               lane.coveredBytes > 0 ? describeCoverage(lane.coveredBytes, lane.totalBytes) : "",
               lane.coveredCores > 0 ? wholeText(lane.coveredCores) : "",
               fmt::format("{}", countOf(lane.sums)), fmt::format("{:.1f}", lane.seconds)});
    ++written;
  }
  table.rowOfMore(run.story.lanes().size() - written);
}

}  // namespace TarvexDiags::FrontEnd::Html
