#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"

namespace TarvexDiags::FrontEnd {

/// What the runs of many logs came to, by machine and by test. However many there are, what is held
/// of them is bounded: some hundred bytes of a machine that is well, the weightiest findings of any
/// other; of machines beyond 20,000 and tests beyond 2,000 their sums. The exit code follows from
/// all.
class Fleet {
 public:
  struct Finding {
    StepRecord::Outcome outcome = StepRecord::Outcome::Trouble;
    std::string what;    ///< "Memory: Walking ones on Memory of node 0"; empty: the run as a whole
    std::string text;    ///< what was found
    std::string action;  ///< what to do about it; may be empty
  };

  struct Run {
    std::string name;  ///< of its machine
    std::string id;    ///< of the same
    std::string log;
    std::chrono::system_clock::time_point begin;
    int code = ExitCode::kPassed;
    StepRecord::Outcome outcome = StepRecord::Outcome::Passed;
  };

  /// All runs of a machine, and the worst of them: two machines of one name differ in their ids,
  /// two copies of one disk in their names.
  struct Machine : Run {
    std::size_t runs = 0;
    OutcomeSums sums;               ///< of the tests of all its runs
    std::vector<Finding> findings;  ///< the weightiest first
    std::size_t furtherFindings = 0;
  };

  struct Test {
    std::string name;                                            ///< with that of its package
    StepRecord::Outcome outcome = StepRecord::Outcome::Skipped;  ///< the worst
    OutcomeSums sums;
    std::vector<std::string> machines;  ///< names of some on which it came to the worst
    bool hasMoreMachines = false;
  };

  explicit Fleet(const RunConditions& conditions) : m_conditions(conditions) {}

  /// A run begins. @param log that it stands in, for people.
  void beginRun(const std::string& log);
  /// Tells which machine the run is of.
  void take(const RunStarted& start);
  /// Takes a step that has ended.
  void take(const StepRecord& step);
  /// The run has ended, or its log has. @return its exit code.
  int endRun(const RunRecord& record);
  /// Takes the reason why a log, or its rest, could not be read.
  void addUnread(const std::string& reason);

  /// The worst of all runs; without a verdict at best when a log could not be read.
  RunVerdict verdict() const;
  int exitCode() const { return exitCodeOf(verdict()); }
  /// Of all runs together.
  const RunSummary& summary() const { return m_summary; }
  std::size_t runs() const { return m_runs; }
  /// The machine of the run that ended last; null for one beyond those that are held.
  const Machine* lastMachine() const { return m_last; }
  /// Those that are held.
  std::size_t machineCount() const { return m_machines.size(); }
  /// The worst first, then by name.
  std::vector<const Machine*> machines() const;
  std::vector<const Test*> tests() const;
  /// Of machines and tests beyond those that are held.
  const OutcomeSums& furtherRuns() const { return m_furtherRuns; }
  const OutcomeSums& furtherTests() const { return m_furtherTests; }
  const BoundedTexts& unread() const { return m_unread; }
  bool hasUnread() const { return !m_unread.empty() || m_unread.omitted() > 0; }
  /// Whether another machine has the same name.
  bool isNameTaken(const Machine& machine) const { return m_names.at(machine.name) > 1; }

 private:
  void addRun(Machine& machine) const;

  RunConditions m_conditions;
  Machine m_present;                                                  ///< the run that is under way
  std::map<std::pair<std::string, std::string>, Machine> m_machines;  ///< by name and id
  const Machine* m_last = nullptr;
  std::map<std::string, std::size_t> m_names;  ///< how many machines have it
  std::map<std::string, Test> m_tests;
  OutcomeSums m_furtherRuns;
  OutcomeSums m_furtherTests;
  BoundedTexts m_unread;
  RunSummary m_summary;
  std::size_t m_runs = 0;
  RunVerdict m_verdict = RunVerdict::Passed;
};

}  // namespace TarvexDiags::FrontEnd
