#include "diagctl/report/FleetText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "diagctl/report/NodeNames.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Outcome = StepRecord::Outcome;

bool isWell(Outcome outcome) {
  return outcome == Outcome::Passed || isSkipped(outcome);
}

void writeFinding(Printer& out, const Fleet::Finding& finding) {
  const std::string margin(widthOfHeads() + 2, ' ');
  const std::string inner = margin + margin;
  out.print("{}{}  {}\n", margin, headOf(finding.outcome),
            finding.what.empty() ? finding.text : finding.what);
  if (!finding.what.empty() && !finding.text.empty()) {
    out.print("{}{}\n", inner, finding.text);
  }
  if (!finding.action.empty()) {
    out.print("{}-> {}\n", inner, finding.action);
  }
}

void writeMachine(Printer& out, const Fleet& fleet, const Fleet::Machine& machine) {
  const std::string sums = toText(machine.sums);
  out.print("{}  {}   {}, {}   {}   {}\n", headOf(machine.outcome), nameAmong(fleet, machine),
            runsText(machine.runs), sums.empty() ? tr("nothing ran") : sums,
            timeText(machine.begin), machine.log);
  for (const Fleet::Finding& finding : machine.findings) {
    writeFinding(out, finding);
  }
  if (machine.furtherFindings > 0) {
    out.print("{:{}}{}\n", "", widthOfHeads() + 2, tr("and {} more", machine.furtherFindings));
  }
}

// Those that are well fit in few lines; what they came to stands with the tests.
void writeWellMachines(Printer& out, const Fleet& fleet, Outcome outcome) {
  std::vector<std::string> names;
  std::size_t count = 0;
  for (const Fleet::Machine* machine : fleet.machines()) {
    if (machine->outcome == outcome) {
      names.push_back(nameAmong(fleet, *machine));
      ++count;
    }
  }
  if (count > 0) {
    out.print("{}  {}: {}\n", headOf(outcome), machinesText(count), foldedNames(names));
  }
}

void writeMachines(Printer& out, const Fleet& fleet, bool onlyProblems) {
  for (const Fleet::Machine* machine : fleet.machines()) {
    if (!isWell(machine->outcome)) {
      writeMachine(out, fleet, *machine);
    }
  }
  if (!onlyProblems) {
    writeWellMachines(out, fleet, Outcome::Skipped);
    writeWellMachines(out, fleet, Outcome::Passed);
  }
  if (!fleet.furtherRuns().empty()) {
    out.say("Further machines: {}\n", toText(fleet.furtherRuns()));
  }
}

void writeTests(Printer& out, const Fleet& fleet, bool onlyProblems) {
  const std::vector<const Fleet::Test*> tests = fleet.tests();
  const bool hasLines = std::any_of(tests.begin(), tests.end(), [&](const Fleet::Test* test) {
    return !onlyProblems || !isWell(test->outcome);
  });
  if (!hasLines) {
    return;
  }
  out.say("\nBy test:\n");
  for (const Fleet::Test* test : tests) {
    if (onlyProblems && isWell(test->outcome)) {
      continue;
    }
    out.print("{}  {}   {}", headOf(test->outcome), test->name, toText(test->sums));
    if (!test->machines.empty()) {
      out.print("   {}{}", foldedNames(test->machines), test->hasMoreMachines ? ", ..." : "");
    }
    out.write("\n");
  }
  if (!fleet.furtherTests().empty()) {
    out.say("Further tests: {}\n", toText(fleet.furtherTests()));
  }
}

void writeUnread(Printer& out, const Fleet& fleet) {
  if (!fleet.hasUnread()) {
    return;
  }
  out.say("\nNot read:\n");
  for (const std::string& reason : fleet.unread()) {
    out.print("{}  {}\n", headOf(Outcome::Trouble), reason);
  }
  if (fleet.unread().omitted() > 0) {
    out.print("{}{}\n", std::string(widthOfHeads() + 2, ' '), moreOf(fleet.unread()));
  }
}

OutcomeSums machinesByOutcome(const Fleet& fleet) {
  OutcomeSums sums;
  for (const Fleet::Machine* machine : fleet.machines()) {
    ++sums[machine->outcome];
  }
  return sums;
}

}  // namespace

std::string nameAmong(const Fleet& fleet, const Fleet::Machine& machine) {
  return fleet.isNameTaken(machine) ? tr("{} (id {})", machine.name, machine.id) : machine.name;
}

void writeFleet(Printer& out, const Fleet& fleet, bool onlyProblems) {
  writeMachines(out, fleet, onlyProblems);
  writeTests(out, fleet, onlyProblems);
  writeUnread(out, fleet);
  const std::string sums = toText(machinesByOutcome(fleet));
  out.say("\n{} of {}: {}\n", runsText(fleet.runs()), machinesText(fleet.machineCount()),
          sums.empty() ? tr("nothing ran") : sums);
  out.say("Verdict: {}\n", toText(fleet.verdict()));
  out.flush();
}

std::string lineOf(const Fleet& fleet) {
  const auto counted = [](std::size_t count, const char* one) {
    return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
  };
  const std::string sums = toEnglish(machinesByOutcome(fleet));
  std::string line = sums.empty()
                         ? english("nothing ran")
                         : fmt::format("{}: {}", counted(fleet.machineCount(), "machine"), sums);
  if (fleet.hasUnread()) {
    const std::size_t count = fleet.unread().size() + fleet.unread().omitted();
    line += english(", {} not read", counted(count, "log"));
  }
  const std::vector<const Fleet::Machine*> machines = fleet.machines();
  if (machines.empty() || machines.front()->findings.empty()) {
    return line;
  }
  const Fleet::Finding& finding = machines.front()->findings.front();
  line += " - " + machines.front()->name + ": ";
  return line +
         (finding.what.empty() ? finding.text : fmt::format("{}: {}", finding.what, finding.text));
}

}  // namespace TarvexDiags::FrontEnd
