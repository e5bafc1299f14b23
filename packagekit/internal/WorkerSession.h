#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "packagekit/internal/PassSetup.h"
#include "packagekit/internal/WorkerSupervisor.h"

namespace TarvexDiags::PackageKit {

/// How long a worker and its tests may take, in seconds.
struct SessionLimits : WorkerLimits {
  std::vector<double> tests = {};  ///< each test of the setup, by position; 0: no limit
};

/// How a test ended, as its worker told it.
struct TestReport {
  std::size_t position = 0;
  TestEnding ending = TestEnding::Trouble;
  unsigned int code = 0;
  std::vector<std::string> parameters = {};
  bool isTimedOut = false;  ///< it was told to stop because its time was over
  std::string lastLines = {};
  std::chrono::steady_clock::time_point time = {};  ///< by the worker's clock, as all below
};

/// What a session tells on the way, on the thread that runs it. Times are those at which it
/// happened in the worker: they never go back, and none is later than now.
class SessionObserver {
 public:
  using Time = std::chrono::steady_clock::time_point;

  virtual ~SessionObserver() = default;
  virtual void testBegan(std::size_t position, Time time) = 0;
  virtual void testProgressed(unsigned int percent, Time time) = 0;
  virtual void eventRaised(Diag::DiagnosticEvent::EventType type, unsigned int code,
                           std::vector<std::string> parameters, Time time) = 0;
  virtual void testEnded(const TestReport& report) = 0;
};

/// How a session ended.
struct SessionEnd : WorkerEnd {
  std::optional<std::size_t> current = {};  ///< the test that it was in
  std::size_t testsEnded = 0;               ///< tests from the start of the list that have ended
};

/// A worker that runs tests: relays what it says of them.
class WorkerSession final : private WorkerSupervisor {
 public:
  /// @param setup a list of one test or more.
  WorkerSession(const PassSetup& setup, const SessionLimits& limits, RunControl& control,
                SessionObserver& observer);

  /// Sends the setup and stays with the worker to its end.
  SessionEnd run(WorkerProcess& process);

 private:
  void handle(Frame& frame) override;
  bool isInTest() const override { return m_current.has_value(); }
  void handleTestBegin(Frame& frame);
  void handleTestEnd(Frame& frame);
  void handlePassEnd();

  const PassSetup& m_setup;
  const SessionLimits& m_limits;
  SessionObserver& m_observer;
  std::optional<std::size_t> m_current;
  std::size_t m_testsEnded = 0;
};

}  // namespace TarvexDiags::PackageKit
