#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// What a report needs of one step, gathered from the stream.
struct StepRecord {
  enum class Outcome { Passed, Failed, Warning, Trouble, Skipped };

  StepStarted start;
  std::chrono::system_clock::time_point begin;
  std::chrono::system_clock::time_point end;
  std::vector<std::string> findings;
  std::vector<std::string> actions;
  std::string failure;              ///< the first of its kind among the findings; empty: none
  std::string trouble;              ///< the same
  std::string warning;              ///< the same
  std::string news;                 ///< what was told last that is no finding
  std::string symptom;              ///< of the first failure, or else of the first trouble
  std::map<Verdict, int> verdicts;  ///< how many passes were judged so
  std::size_t troubles = 0;         ///< of the tool
  std::size_t warnings = 0;         ///< that were told
  std::optional<StepEnded> ended;

  int passes() const;
  bool hasFailed() const { return verdicts.contains(Verdict::Fail); }
  bool hasEnded() const { return ended.has_value(); }
  bool isAborted() const { return hasEnded() && ended->isAborted; }
  /// What the step came to.
  Outcome outcome() const;
  /// The finding behind the outcome, or else what there is that comes closest to one.
  const std::string& headline() const;
  double seconds() const;
};

/// How many steps came to each outcome.
using OutcomeSums = std::map<StepRecord::Outcome, std::size_t>;

/// Gathers the stream of one run into records, for reports that need a step whole.
class RunRecord {
 public:
  /// @return the step that the event has ended, if it has; valid until the next event.
  const StepRecord* handle(const RunEvent& event);

  const RunStarted& start() const { return m_start; }
  const std::vector<std::string>& troubles() const { return m_troubles; }
  /// @return null before the step's beginning; else valid as long as the record.
  const StepRecord* find(const std::string& stepId) const;
  /// Steps in the order in which they began.
  std::vector<const StepRecord*> steps() const;
  /// The ids of steps that began and have not ended.
  std::vector<std::string> openSteps() const;
  OutcomeSums sums() const;
  bool hasEnded() const { return m_hasEnded; }
  const RunEnded& end() const { return m_end; }
  std::chrono::system_clock::time_point begin() const { return m_begin; }
  std::chrono::system_clock::time_point last() const { return m_last; }
  double seconds() const;
  /// About how many bytes the record takes, whatever was told.
  std::size_t size() const { return m_size; }

 private:
  RunStarted m_start;
  std::map<std::string, StepRecord> m_steps;
  std::vector<std::string> m_order;
  std::vector<std::string> m_troubles;
  std::chrono::system_clock::time_point m_begin;
  std::chrono::system_clock::time_point m_last;
  bool m_hasBegun = false;
  bool m_hasEnded = false;
  RunEnded m_end;
  std::size_t m_size = 0;
};

/// For people, marked: "passed".
const char* toText(StepRecord::Outcome outcome);
/// For people: "3 passed, 1 failed"; empty for nothing.
std::string toText(const OutcomeSums& sums);

}  // namespace TarvexDiags::FrontEnd
