#include "diagctl/report/HtmlFleet.h"

#include <fmt/format.h>

#include <algorithm>

#include "diagctl/report/FleetText.h"
#include "diagctl/report/HtmlWords.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

constexpr std::size_t kMostBytesOfTests = 300UL << 10U;
constexpr std::size_t kMostBeginnings = 10;

void writeVerdictOfRun(Svg::Markup& out, RunVerdict verdict, const std::string& text) {
  const Look look = lookOf(verdict);
  out.open("span", {{"class", look.ofClass}});
  writeSymbol(out, look.symbol);
  out.text(text);
  out.close();
}

void writeCounts(Svg::Markup& out, const VerdictCounts& counts) {
  out.open("ul");
  for (const auto& [verdict, count] : counts) {
    out.open("li");
    writeVerdictOfRun(out, verdict, fmt::format("{}: {}", toText(verdict), count));
    out.close();
  }
  out.close();
}

void writeFurther(Svg::Markup& out, const VerdictCounts& further) {
  if (further.empty()) {
    return;
  }
  writeParagraph(out, "told", tr("Further runs, which the logs have:"));
  writeCounts(out, further);
}

void writeLinked(Svg::Markup& out, const std::string& link, const std::string& text) {
  if (link.empty()) {
    out.text(text);
  } else {
    out.leaf("a", {{"href", link}}, text);
  }
}

// Its hyphens are no places to break a line at.
void writeBeginning(Svg::Markup& out, const RunOfMany& run, const std::string& link) {
  if (!link.empty()) {
    out.open("a", {{"href", link}});
  }
  out.leaf("time", timeText(run.begin));
  if (!link.empty()) {
    out.close();
  }
}

void writeVerdictCell(Svg::Markup& out, Table& table, RunVerdict verdict) {
  table.beginCell();
  writeVerdictOfRun(out, verdict, toText(verdict));
  table.endCell();
}

void writeRunOfMany(Svg::Markup& out, Table& table, const RunOfMany& run) {
  table.beginRow();
  writeVerdictCell(out, table, run.verdict);
  table.beginCell();
  writeBeginning(out, run, run.link);
  table.endCell();
  table.cell(toText(run.sums));
  table.endRow();
}

void writeBeginnings(Svg::Markup& out, const MachineOfMany& machine) {
  if (machine.runs.size() == 1) {
    writeBeginning(out, machine.runs.front(), "");
    return;
  }
  const std::size_t most = std::min(machine.runs.size(), kMostBeginnings);
  for (std::size_t place = 0; place < most; ++place) {
    out.text(place == 0 ? "" : ", ");
    writeBeginning(out, machine.runs[place], machine.runs[place].link);
  }
  if (most < machine.runs.size()) {
    out.text(", " + tr("and {} more", machine.runs.size() - most));
  }
}

// What weighs most; its own part has the rest.
void writeWorst(Svg::Markup& out, const Fleet::Machine& machine) {
  if (machine.findings.empty()) {
    return;
  }
  const Fleet::Finding& worst = machine.findings.front();
  writeParagraph(out, "told",
                 worst.what.empty() || worst.text.empty() ? worst.what + worst.text
                                                          : tr("{}: {}", worst.what, worst.text));
  writeParagraph(out, "action", worst.action.empty() ? "" : "\u2192 " + worst.action);
  const std::size_t more = machine.findings.size() - 1 + machine.furtherFindings;
  writeParagraph(out, "quiet", more > 0 ? tr("and {} more", more) : "");
}

void writeMachineOfMany(Svg::Markup& out, Table& table, const MachineOfMany& machine,
                        const std::string& name) {
  table.beginRow();
  writeVerdictCell(out, table, machine.verdict());
  table.beginCell();
  const bool isOfOne = machine.runs.size() == 1;
  writeLinked(out, isOfOne ? machine.runs.front().link : machine.file, shown(name));
  table.endCell();
  table.beginCell();
  writeBeginnings(out, machine);
  table.endCell();
  table.cell(toText(machine.told->sums));
  table.beginCell();
  writeWorst(out, *machine.told);
  table.endCell();
  table.endRow();
}

std::string machinesOf(const Fleet::Test& test) {
  const std::string names = fmt::format("{}", fmt::join(test.machines, ", "));
  return test.hasMoreMachines ? tr("{} and more", names) : names;
}

// Of tests that came to the same worst, the one that did so most often is looked at first.
std::vector<const Fleet::Test*> mostOftenFirst(const Fleet& fleet) {
  const auto timesOf = [](const Fleet::Test* test) { return test->sums.at(test->outcome); };
  std::vector<const Fleet::Test*> tests = fleet.tests();
  for (auto from = tests.begin(); from != tests.end();) {
    const auto to = std::find_if(from, tests.end(), [&](const Fleet::Test* test) {
      return test->outcome != (*from)->outcome;
    });
    if (isProblem((*from)->outcome)) {
      std::stable_sort(from, to, [&](const Fleet::Test* left, const Fleet::Test* right) {
        return timesOf(left) > timesOf(right);
      });
    }
    from = to;
  }
  return tests;
}

}  // namespace

RunVerdict MachineOfMany::verdict() const {
  const auto worst = std::min_element(
      runs.begin(), runs.end(),
      [](const RunOfMany& left, const RunOfMany& right) { return left.verdict < right.verdict; });
  return worst == runs.end() ? RunVerdict::NothingRan : worst->verdict;
}

void writeMachines(Svg::Markup& out, const std::vector<MachineOfMany*>& machines,
                   const Fleet& fleet, const VerdictCounts& further) {
  const Section section(out, "machines", tr("Machines by verdict"));
  VerdictCounts counts;
  for (const MachineOfMany* machine : machines) {
    ++counts[machine->verdict()];
  }
  writeCounts(out, counts);
  {
    Table table(out, tr("The machines, the worst first"),
                {tr("Verdict"), tr("Machine"), tr("Begun"), tr("Tests"), tr("Worst finding")});
    for (const MachineOfMany* machine : machines) {
      writeMachineOfMany(out, table, *machine, nameAmong(fleet, *machine->told));
    }
  }
  writeFurther(out, further);
}

void writeRuns(Svg::Markup& out, const MachineOfMany& machine, const VerdictCounts& further) {
  const Section section(out, "runs", tr("Runs by verdict"));
  VerdictCounts counts;
  std::vector<const RunOfMany*> runs;
  for (const RunOfMany& run : machine.runs) {
    ++counts[run.verdict];
    runs.push_back(&run);
  }
  std::stable_sort(runs.begin(), runs.end(), [](const RunOfMany* left, const RunOfMany* right) {
    return left->verdict < right->verdict;
  });
  writeCounts(out, counts);
  {
    Table table(out, tr("The runs, the worst first"), {tr("Verdict"), tr("Begun"), tr("Tests")});
    for (const RunOfMany* run : runs) {
      writeRunOfMany(out, table, *run);
    }
  }
  writeFurther(out, further);
}

void writeTestsOfMany(Svg::Markup& out, const Fleet& fleet) {
  const std::vector<const Fleet::Test*> tests = mostOftenFirst(fleet);
  if (tests.empty()) {
    return;
  }
  const Section section(out, "tests", tr("Tests by what they came to"));
  const std::size_t begin = out.size();
  std::size_t written = 0;
  {
    Table table(out, tr("The tests of all runs, the worst first"),
                {tr("Worst"), tr("Test"), tr("On all machines"), tr("Machines of the worst")});
    for (const Fleet::Test* test : tests) {
      if (out.size() - begin > kMostBytesOfTests) {
        break;
      }
      table.beginRow();
      table.beginCell();
      writeBadge(out, test->outcome);
      table.endCell();
      table.cell(test->name);
      table.cell(toText(test->sums));
      table.cell(isProblem(test->outcome) ? machinesOf(*test) : "");
      table.endRow();
      ++written;
    }
  }
  if (written < tests.size() || !fleet.furtherTests().empty()) {
    writeParagraph(out, "quiet", tr("and more tests, which the logs have"));
  }
}

}  // namespace TarvexDiags::FrontEnd::Html
