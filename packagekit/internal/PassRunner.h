#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "packagekit/Setting.h"
#include "packagekit/contract/Judgement.h"
#include "packagekit/internal/Module.h"
#include "packagekit/internal/PassSetup.h"
#include "packagekit/internal/RunControl.h"
#include "packagekit/internal/WorkerSession.h"

namespace TarvexDiags::PackageKit {

/// Where the events and the progress of a pass go.
class PassObserver {
 public:
  virtual ~PassObserver() = default;
  /// @param time when it happened: of what a test tells, in its worker.
  virtual void raise(Diag::DiagnosticEvent::EventType type, unsigned int code,
                     std::vector<std::string> parameters,
                     std::chrono::steady_clock::time_point time) = 0;
  virtual void progressed(unsigned int percentOfPass) = 0;
};

/// What came out of a pass: the worst verdict of its tests, with the event that told it.
struct PassOutcome {
  Diag::DiagnosticResult::TestResult verdict = Diag::DiagnosticResult::PASSED;
  Diag::DiagnosticEvent::EventType type = Diag::DiagnosticEvent::INFORMATION_EVENT;
  unsigned int code = 0;
  std::vector<std::string> parameters = {};

  /// Takes over what is worse than what is known.
  void worsen(PassOutcome other) noexcept;
};

/// One pass over a list of tests on one device, one after the other, each in a worker of its own:
/// no test can tell anything in the name of another. Translates what workers say, and how they end,
/// into events and verdicts: trouble of the tool is no fault of the hardware, and takes nothing
/// back of a fault that a test had found before.
class PassRunner : private SessionObserver {
 public:
  PassRunner(Module& module, RunControl& control, PassObserver& observer, bool reportStatus);

  /// Runs the tests of the setup; seed and limits are filled in here, from the configuration. Where
  /// memory runs out the pass ends, without a verdict or with the fault that was found before.
  PassOutcome run(PassSetup setup);

 private:
  using Clock = std::chrono::steady_clock;
  using EventType = Diag::DiagnosticEvent::EventType;

  void testBegan(std::size_t position, Time time) override;
  void testProgressed(unsigned int percent, Time time) override;
  void eventRaised(EventType type, unsigned int code, std::vector<std::string> parameters,
                   Time time) override;
  void testEnded(const TestReport& report) override;

  void tellProgress(unsigned int percent);
  void logLineWritten(std::vector<std::string> line);
  void throughputTold(std::vector<std::string> throughput);
  void runTests();
  void endForLackOfMemory() noexcept;
  bool startIsRefused();
  void awaitLeavingWorker();
  SessionEnd runSession();
  void readConfiguration();
  double secondsOf(const OptionalSetting<Seconds>& setting, const std::optional<std::string>& text,
                   double fallback);
  void boundBytes(std::vector<std::string>& parameters);
  bool judgeSession(const SessionEnd& end);
  PassOutcome told(const TestReport& report, Contract::Ending ending);
  PassOutcome earlyEnd(const SessionEnd& end);
  std::string timeAllowed() const;
  void finishTest(Contract::Ending ending, const PassOutcome& told,
                  const std::string& lastLines = {});
  PassOutcome judged(Contract::Ending ending, const PassOutcome& told,
                     const std::string& lastLines);
  void reportDropped();
  PassOutcome unusual(unsigned int code, std::vector<std::string> details);
  void tell(unsigned int code, std::vector<std::string> details);
  PassOutcome raised(const PassOutcome& outcome);
  PassOutcome raisedOnce(const PassOutcome& outcome);
  std::vector<std::string> aboutTest(std::vector<std::string> details);

  Module& m_module;
  RunControl& m_control;
  PassObserver& m_observer;
  const bool m_reportStatus;
  PassSetup m_setup;         ///< of the pass
  std::size_t m_offset = 0;  ///< position in the pass of the session's first test
  std::size_t m_test = 0;    ///< position in the pass of the present test
  bool m_testIsOpen = false;
  std::optional<PassOutcome> m_errorRaised;  ///< by the present test, first
  bool m_errorIsTold = false;                ///< that one
  std::optional<PassOutcome> m_warningTold;  ///< of the present test, first
  SessionLimits m_limits;                    ///< of the session
  Clock::time_point now() const { return m_toldAt.value_or(Clock::now()); }

  std::optional<Clock::time_point> m_toldAt;        ///< what a worker tells at present
  Clock::time_point m_testStart;                    ///< by the worker's clock
  std::optional<Clock::time_point> m_throughputAt;  ///< when it was told last of the present test
  unsigned int m_reportedTens = 0;
  std::optional<std::size_t> m_eventsLeft;  ///< unknown before the first worker
  std::size_t m_bytesLeft = 0;              ///< that events of the pass may still take
  std::size_t m_eventsDropped = 0;
  std::size_t m_logLinesLeft = 0;  ///< of the pass, and the one that tells of those left out
  PassOutcome m_outcome;
};

}  // namespace TarvexDiags::PackageKit
