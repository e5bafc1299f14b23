#include "diagctl/report/HtmlFleet.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "diagctl/report/HtmlWords.h"
#include "diagctl/report/JsonlReporter.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd::Html {

namespace {

constexpr std::size_t kMostBytesOfTests = 300UL << 10U;

void writeVerdictOfRun(Svg::Markup& out, RunVerdict verdict, const std::string& text) {
  const Look look = lookOf(verdict);
  out.open("span", {{"class", look.ofClass}});
  writeSymbol(out, look.symbol);
  out.text(text);
  out.close();
}

void writeCounts(Svg::Markup& out, const std::vector<RunOfMany>& runs) {
  std::map<RunVerdict, std::size_t> counts;
  for (const RunOfMany& run : runs) {
    ++counts[run.verdict];
  }
  out.open("ul");
  for (const auto& [verdict, count] : counts) {
    out.open("li");
    writeVerdictOfRun(out, verdict, fmt::format("{}: {}", toText(verdict), count));
    out.close();
  }
  out.close();
}

void writeRunOfMany(Svg::Markup& out, Table& table, const RunOfMany& run) {
  table.beginRow();
  table.beginCell();
  writeVerdictOfRun(out, run.verdict, toText(run.verdict));
  table.endCell();
  table.cell(run.machine);
  table.beginCell();
  if (run.id.empty()) {
    out.text(toTimestamp(run.begin));
  } else {
    out.leaf("a", {{"href", "#" + run.id}}, toTimestamp(run.begin));
  }
  table.endCell();
  table.cell(toText(run.sums));
  table.endRow();
}

std::string machinesOf(const Fleet::Test& test) {
  const std::string names = fmt::format("{}", fmt::join(test.machines, ", "));
  return test.hasMoreMachines ? tr("{} and more", names) : names;
}

}  // namespace

void writeRuns(Svg::Markup& out, std::vector<RunOfMany> runs, std::size_t further) {
  std::stable_sort(runs.begin(), runs.end(), [](const RunOfMany& left, const RunOfMany& right) {
    return left.verdict < right.verdict;
  });
  const Section section(out, "runs", tr("Runs by verdict"));
  writeCounts(out, runs);
  {
    Table table(out, tr("The runs, the worst first"),
                {tr("Verdict"), tr("Machine"), tr("Begun"), tr("Tests")});
    for (const RunOfMany& run : runs) {
      writeRunOfMany(out, table, run);
    }
  }
  if (further > 0) {
    writeParagraph(out, "told", tr("and {} more runs, which the log has", further));
  }
}

void writeTestsOfMany(Svg::Markup& out, const Fleet& fleet) {
  const std::vector<const Fleet::Test*> tests = fleet.tests();
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
