#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "packagekit/internal/Frame.h"
#include "packagekit/internal/OutputTail.h"
#include "packagekit/internal/PassSetup.h"
#include "packagekit/internal/RunControl.h"
#include "packagekit/internal/WorkerProcess.h"

namespace TarvexDiags::PackageKit {

/// How long a worker may take for what, in seconds.
struct SessionLimits {
  double start = 30;      ///< from its start until its package is loaded
  double exit = 30;       ///< from the end of one test until the next begins, or until it is gone
  double abortGrace = 5;  ///< from the request to stop until SIGTERM; no more than 0.3 beside tests
  double termGrace = 2;   ///< from SIGTERM until SIGKILL
  /// from SIGKILL, or from its own end if the kernel holds threads of it, until it is given up
  double killGrace = 5;
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
};

/// What a session tells on the way, on the thread that runs it.
class SessionObserver {
 public:
  virtual ~SessionObserver() = default;
  virtual void testBegan(std::size_t position) = 0;
  virtual void testProgressed(unsigned int percent) = 0;
  virtual void eventRaised(Diag::DiagnosticEvent::EventType type, unsigned int code,
                           std::vector<std::string> parameters) = 0;
  virtual void testEnded(const TestReport& report) = 0;
};

/// How a session ended.
struct SessionEnd {
  bool isReady = false;                     ///< the worker got as far as to load its package
  bool isComplete = false;                  ///< it said that nothing more would come
  bool isGivenUp = false;                   ///< it can't be ended
  bool isTimedOut = false;                  ///< its time was over
  bool isKilledByHost = false;              ///< SIGTERM or SIGKILL came from here
  std::string protocolError = {};           ///< empty: its messages were all right
  std::optional<std::size_t> current = {};  ///< the test that it was in
  std::size_t testsEnded = 0;               ///< tests from the start of the list that have ended
  ProcessEnd process = {};
  pid_t pid = -1;
  std::string lastLines = {};
  std::optional<PoisonRecord> poison = {};  ///< the poisoned memory that ended it
};

/// The life of one worker, seen from the host: gives it its work, relays what it says, and ends it
/// when it is told to or when its time is over. A worker that does not end by itself is asked, then
/// gets SIGTERM, then SIGKILL, and is at last left alone: nothing of this blocks for ever. One that
/// has ended but for threads that the kernel holds is left alone sooner, as it would hear nothing.
class WorkerSession {
 public:
  /// @param setup a list of one test or more.
  WorkerSession(const PassSetup& setup, const SessionLimits& limits, RunControl& control,
                SessionObserver& observer);

  /// Sends the setup and stays with the worker to its end.
  SessionEnd run(WorkerProcess& process);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Stage { Running, AskedToStop, Terminated, Killed, GivenUp };

  void followControl();
  void pause(bool on);
  void allow(double seconds);
  void escalateWhenDue();
  void askToStop();
  void terminate();
  void escalateTo(Stage stage, int signal, double grace);
  void lookWhetherHeld();
  std::chrono::milliseconds lookLength() const;
  int pollTimeout() const;
  void waitForSomething();
  bool readOutput();
  bool readFrames();
  void takeFrames();
  void handle(Frame& frame);
  void handleTestBegin(Frame& frame);
  void handleTestEnd(Frame& frame);
  void handlePassEnd();
  void flushOutgoing();
  void breakProtocol(const std::string& what);
  void drain();

  const PassSetup& m_setup;
  const SessionLimits& m_limits;
  RunControl& m_control;
  SessionObserver& m_observer;
  WorkerProcess* m_process = nullptr;
  FrameReader m_reader;
  OutputTail m_tail;
  std::string m_outgoing;
  SessionEnd m_end;
  Stage m_stage = Stage::Running;
  std::optional<Clock::time_point> m_deadline;
  std::optional<Clock::duration> m_left;  ///< while suspended: what is left until the deadline
  bool m_isPaused = false;
  bool m_socketIsOpen = true;
  Clock::time_point m_nextLook;                  ///< whether the kernel holds it
  std::optional<Clock::time_point> m_heldSince;  ///< seen so at each look
};

}  // namespace TarvexDiags::PackageKit
