#pragma once

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::PackageKit {

/// What client threads want of a run, and the way to wake the thread that supervises it. An abort
/// is latched. All operations are thread-safe and none blocks.
class RunControl {
 public:
  void abort();
  void suspend();
  void resume();

  /// A descriptor, of somebody else's, that aborts the run as long as it is readable; -1: none.
  void abortWhileReadable(int descriptor);

  bool isAborted() const;
  bool isSuspended() const;  ///< never after an abort

  /// Called by the supervising thread around its run: between the two, wakeDescriptor() becomes
  /// readable whenever something changed. Throws std::system_error.
  void beginRun();
  void endRun() noexcept;
  int wakeDescriptor() const;
  void clearWake();
  int endDescriptor() const;  ///< see abortWhileReadable

 private:
  void wake() TARVEXDIAGS_REQUIRES(m_lock);

  mutable System::Mutex m_lock;
  bool m_aborted TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  bool m_suspended TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  int m_end TARVEXDIAGS_GUARDED_BY(m_lock) = -1;
  UniqueDescriptor m_wake TARVEXDIAGS_GUARDED_BY(m_lock);
};

}  // namespace TarvexDiags::PackageKit
