#pragma once

#include <mutex>

#include "System/Export.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::System {

/**
 * @brief A plain, non-recursive mutex that can be a member of a copyable class.
 *
 * A lock guards the object that it is a member of, so a copy of that object needs a lock of its
 * own: a copied Lock starts free whatever the state of the original, and assignment leaves both
 * sides as they are. Works with LockHold, and with std::lock_guard and its like, of which the
 * compiler's check of locks knows nothing.
 *
 * Thread-safety: lock, unlock and tryLock from any thread; unlock only by the thread that holds it.
 */
class TARVEXDIAGS_EXPORT TARVEXDIAGS_CAPABILITY("mutex") Lock {
 public:
  Lock();
  Lock(const Lock& other) noexcept;
  Lock& operator=(const Lock& other) noexcept;
  ~Lock();

  /** @brief Waits until the lock is free, then takes it. Not re-entrant. */
  void lock() TARVEXDIAGS_ACQUIRE();

  /** @brief Takes the lock when it is free. @return false, at once, when it is not. */
  bool tryLock() TARVEXDIAGS_TRY_ACQUIRE(true);

  /** @brief Gives the lock back. The caller holds it. */
  void unlock() TARVEXDIAGS_RELEASE();

 private:
  std::mutex m_mutex;
};

}  // namespace TarvexDiags::System
