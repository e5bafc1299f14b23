#pragma once

#include <pthread.h>

#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

/// Base of the library's threads: creation and join, the flag that a thread's loop polls, and the
/// time stamp by which its health is judged.
///
/// Life: construct, `initialize`, `start`; `run` loops while `getState` is true; another thread
/// calls `stop`, wakes the thread by its own means, and calls `join`. The owner joins before it
/// destroys the object.
class TARVEXDIAGS_EXPORT DiagThread {
 public:
  enum SchedulingPolicy : unsigned int { sched_Other = 0, sched_FIFO = 1, sched_RR = 2 };

  DiagThread();
  DiagThread(const DiagThread&) = delete;
  DiagThread& operator=(const DiagThread&) = delete;
  virtual ~DiagThread();

  /// 0 for every thread.
  virtual unsigned long getRegisterId();

  /// The body of the thread. It handles its own exceptions: what it throws ends the process.
  virtual void run(void* apRunArgument) = 0;

  /// @param aePolicy     only sched_Other.
  /// @param aulStackSize bytes, not 0; a size that the platform refuses fails in `start`.
  /// @param ausPriority  accepted and ignored.
  /// @throws DiagCtrlUnsupportedOperation, DiagCtrlInvalidParameter; then nothing is stored.
  void initialize(SchedulingPolicy aePolicy, unsigned long aulStackSize,
                  unsigned short ausPriority);

  /// Creates the thread; `getState` is true from before its first statement.
  /// @throws DiagCtrlUnsupportedOperation if the platform refuses; the object is then unusable and
  ///   must not be joined.
  void start(void* apRunArgument);

  /// Asks the thread to end. Neither signals nor waits.
  void stop();

  /// Waits for the end of the thread.
  /// @throws DiagCtrlUnsupportedOperation if there is nothing to join, or on the thread itself.
  void join();

  /// Whether the thread is wanted, which does not say that it is alive.
  bool getState();
  unsigned long getStacksize();

  /// Seconds since the epoch of the last `updateTimeStamp`, at first of the construction.
  unsigned long getLastUpdatedTime();
  void updateTimeStamp();

  /// The platform's id; 0 before `start`.
  const pthread_t& getId() const noexcept;

 protected:
  static void* proxyRun(void* apArgument);

  /// As `getState`, for a look in the midst of the thread's own steps.
  bool isWanted();

 private:
  bool muThreadState TARVEXDIAGS_GUARDED_BY(mCtrlLock);
  DiagCtrlLock mCtrlLock;

 protected:
  SchedulingPolicy meSchedPolicy TARVEXDIAGS_GUARDED_BY(mCtrlLock);
  unsigned long mulStackSize TARVEXDIAGS_GUARDED_BY(mCtrlLock);
  unsigned long mlTimeStamp TARVEXDIAGS_GUARDED_BY(mCtrlLock);
  pthread_t mthThreadID;  // the owner's alone: written by start, read by join
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
