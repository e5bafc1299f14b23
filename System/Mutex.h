#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#include "System/Export.h"
#include "System/ThreadAnnotations.h"

/// The standard library's mutexes and what goes with them, in a form that the compiler can check.
/// Everything is inline and costs what the standard's own costs.
namespace TarvexDiags::System {

/// std::mutex.
class TARVEXDIAGS_EXPORT TARVEXDIAGS_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() TARVEXDIAGS_ACQUIRE() { m_mutex.lock(); }
  void unlock() TARVEXDIAGS_RELEASE() { m_mutex.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex m_mutex;
};

/// std::shared_mutex.
class TARVEXDIAGS_EXPORT TARVEXDIAGS_CAPABILITY("mutex") SharedMutex {
 public:
  SharedMutex() = default;
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;

  void lock() TARVEXDIAGS_ACQUIRE() { m_mutex.lock(); }
  void unlock() TARVEXDIAGS_RELEASE() { m_mutex.unlock(); }
  void lockShared() TARVEXDIAGS_ACQUIRE_SHARED() { m_mutex.lock_shared(); }
  void unlockShared() TARVEXDIAGS_RELEASE_SHARED() { m_mutex.unlock_shared(); }

 private:
  std::shared_mutex m_mutex;
};

/// Holds a lock for a scope: a Mutex, a Lock, or a SharedMutex, of which it is the only holder
/// then.
template <class Lockable>
class TARVEXDIAGS_EXPORT TARVEXDIAGS_SCOPED_CAPABILITY LockHold {
 public:
  explicit LockHold(Lockable& lockable) TARVEXDIAGS_ACQUIRE(lockable) : m_lockable(lockable) {
    m_lockable.lock();
  }
  ~LockHold() TARVEXDIAGS_RELEASE() { m_lockable.unlock(); }
  LockHold(const LockHold&) = delete;
  LockHold& operator=(const LockHold&) = delete;

 private:
  Lockable& m_lockable;
};

/// std::condition_variable. A wait is written as a loop around its condition and not as a
/// predicate: inside of a predicate the compiler would not know that the mutex is held.
class TARVEXDIAGS_EXPORT ConditionVariable {
 public:
  void notifyOne() noexcept { m_condition.notify_one(); }
  void notifyAll() noexcept { m_condition.notify_all(); }

  /// Waits for a notification, with the mutex given back meanwhile; may also return without one.
  void wait(Mutex& mutex) TARVEXDIAGS_REQUIRES(mutex) {
    Borrowed held(mutex.m_mutex);
    m_condition.wait(held.lock);
  }
  /// The same, at most until the deadline. @return false when it has passed.
  template <class Clock, class Duration>
  bool waitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline)
      TARVEXDIAGS_REQUIRES(mutex) {
    Borrowed held(mutex.m_mutex);
    return m_condition.wait_until(held.lock, deadline) == std::cv_status::no_timeout;
  }

 private:
  // The form in which the standard wants a held mutex; it stays the caller's on every way out.
  struct Borrowed {
    explicit Borrowed(std::mutex& mutex) : lock(mutex, std::adopt_lock) {}
    ~Borrowed() { lock.release(); }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;
    std::unique_lock<std::mutex> lock;
  };

  std::condition_variable m_condition;
};

}  // namespace TarvexDiags::System
