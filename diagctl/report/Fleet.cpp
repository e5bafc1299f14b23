#include "diagctl/report/Fleet.h"

#include <algorithm>
#include <array>

#include "diagctl/report/Wording.h"
#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Outcome = StepRecord::Outcome;

constexpr std::size_t kMostMachines = 20'000;
constexpr std::size_t kMostTests = 2'000;
constexpr std::size_t kMostFindings = 5;         ///< of a machine
constexpr std::size_t kMostNamesOfTest = 1'000;  ///< of machines
constexpr std::size_t kLongestName = 200;        ///< bytes
constexpr std::size_t kLongestFinding = 400;     ///< bytes

// The worst first. What was skipped on one machine and passed on another has passed.
constexpr std::array kOrderOfTests = {
    Outcome::Failed,        Outcome::Trouble, Outcome::Aborted, Outcome::NotRun,
    Outcome::Warning,       Outcome::Passed,  Outcome::Skipped, Outcome::SkippedForPrivilege,
    Outcome::SkippedForMode};
// A run in which nothing ran is worse than one that passed.
constexpr std::array kOrderOfRuns = {Outcome::Failed,  Outcome::Trouble, Outcome::Aborted,
                                     Outcome::Skipped, Outcome::Warning, Outcome::Passed};

template <class Order>
std::size_t rankIn(const Order& order, Outcome outcome) {
  return static_cast<std::size_t>(std::find(order.begin(), order.end(), outcome) - order.begin());
}

/// In one line, and not cut within a character.
std::string shortened(const std::string& text, std::size_t length) {
  std::string line = toPrintable(text, " ");
  if (line.size() <= length) {
    return line;
  }
  return std::string(wholeCharacters(line, length)) + "...";
}

Outcome outcomeOf(RunVerdict verdict) {
  switch (verdict) {
    case RunVerdict::Failed:
      return Outcome::Failed;
    case RunVerdict::Troubled:
      return Outcome::Trouble;
    case RunVerdict::Aborted:
      return Outcome::Aborted;
    case RunVerdict::NothingRan:
      return Outcome::Skipped;
    case RunVerdict::Warned:
      return Outcome::Warning;
    case RunVerdict::Passed:
      break;
  }
  return Outcome::Passed;
}

bool isWorthTelling(Outcome outcome) {
  return outcome != Outcome::Passed && outcome != Outcome::NotRun && !isSkipped(outcome);
}

/// Keeps the weightiest findings, in the order in which they were told.
void addFinding(Fleet::Machine& machine, Fleet::Finding finding) {
  const auto weightOf = [](const Fleet::Finding& one) {
    return rankIn(kOrderOfTests, one.outcome);
  };
  finding.what = shortened(finding.what, kLongestName);
  finding.text = shortened(finding.text, kLongestFinding);
  finding.action = shortened(finding.action, kLongestFinding);
  const auto place = std::upper_bound(
      machine.findings.begin(), machine.findings.end(), finding,
      [&](const auto& one, const auto& other) { return weightOf(one) < weightOf(other); });
  machine.findings.insert(place, std::move(finding));
  if (machine.findings.size() > kMostFindings) {
    machine.findings.pop_back();
    ++machine.furtherFindings;
  }
}

/// What to do about the finding that stands for the step.
std::string actionOf(const StepRecord& step) {
  const auto place = step.findings.placeOf(step.headline());
  return place && step.advice[*place] ? step.actions[*step.advice[*place]] : "";
}

std::string nameOfTest(const StepStarted& start) {
  return shortened(
      start.package.empty() ? start.test : tr("{}: {}", packageOf(start), testOf(start)),
      kLongestName);
}

/// The same for each machine, whichever language its run was told in.
std::string keyAmongMachines(const StepStarted& start) {
  return shortened(keyOfTest(start.package, start.test), kLongestName);
}

void addMachine(Fleet::Test& test, Outcome outcome, const std::string& machine) {
  if (rankIn(kOrderOfTests, outcome) < rankIn(kOrderOfTests, test.outcome)) {
    test.outcome = outcome;
    test.machines.clear();
    test.hasMoreMachines = false;
  }
  const bool isNoted = !test.machines.empty() && test.machines.back() == machine;
  if (outcome != test.outcome || !isWorthTelling(outcome) || isNoted) {
    return;
  }
  if (test.machines.size() == kMostNamesOfTest) {
    test.hasMoreMachines = true;
  } else {
    test.machines.push_back(machine);
  }
}

template <class Item, class Held>
std::vector<const Item*> worstFirst(const Held& held, std::size_t (*weightOf)(Outcome)) {
  std::vector<const Item*> items;
  items.reserve(held.size());
  for (const auto& [key, item] : held) {
    items.push_back(&item);
  }
  std::stable_sort(items.begin(), items.end(), [&](const Item* one, const Item* other) {
    return weightOf(one->outcome) < weightOf(other->outcome);
  });
  return items;
}

}  // namespace

void Fleet::beginRun(const std::string& log) {
  m_present = Machine();
  m_present.log = shortened(log, kLongestFinding);
  m_present.name = m_present.log;  // of a run that does not tell its machine
}

void Fleet::take(const RunStarted& start) {
  m_present.id = shortened(start.machineId, kLongestName);
  const std::string& name = start.machineName.empty() ? start.machineId : start.machineName;
  if (!name.empty()) {
    m_present.name = shortened(name, kLongestName);
  }
}

void Fleet::take(const StepRecord& step) {
  const Outcome outcome = step.outcome();
  if (isWorthTelling(outcome)) {
    const std::string what = nameOfTest(step.start);
    addFinding(
        m_present,
        {outcome, step.start.device.empty() ? what : tr("{} on {}", what, deviceOf(step.start)),
         step.headline(), actionOf(step)});
  }
  const std::string key = keyAmongMachines(step.start);
  if (!m_tests.contains(key) && m_tests.size() == kMostTests) {
    ++m_furtherTests[outcome];
    return;
  }
  Test& test = m_tests[key];
  test.name = nameOfTest(step.start);
  ++test.sums[outcome];
  addMachine(test, outcome, m_present.name);
}

int Fleet::endRun(const RunRecord& record) {
  for (const std::string& trouble : record.troubles()) {
    addFinding(m_present, {Outcome::Trouble, "", trouble, ""});
  }
  m_present.furtherFindings += record.troubles().omitted();
  if (!record.hasEnded()) {
    addFinding(m_present, {Outcome::Trouble, "", tr("The run was cut short."), ""});
  }
  m_summary += summaryOf(record);
  const RunVerdict verdict = verdictOf(record, m_conditions);
  m_present.code = exitCodeOf(verdict);
  m_present.outcome = outcomeOf(verdict);
  m_present.begin = record.begin();
  m_present.sums = record.sums();
  m_verdict = worseOf(m_verdict, verdict);
  ++m_runs;
  const std::pair key(m_present.name, m_present.id);
  if (!m_machines.contains(key) && m_machines.size() == kMostMachines) {
    ++m_furtherRuns[m_present.outcome];
    m_last = nullptr;
    return m_present.code;
  }
  Machine& machine = m_machines[key];
  m_names[m_present.name] += machine.runs == 0 ? 1 : 0;
  addRun(machine);
  m_last = &machine;
  return m_present.code;
}

void Fleet::addRun(Machine& machine) const {
  const bool isWorse = machine.runs == 0 || rankIn(kOrderOfRuns, m_present.outcome) <
                                                rankIn(kOrderOfRuns, machine.outcome);
  if (isWorse) {
    static_cast<Run&>(machine) = static_cast<const Run&>(m_present);
  }
  for (const auto& [outcome, count] : m_present.sums) {
    machine.sums[outcome] += count;
  }
  ++machine.runs;
  for (const Finding& finding : m_present.findings) {
    addFinding(machine, finding);
  }
  machine.furtherFindings += m_present.furtherFindings;
}

void Fleet::addUnread(const std::string& reason) {
  m_unread.add(reason, RunRecord::kUnbounded);
}

RunVerdict Fleet::verdict() const {
  const RunVerdict verdict = m_runs == 0 ? RunVerdict::NothingRan : m_verdict;
  return hasUnread() ? worseOf(verdict, RunVerdict::Troubled) : verdict;
}

std::vector<const Fleet::Machine*> Fleet::machines() const {
  return worstFirst<Machine>(m_machines,
                             [](Outcome outcome) { return rankIn(kOrderOfRuns, outcome); });
}

std::vector<const Fleet::Test*> Fleet::tests() const {
  return worstFirst<Test>(m_tests, [](Outcome outcome) { return rankIn(kOrderOfTests, outcome); });
}

}  // namespace TarvexDiags::FrontEnd
