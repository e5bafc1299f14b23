#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "packagekit/internal/Frame.h"
#include "packagekit/internal/OutputTail.h"
#include "packagekit/internal/RunControl.h"
#include "packagekit/internal/WorkerProcess.h"

namespace TarvexDiags::PackageKit {

/// How long a worker may take for what, in seconds.
struct WorkerLimits {
  double start = 30;      ///< from its start until its package is loaded
  double exit = 30;       ///< from the end of one test until the next begins, or until it is gone
  double abortGrace = 5;  ///< from the request to stop until SIGTERM; no more than 0.3 beside tests
  double termGrace = 2;   ///< from SIGTERM until SIGKILL
  /// from SIGKILL, or from its own end if the kernel holds threads of it, until it is given up;
  /// behind an abort it is given up at once where it has told all
  double killGrace = 5;
};

/// How a worker ended.
struct WorkerEnd {
  bool isReady = false;            ///< the worker got as far as to load its package
  bool isComplete = false;         ///< it said that nothing more would come
  bool isGivenUp = false;          ///< it can't be ended
  bool isTimedOut = false;         ///< its time was over
  bool isKilledByHost = false;     ///< SIGTERM or SIGKILL came from here
  std::string protocolError = {};  ///< empty: its messages were all right
  ProcessEnd process = {};
  pid_t pid = -1;
  std::string lastLines = {};
  std::optional<PoisonRecord> poison = {};  ///< the poisoned memory that ended it
};

/// The life of one worker, seen from the host: gives it its work, reads what it says, and ends it
/// when it is told to or when its time is over. A worker that does not end by itself is asked, then
/// gets SIGTERM, then SIGKILL, and is at last left alone: nothing of this blocks for ever. One that
/// has ended but for threads that the kernel holds is left alone sooner, as it would hear nothing;
/// at once when it was aborted and has told all.
/// What its messages mean is for those that derive from this.
class WorkerSupervisor {
 public:
  virtual ~WorkerSupervisor() = default;
  WorkerSupervisor(const WorkerSupervisor&) = delete;
  WorkerSupervisor& operator=(const WorkerSupervisor&) = delete;

 protected:
  WorkerSupervisor(const WorkerLimits& limits, RunControl& control);

  /// Sends the setup and stays with the worker to its end. Once.
  WorkerEnd supervise(WorkerProcess& process, FrameWriter setup);

  /// What a frame means. Throws FrameError for one that can't be: the worker is killed for it.
  virtual void handle(Frame& frame) = 0;
  /// When the worker told what is being handled, by its own clock: never before the supervision
  /// began, never later than now, and never before what it told earlier, whatever it says.
  std::chrono::steady_clock::time_point toldAt() const { return m_toldAt; }
  /// How long SIGKILL may take, in seconds, before the worker is given up.
  virtual double killGrace() const { return m_limits.killGrace; }
  /// Called once, when the time of remindAfter() has passed.
  virtual void remind() {}
  /// Whether the worker hears a request to stop, and may take its time for it.
  virtual bool isInTest() const = 0;

  /// The worker's time, from now: no more than these seconds; 0: without end.
  void allow(double seconds);
  /// Has remind() called if the worker is still there after these seconds, from now.
  void remindAfter(std::chrono::duration<double> time);
  void setReady() { m_end.isReady = true; }
  /// Nothing more will come: all that is left for the worker to do is to end.
  void setComplete();
  const WorkerEnd& soFar() const { return m_end; }
  bool isRunning() const { return m_stage == Stage::Running; }
  bool isAskedToStop() const { return m_stage == Stage::AskedToStop; }
  std::string linesSoFar();

 private:
  using Clock = std::chrono::steady_clock;
  enum class Stage { Running, AskedToStop, Terminated, Killed, GivenUp };

  void followControl();
  void hurry();
  void pause(bool on);
  void remindWhenDue();
  void escalateWhenDue();
  void askToStop();
  void terminate();
  void escalateTo(Stage stage, int signal, double grace);
  void lookWhetherHeld();
  bool isLeaving() const { return m_isAborted && m_end.isComplete; }
  std::chrono::duration<double> longestHold() const;
  std::chrono::milliseconds lookLength() const;
  int pollTimeout() const;
  void waitForSomething();
  bool readOutput();
  bool readFrames();
  void takeFrames();
  void flushOutgoing();
  void breakProtocol(const std::string& what);
  void drain();

  const WorkerLimits& m_limits;
  RunControl& m_control;
  WorkerProcess* m_process = nullptr;
  FrameReader m_reader;
  OutputTail m_tail;
  std::string m_outgoing;
  WorkerEnd m_end;
  Stage m_stage = Stage::Running;
  std::optional<Clock::time_point> m_deadline;
  std::optional<Clock::duration> m_left;  ///< while suspended: what is left until the deadline
  std::optional<Clock::time_point> m_reminder;
  bool m_isPaused = false;
  bool m_isAborted = false;  ///< was heard of
  bool m_socketIsOpen = true;
  Clock::time_point m_toldAt;
  Clock::time_point m_nextLook;                  ///< whether the kernel holds it
  std::optional<Clock::time_point> m_heldSince;  ///< seen so at each look
};

}  // namespace TarvexDiags::PackageKit
