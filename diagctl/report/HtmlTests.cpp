// What a page tells of each test, and of how to run it again.

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "diagctl/report/HtmlSections.h"
#include "diagctl/report/HtmlWords.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

constexpr std::size_t kMostProblemBytes = 500UL << 10U;
constexpr std::size_t kMostFoldBytes = 300UL << 10U;
constexpr std::size_t kMostMessageBytes = 450UL << 10U;
constexpr std::size_t kMostNamesBytes = 4'000;
constexpr std::size_t kMessageLength = 1'000;
constexpr std::size_t kMostSeeds = 100;
constexpr std::size_t kMostFactBytes = 50UL << 10U;

std::string secondsText(double seconds) {
  return fmt::format("{:.1f}", seconds);
}

void writeFurther(Svg::Markup& out, const RunStory::Problem& problem) {
  if (problem.further.empty() && problem.furtherActions.empty()) {
    return;
  }
  const Folded folded(
      out, tr("Further findings ({})", problem.further.size() + problem.furtherActions.size()));
  for (const std::string& finding : problem.further) {
    writeParagraph(out, "told", shown(finding, kMessageLength));
  }
  for (const std::string& action : problem.furtherActions) {
    writeParagraph(out, "action", "\u2192 " + shown(action, kMessageLength));
  }
}

void writeProblem(Svg::Markup& out, Table& table, const RunStory::Problem& problem) {
  table.beginRow();
  table.beginCell();
  writeBadge(out, problem.outcome);
  table.endCell();
  table.cell(tr("{}: {}", problem.start.package, problem.start.test));
  table.cell(problem.start.device);
  table.cell(secondsText(problem.seconds));
  table.beginCell();
  writeParagraph(out, "told", shown(problem.finding, kMessageLength));
  writeParagraph(out, "action",
                 problem.action.empty() ? "" : "\u2192 " + shown(problem.action, kMessageLength));
  writeFurther(out, problem);
  const std::string facts = problem.seed.empty() ? problem.facts
                            : problem.facts.empty()
                                ? tr("seed {}", problem.seed)
                                : tr("{}, seed {}", problem.facts, problem.seed);
  writeParagraph(out, "quiet", facts);
  table.endCell();
  table.endRow();
}

void writeDevices(Svg::Markup& out, const RunStory::Fold& fold) {
  if (fold.count == 1 && fold.devices.size() == 1) {
    out.text(shown(fold.devices.front()));
    return;
  }
  const Folded folded(out, trn("1 device", "{} devices", fold.count));
  std::size_t written = 0;
  std::string names;
  for (const std::string& device : fold.devices) {
    if (names.size() > kMostNamesBytes) {
      break;
    }
    names += (written++ == 0 ? "" : ", ") + shown(device);
  }
  out.text(written < fold.count ? tr("{} and {} more", names, fold.count - written) : names);
}

void writeFold(Svg::Markup& out, Table& table, const RunStory::FoldKey& key,
               const RunStory::Fold& fold) {
  table.beginRow();
  table.beginCell();
  writeBadge(out, key.outcome);
  table.endCell();
  table.cell(tr("{}: {}", key.package, key.test));
  table.beginCell();
  writeDevices(out, fold);
  table.endCell();
  table.cell(isSkipped(key.outcome) ? "" : secondsText(fold.seconds));
  table.cell(!key.reason.empty() ? key.reason : fold.count == 1 ? fold.facts : "");
  table.endRow();
}

// @return how many were written.
std::size_t writeProblems(Svg::Markup& out, Table& table, const RunStory& story) {
  const std::size_t begin = out.size();
  std::size_t written = 0;
  for (const RunStory::Problem& problem : story.problems()) {
    if (out.size() - begin > kMostProblemBytes) {
      break;
    }
    writeProblem(out, table, problem);
    ++written;
  }
  return written;
}

// What has no verdict stands above what passed.
std::size_t writeFolds(Svg::Markup& out, Table& table, const RunStory& story) {
  const std::size_t begin = out.size();
  std::size_t written = 0;
  for (const bool wantsPassed : {false, true}) {
    for (const auto& [key, fold] : story.folds()) {
      if ((key.outcome == StepRecord::Outcome::Passed) == wantsPassed &&
          out.size() - begin <= kMostFoldBytes) {
        writeFold(out, table, key, fold);
        ++written;
      }
    }
  }
  return written;
}

std::string severityText(Severity severity) {
  switch (severity) {
    case Severity::Error:
      return tr("error");
    case Severity::Warning:
      return tr("warning");
    case Severity::Information:
      return tr("information");
    case Severity::Debug:
      break;
  }
  return tr("detail");
}

void writeSeeds(Svg::Markup& out, const RunStory& story) {
  const auto& problems = story.problems();
  const auto hasSeed = [](const RunStory::Problem& problem) { return !problem.seed.empty(); };
  if (story.seeds().empty() && std::none_of(problems.begin(), problems.end(), hasSeed)) {
    return;
  }
  const Folded folded(out, tr("Seeds of the tests"));
  writeParagraph(out, "quiet",
                 tr("With --seed and its number a test does the same again, whatever is random in "
                    "it; those that did not pass stand first."));
  Table table(out, tr("Seeds of the tests"), {tr("Test"), tr("Device"), tr("Seed")});
  std::size_t written = 0;
  for (const RunStory::Problem& problem : problems) {
    if (hasSeed(problem) && written++ < kMostSeeds) {
      table.row({tr("{}: {}", problem.start.package, problem.start.test), problem.start.device,
                 problem.seed});
    }
  }
  for (const RunStory::Seed& seed : story.seeds()) {
    table.row({seed.test, seed.device, seed.seed});
  }
  table.rowOfMore(written - std::min(written, kMostSeeds) + story.omitted().seeds);
}

void writeOptions(Svg::Markup& out, const RunStarted& start) {
  if (start.parameters.empty()) {
    return;
  }
  const Folded folded(out, tr("Options of the run"));
  Table table(out, tr("Options of the run"), {tr("Option"), tr("Value")});
  const std::size_t begin = out.size();
  std::size_t further = start.parameters.size();
  for (const auto& [key, value] : start.parameters) {
    if (out.size() - begin > kMostFactBytes) {
      break;
    }
    table.row({key, value});
    --further;
  }
  table.rowOfMore(further);
}

void writeVersions(Svg::Markup& out, const RunStarted& start) {
  const Folded folded(out, tr("Versions"));
  Table table(out, tr("Versions"), {tr("Software"), tr("Version")});
  table.row({start.name, start.version});
  const std::size_t begin = out.size();
  std::size_t further = start.software.size();
  for (const SoftwareItem& item : start.software) {
    if (out.size() - begin > kMostFactBytes) {
      break;
    }
    const std::string name = localNameOf(start, item.name);
    table.row({name.empty() ? item.name : name, item.version});
    --further;
  }
  table.rowOfMore(further);
}

}  // namespace

void writeTests(Svg::Markup& out, const PageRun& run) {
  if (run.story.problems().empty() && run.story.folds().empty()) {
    return;
  }
  const Section section(out, run.id + "-tests", tr("Devices and tests"));
  std::size_t further = run.story.omitted().folded;
  {
    Table table(out, tr("What each test came to; those that passed alike stand in one row"),
                {tr("Verdict"), tr("Test"), tr("Device"), "#" + tr("Seconds"), tr("Finding")});
    further += run.story.problems().size() - writeProblems(out, table, run.story);
    const std::size_t folds = run.story.folds().size();
    further += folds - writeFolds(out, table, run.story);
  }
  if (further > 0) {
    writeParagraph(
        out, "quiet",
        trn("and 1 more row, which the log has", "and {} more rows, which the log has", further));
  }
}

void writeMessages(Svg::Markup& out, const PageRun& run) {
  const auto& messages = run.story.messages();
  if (messages.empty()) {
    return;
  }
  const Section section(out, run.id + "-messages", tr("Messages"));
  const std::size_t begin = out.size();
  std::size_t further = messages.size() + run.story.omitted().messages;
  const Folded folded(out, tr("All messages ({})", further), "long");
  {
    Table table(out, tr("Messages with the time since the beginning of the run"),
                {"#" + tr("Time"), tr("Severity"), tr("Test"), tr("Message")});
    for (const RunStory::Message& message : messages) {
      if (out.size() - begin > kMostMessageBytes) {
        break;
      }
      table.beginRow();
      table.cell(offsetText(message.at));
      table.cell(severityText(message.severity));
      table.cell(message.about);
      table.beginCell();
      writeParagraph(out, "told", shown(message.text, kMessageLength));
      table.endCell();
      table.endRow();
      --further;
    }
  }
  if (further > 0) {
    writeParagraph(out, "quiet", tr("and {} more, which the log has", further));
  }
}

void writeAgain(Svg::Markup& out, const PageRun& run) {
  const RunStarted& start = run.story.start();
  const Section section(out, run.id + "-again", tr("To run it again"));
  out.open("p");
  out.leaf("code", shown(start.commandLine));
  out.close();
  writeSeeds(out, run.story);
  writeOptions(out, start);
  writeVersions(out, start);
}

}  // namespace TarvexDiags::FrontEnd::Html
