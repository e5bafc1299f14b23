#pragma once

#include <chrono>
#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "diagctl/report/Figures.h"
#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

/// Texts in the order in which they were told, as many as somebody would read: 200 that
/// take 64 KiB together. Longer ones are cut.
class BoundedTexts {
 public:
  /// Adds a text unless it is there already or empty. @param room for it, in bytes.
  /// @return about how many bytes that took.
  std::size_t add(const std::string& text, std::size_t room);

  /// The same, also for one that is there already.
  std::size_t addAgain(const std::string& text, std::size_t room);

  auto begin() const { return m_texts.begin(); }
  auto end() const { return m_texts.end(); }
  bool empty() const { return m_texts.empty(); }
  const std::string& front() const { return m_texts.front(); }
  /// Where a text stands among those that are kept.
  std::optional<std::size_t> placeOf(const std::string& text) const;
  const std::string& operator[](std::size_t place) const { return m_texts[place]; }
  std::size_t size() const { return m_texts.size(); }
  /// How many were told and are not kept; those that were told again among them count again.
  std::size_t omitted() const { return m_omitted; }

 private:
  std::vector<std::string> m_texts;
  std::size_t m_size = 0;
  std::size_t m_omitted = 0;
};

/// For people, behind the texts that are kept: "and 3 more".
std::string moreOf(const BoundedTexts& texts);

/// What a report needs of one step, gathered from the stream.
struct StepRecord {
  enum class Outcome {
    Passed,
    Failed,
    Warning,
    Trouble,
    Aborted,
    NotRun,  ///< the run was ended before its turn
    Skipped,
    SkippedForPrivilege,
    SkippedForMode,
  };

  StepStarted start;
  std::chrono::system_clock::time_point begin;  ///< of its test, where its package tells that
  std::chrono::system_clock::time_point end;
  BoundedTexts findings;
  BoundedTexts actions;
  /// What to do about each of the findings: its place among the actions; nothing for none.
  std::vector<std::optional<std::size_t>> advice;
  Figures figures;
  std::string failure;  ///< the first of its kind among the findings; empty: none
  std::string trouble;  ///< the same
  std::string warning;  ///< the same
  std::string news;     ///< what was told last that is no finding
  std::string symptom;  ///< of the first failure, or else of the first trouble
  /// The last error that the test raised and has not taken back, and what to do about it. It weighs
  /// where the step has no end: who would have judged it was gone by then.
  std::string error;
  std::string errorAction;
  std::string seed;                 ///< of the pass of the first finding, or else of the last pass
  std::map<Verdict, int> verdicts;  ///< how often it was judged so
  int passesJudged = 0;
  std::size_t troubles = 0;  ///< of the tool
  std::size_t warnings = 0;  ///< that were told
  /// How many findings of each kind there are, however often each was told.
  std::map<Verdict, std::size_t> findingsBy;
  std::size_t troublesFound = 0;  ///< the same for those of the tool
  std::optional<StepEnded> ended;
  std::size_t place = 0;  ///< among the steps of the run, from 1
  std::size_t size = 0;   ///< about how many bytes the record takes

  int passes() const { return passesJudged; }
  bool hasFailed() const { return verdicts.contains(Verdict::Fail); }
  /// Whether it is none of a test, and says nothing but what sensors show or tests have covered.
  bool isSilent() const;
  bool hasEnded() const { return ended.has_value(); }
  bool isAborted() const { return hasEnded() && ended->isAborted; }
  /// Whether an error that it raised has no verdict yet, and nobody is left to give it one.
  bool isUnjudged() const { return !hasEnded() && !hasFailed() && !error.empty(); }
  /// What the step came to.
  Outcome outcome() const;
  /// The finding behind the outcome, or else what there is that comes closest to one.
  const std::string& headline() const;
  /// How many more findings there are of the kind of the headline.
  std::size_t furtherFindings() const;
  /// What to do about it; empty for nothing.
  std::string headlineAction() const;
  double seconds() const;
};

/// How many steps came to each outcome.
using OutcomeSums = std::map<StepRecord::Outcome, std::size_t>;

/// Steps that ended and are no longer held: what they came to together.
struct DroppedSteps {
  OutcomeSums sums;
  std::size_t begun = 0;
  double seconds = 0;
};

/// Gathers the stream of one run into records, for reports that need a step whole. What it came to
/// follows from all that was told, whatever is held of it.
class RunRecord {
 public:
  enum class Ended { Held, Dropped };
  static constexpr std::size_t kUnbounded = std::numeric_limits<std::size_t>::max() / 2;

  /// @param ended what becomes of a step when it ends. @param most bytes that may be held: beyond,
  ///   texts are counted and no longer kept, and steps are dropped as they end; those that passed
  ///   or were skipped before others.
  RunRecord(Ended ended, std::size_t most) : m_ended(ended), m_most(most) {}
  /// Holds all.
  RunRecord() = default;

  /// Forgets the run, for the next one.
  void clear() { *this = RunRecord(m_ended, m_most); }

  /// @return the step that the event has ended, if it has, and says something; valid until the next
  /// event.
  const StepRecord* handle(const RunEvent& event);

  const Coverage& coverage() const { return m_coverage; }
  const std::string& machineName() const { return m_machineName; }
  const BoundedTexts& troubles() const { return m_troubles; }
  /// How many troubles were told.
  std::size_t troubleCount() const { return m_troubleCount; }
  /// @return null before the step's beginning; else valid as long as the record holds it.
  const StepRecord* find(const std::string& stepId) const;
  /// Those that are held and say something, in the order in which they began.
  std::vector<const StepRecord*> steps() const;
  /// The ids of steps that began, say something and have not ended.
  std::vector<std::string> openSteps() const;
  /// How many steps began.
  std::size_t begun() const;
  OutcomeSums sums() const;
  const DroppedSteps& dropped() const { return m_dropped; }
  bool hasEnded() const { return m_hasEnded; }
  /// Of several ends, the worst of each.
  const RunEnded& end() const { return m_end; }
  std::chrono::system_clock::time_point begin() const { return m_begin; }
  std::chrono::system_clock::time_point last() const { return m_last; }
  double seconds() const;
  /// About how many bytes the record takes.
  std::size_t size() const { return m_size; }

 private:
  using Steps = std::map<std::string, StepRecord>;

  void takeOfRun(const RunEvent& event);
  void takeEnd(const RunEnded& end);
  Steps::iterator openEntry(const std::string& id, const RunEvent& event);
  std::size_t room() const { return m_most > m_size ? m_most - m_size : 0; }
  bool holds(const StepRecord& ended) const;
  const StepRecord* drop(Steps::iterator ended);

  Ended m_ended = Ended::Held;
  std::size_t m_most = kUnbounded;
  std::string m_machineName;
  Coverage m_coverage;
  Steps m_steps;
  std::size_t m_lastPlace = 0;
  DroppedSteps m_dropped;
  StepRecord m_lastDropped;
  BoundedTexts m_troubles;
  std::size_t m_troubleCount = 0;
  std::chrono::system_clock::time_point m_begin;
  std::chrono::system_clock::time_point m_last;
  bool m_hasBegun = false;
  bool m_hasEnded = false;
  RunEnded m_end;
  std::size_t m_size = 0;
};

/// Whether it was never meant to run here.
bool isSkipped(StepRecord::Outcome outcome);
/// Whether somebody is to look at it: it failed, has no verdict, or a warning.
bool isProblem(StepRecord::Outcome outcome);
/// For people, marked: "passed".
const char* toText(StepRecord::Outcome outcome);
/// The same of some steps: "3 passed".
std::string toText(StepRecord::Outcome outcome, std::size_t count);
/// The word that heads a line of a report, marked: "PASSED".
const char* wordOf(StepRecord::Outcome outcome);
/// For people: "3 passed, 1 failed"; empty for nothing.
std::string toText(const OutcomeSums& sums);
/// The same for what monitors and the system's log keep, in English.
std::string toEnglish(const OutcomeSums& sums);

}  // namespace TarvexDiags::FrontEnd
