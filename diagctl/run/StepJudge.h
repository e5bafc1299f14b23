#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "diagctl/report/RunEvents.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/report/Vanished.h"
#include "diagctl/run/CrashTrial.h"
#include "diagctl/run/RunPlan.h"
#include "diagctl/session/Texts.h"
#include "packagekit/contract/Judgement.h"

namespace TarvexDiags::FrontEnd {

/// Judges one step: makes events of the stream of what package and controller tell of its request.
/// What became of the step stands in the run's record, and nowhere beside it.
class StepJudge {
 public:
  /// The stream of the run, kept alive by the caller.
  struct Stream {
    const RunRecord& record;                 ///< of all that was told
    std::function<void(RunEventBody)> tell;  ///< tells and records
    std::function<void()> beforeBegin;       ///< called once, before the step's beginning is told
    VanishedAs vanished = VanishedAs::Trouble;
  };

  /// @param planned and texts are kept alive by the caller. @param id of the step.
  StepJudge(const PlannedRequest& planned, const Texts& texts, Stream stream, std::string id);

  const std::string& id() const { return m_id; }
  bool hasBegun() const { return record() != nullptr; }
  bool hasEnded() const { return hasBegun() && record()->hasEnded(); }
  /// Whether it was judged to have failed. What it has raised may still come to something else.
  bool hasFailed() const { return hasBegun() && record()->hasFailed(); }
  /// What the step has come to; it must have ended.
  StepRecord::Outcome outcome() const { return record()->outcome(); }

  /// Tells the beginning, unless it was told. Whatever tells of the step does so first.
  void begin();

  void take(const Diag::DiagnosticEvent& event);
  void take(const Diag::DiagnosticResult& result);
  void take(const DiagCtrl::DiagCtrlEvent& event);
  /// The request could not be queued, which ends the step.
  void takeRefusal(DiagCtrl::DiagnosticController::errorCode code);

  /// The request is ended before its time: by a person, a signal, the total time or the controller.
  void abort() { m_cut = Cut::Aborted; }
  bool isAborted() const { return m_cut == Cut::Aborted; }

  /// Whether a computing test has crashed.
  bool hasCrashed() const { return !m_crashes.empty(); }
  /// Whether it was told that the device has vanished.
  bool hasVanished() const { return m_hasVanished; }
  /// Whether the step's verdict depends on what becomes of its crash when the test is repeated.
  bool awaitsTrial() const {
    return hasCrashed() && !isAborted() && !m_fault && !record()->hasFailed();
  }
  /// The seed of the first pass that crashed; 0 if none crashed or nobody told it.
  std::uint64_t seedOfCrash() const { return hasCrashed() ? m_crashes.front().seed : 0; }
  /// Tells of the crash. The end is told when its trial is over.
  void adjourn();

  /// Tells the end. Nothing follows.
  void end();
  /// Tells what the trial of its crash came to, and the end.
  void end(const CrashFinding& finding);

 private:
  /// Why a step may have no verdict though the tool did its work.
  enum class Cut { None, NotPossible, Aborted };
  struct Finding {
    std::string symptom;
    std::string text;
    std::string action;
  };

  /// A crash of a computing test: trouble, unless a trial finds otherwise.
  struct Crash {
    std::string signal;
    std::uint64_t seed = 0;
    Finding trouble;
  };

  const StepRecord* record() const { return m_stream.record.find(m_id); }
  bool isTold() const;
  void takeTrouble(const Diag::DiagnosticEvent& event, Finding trouble);
  PackageKit::Contract::Ending ending() const;
  void judgeFault();
  void tellDuration(const std::vector<std::string>& parameters);
  void tellMeasurement(const Diag::DiagnosticEvent& event) const;
  void tellThroughput(const Diag::DiagnosticEvent& event) const;
  Finding findingOf(const Diag::DiagnosticResult& result, const std::optional<Finding>& firstFault);
  bool isTriable(const Diag::DiagnosticEvent& event) const;
  void tellCrashes(const std::string& action);
  void tellFinding(const CrashFinding& finding);
  RunStatus status() const;

  const PlannedRequest& m_planned;
  const Texts& m_texts;
  Stream m_stream;
  std::string m_id;
  Cut m_cut = Cut::None;
  SkipKind m_skip = SkipKind::NotPossible;
  int m_results = 0;
  int m_passed = 0;                     ///< of those
  Finding m_lastFinding;                ///< of the present pass
  std::optional<Finding> m_firstFault;  ///< the first error event of the present pass
  std::set<std::string> m_faults;       ///< error events of the present pass
  std::optional<Finding> m_fault;       ///< the first error event of the package
  bool m_hasVanished = false;           ///< the device, which was told
  bool m_contradicts = false;           ///< the test itself, which was told
  double m_testSeconds = 0;             ///< that the test itself has taken, over all passes
  std::uint64_t m_seed = 0;             ///< of the present pass
  std::vector<Crash> m_crashes;
};

/// How a device is named in the stream.
std::string hardwareIdOf(const SelectedPair& pair);

/// The beginning of the step of a pair.
StepStarted startOf(const SelectedPair& pair, const std::string& stepId, int passes);

}  // namespace TarvexDiags::FrontEnd
