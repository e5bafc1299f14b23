#pragma once

#include <mutex>

#include "System/Export.h"

namespace TarvexDiags::System {

/**
 * @brief A plain, non-recursive mutex that can be a member of a copyable class.
 *
 * A lock guards the object that it is a member of, so a copy of that object needs a lock of its
 * own: a copied Lock starts free whatever the state of the original, and assignment leaves both
 * sides as they are. Works with std::lock_guard and its like.
 *
 * Thread-safety: lock, unlock and tryLock from any thread; unlock only by the thread that holds it.
 */
class TARVEXDIAGS_EXPORT Lock {
 public:
  Lock();
  Lock(const Lock& other) noexcept;
  Lock& operator=(const Lock& other) noexcept;
  ~Lock();

  /** @brief Waits until the lock is free, then takes it. Not re-entrant. */
  void lock();

  /** @brief Takes the lock when it is free. @return false, at once, when it is not. */
  bool tryLock();

  /** @brief Gives the lock back. The caller holds it. */
  void unlock();

 private:
  std::mutex m_mutex;
};

}  // namespace TarvexDiags::System
