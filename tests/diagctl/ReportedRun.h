#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/diagctl/Program.h"
#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::DiagctlTest {

/// A run of the program that is reported in every format at once: from a fault to the exit code and
/// to what each reader is told. Steps are named as people read them: "Package: Test on Device".
///
///   const ReportedRun run = reportedRun({"run", "-p", "memory", "-t", "Block move"});
///   EXPECT_EQ(run.exitCode(), kHardwareFailure);
///   EXPECT_THAT(run.verdictsOf("Memory: Block move on Node 0"), ElementsAre("FAILED"));
///   EXPECT_THAT(run.symptomsOf("Memory: Block move on Node 0"), ElementsAre("miscompare"));
///   EXPECT_THAT(run.formatsWithout("Memory: Block move on Node 0", "0x7f"), IsEmpty());
///
/// A verdict is PASSED, FAILED, WARNING, ERROR, ABORTED or SKIPPED. What a format does not tell of
/// a step is "missing in FORMAT".
class ReportedRun {
 public:
  int exitCode() const { return m_outcome.exitCode; }
  const Outcome& outcome() const { return m_outcome; }

  std::set<std::string> steps() const;
  /// All formats together: one verdict if they agree.
  std::set<std::string> verdictsOf(const std::string& step) const;
  /// The same for the symptom; of the formats that have one, and of a step that has one.
  std::set<std::string> symptomsOf(const std::string& step) const;
  /// The formats whose account of the step does not hold the text.
  std::vector<std::string> formatsWithout(const std::string& step, const std::string& text) const;
  /// What one format ("text", "jsonl", "junit", "tap") tells of the step besides its verdict.
  std::string accountOf(const std::string& step, const std::string& format) const;
  /// What is wrong with the log; see Reports.h.
  const std::vector<std::string>& faultsOfLog() const { return m_faultsOfLog; }

 private:
  friend class ReportedProgram;
  struct Account {
    std::string verdict;
    std::set<std::string> symptoms;
    std::string text;
  };
  using Accounts = std::map<std::string, Account>;

  static Accounts readText(const std::string& report);
  static Accounts readLog(const std::string& report);
  static Accounts readXml(const std::string& report);
  static Accounts readTap(const std::string& report);

  Outcome m_outcome;
  std::map<std::string, Accounts> m_formats;
  std::vector<std::string> m_faultsOfLog;
};

/// Such a run while it lasts, for tests that break something in the middle of it.
class ReportedProgram {
 public:
  /// @param arguments of the verb run, or of report; outputs are added.
  explicit ReportedProgram(const std::vector<std::string>& arguments,
                           const Program::Options& options = {});

  Program& program() { return m_program; }
  /// Waits for the log to tell a text. @return whether it did.
  bool waitForLog(const std::string& text,
                  std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
  /// Waits for the end and reads the reports.
  ReportedRun finish();

 private:
  std::string fileOf(const std::string& format) const;
  std::vector<std::string> withOutputs(std::vector<std::string> arguments) const;

  TestSupport::TemporaryDirectory m_place;
  Program m_program;
};

/// Runs it to its end.
ReportedRun reportedRun(const std::vector<std::string>& arguments,
                        const Program::Options& options = {});

}  // namespace TarvexDiags::DiagctlTest
