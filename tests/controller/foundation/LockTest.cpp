// Locks, the scope that holds one, and condition variables.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "DiagCtrl/DiagCtrlConditionVar.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/internal/foundation/LockScope.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/foundation/TracedLock.h"
#include "tests/controller/foundation/PlatformCalls.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/ThreadState.h"
#include "tests/support/TraceFile.h"
#include "tests/support/VirtualPlace.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using TestSupport::Companion;
using TestSupport::eventually;
using TestSupport::placeOf;
using TestSupport::PlatformCalls;
using TestSupport::TemporaryDirectory;
using TestSupport::TraceFile;
using namespace std::chrono_literals;

constexpr long kAnyTime = DiagCtrlConstants::mSconlDefaultLockTimeOut;

// ---- Locks ---------------------------------------------------------------------------------

TEST(DiagCtrlLock, keeps_a_second_thread_out_whatever_time_it_allows) {
  for (const long allowed : {0L, -1L, 2000L, 1L}) {
    DiagCtrlLock lock(kAnyTime);
    lock.lock(allowed);
    Companion second([&] {
      lock.lock(allowed);
      lock.unlock();
    });
    EXPECT_TRUE(second.blocks()) << allowed;
    lock.unlock();
    EXPECT_TRUE(second.ends()) << allowed;
  }
}

TEST(DiagCtrlLock, counts_up_without_a_lost_step_under_contention) {
  DiagCtrlLock lock(kAnyTime);
  int count = 0;
  {
    std::vector<std::unique_ptr<Companion>> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.push_back(std::make_unique<Companion>([&] {
        for (int step = 0; step < 2000; ++step) {
          lock.lock(0);
          ++count;
          lock.unlock();
        }
      }));
    }
  }
  EXPECT_EQ(count, 8000);
}

TEST(DiagCtrlLock, yields_once_when_it_is_free) {
  DiagCtrlLock lock(kAnyTime);
  const PlatformCalls calls;
  lock.lock(0);
  EXPECT_EQ(calls.tryLocks(), 1);
  EXPECT_EQ(calls.yields(), 1);
  lock.unlock();
  EXPECT_EQ(calls.yields(), 1);
}

TEST(DiagCtrlLock, tries_three_times_and_yields_four_times_before_it_blocks) {
  DiagCtrlLock lock(kAnyTime);
  lock.lock(0);
  std::atomic<int> tries{0};
  std::atomic<int> yields{0};
  {
    Companion second([&] {
      const PlatformCalls calls;
      lock.lock(0);
      tries = calls.tryLocks();
      yields = calls.yields();
      lock.unlock();
    });
    EXPECT_TRUE(second.blocks());
    lock.unlock();
  }
  EXPECT_EQ(tries, 3);
  EXPECT_EQ(yields, 4);
}

TEST(DiagCtrlLock, ignores_an_unlock_by_a_thread_that_does_not_hold_it) {
  DiagCtrlLock lock(kAnyTime);
  lock.lock(0);
  Companion([&] { lock.unlock(); });
  {
    Companion third([&] {
      lock.lock(0);
      lock.unlock();
    });
    EXPECT_TRUE(third.blocks());
    EXPECT_EQ(lock.getCurrentThreadId(), pthread_self());
    lock.unlock();
  }
}

TEST(DiagCtrlLock, names_its_last_holder_also_after_the_unlock) {
  DiagCtrlLock lock(kAnyTime);
  pthread_t other{};
  Companion([&] {
    other = pthread_self();
    lock.lock(0);
    lock.unlock();
  });
  EXPECT_EQ(lock.getCurrentThreadId(), other);
  lock.lock(0);
  EXPECT_EQ(lock.getCurrentThreadId(), pthread_self());
  lock.unlock();
  EXPECT_EQ(lock.getCurrentThreadId(), pthread_self());
}

TEST(DiagCtrlLock, passes_a_second_unlock_of_its_last_holder_on_to_the_platform) {
  DiagCtrlLock lock(kAnyTime);
  lock.lock(0);
  lock.unlock();
  PlatformCalls calls;
  calls.swallowUnlocks();
  lock.unlock();
  EXPECT_EQ(calls.unlocks(), 1);
}

TEST(DiagCtrlLock, is_not_destroyed_before_its_holder_leaves) {
  auto* const lock = new DiagCtrlLock(kAnyTime);
  lock->lock(0);
  Companion destroyer([lock] { delete lock; });
  EXPECT_TRUE(destroyer.blocks());
  lock->unlock();
  EXPECT_TRUE(destroyer.ends());
}

TEST(DiagCtrlLock, can_be_tried_without_blocking) {
  DiagCtrlLock lock(kAnyTime);
  EXPECT_TRUE(lock.tryLock());
  EXPECT_EQ(lock.getCurrentThreadId(), pthread_self());
  Companion([&] { EXPECT_FALSE(lock.tryLock()); });
  lock.unlock();
  Companion([&] {
    EXPECT_TRUE(lock.tryLock());
    lock.unlock();
  });
}

TEST(DiagCtrlLock, is_called_through_the_first_places_of_its_table) {
  EXPECT_EQ(placeOf(&DiagCtrlLock::lock), 2U);
  EXPECT_EQ(placeOf(&DiagCtrlLock::unlock), 3U);
  static_assert(std::has_virtual_destructor_v<DiagCtrlLock>);
}

// ---- The scope that holds a lock ---------------------------------------------------------------

/// A lock that cannot be taken, which the library's own never is.
class RefusingLock : public DiagCtrlLock {
 public:
  RefusingLock() : DiagCtrlLock(kAnyTime) {}
  void lock(long /*alTimeOutValue*/) override {
    throw DiagCtrlMutexException(DiagCtrlBaseException::LockTimeOut, 1, "elsewhere.cpp",
                                 "RefusingLock::lock()");
  }
  void unlock() override { ++unlocks; }
  int unlocks = 0;
};

/// Notes the time-out that reaches the lock.
class NotingLock : public DiagCtrlLock {
 public:
  NotingLock() : DiagCtrlLock(kAnyTime) {}
  void lock(long alTimeOutValue) override {
    noted = alTimeOutValue;
    DiagCtrlLock::lock(alTimeOutValue);
  }
  long noted = 12345;
};

/// A method of the library in small.
void lockedMethod(DiagTracer* tracer, DiagCtrlLock& lock) {
  const TraceScope trace(tracer, "Sample::lockedMethod");
  const LockScope hold(lock, 0, DiagCtrlBaseException::LockNotAcquired, "Sample::lockedMethod()");
  trace.info("inside");
}

bool isFree(DiagCtrlLock& lock) {
  bool free = false;
  Companion([&] {
    free = lock.tryLock();
    lock.unlock();
  });
  return free;
}

TEST(LockScope, holds_the_lock_to_its_end) {
  DiagCtrlLock lock(kAnyTime);
  {
    const LockScope hold(lock, 0);
    EXPECT_FALSE(isFree(lock));
  }
  EXPECT_TRUE(isFree(lock));
}

TEST(LockScope, gives_the_lock_back_early_and_once) {
  DiagCtrlLock lock(kAnyTime);
  LockScope hold(lock, 0);
  hold.release();
  EXPECT_TRUE(isFree(lock));
  const PlatformCalls calls;
  hold.release();
  EXPECT_EQ(calls.unlocks(), 0);
}

TEST(LockScope, keeps_the_lock_on_request) {
  DiagCtrlLock lock(kAnyTime);
  {
    LockScope hold(lock, 0);
    hold.keepHeld();
  }
  EXPECT_FALSE(isFree(lock));
  lock.unlock();
}

TEST(LockScope, gives_the_lock_back_when_an_exception_passes) {
  DiagCtrlLock lock(kAnyTime);
  try {
    const LockScope hold(lock, 0, DiagCtrlBaseException::MutexException, "Sample::method()");
    throw 1;
  } catch (int) {
  }
  EXPECT_TRUE(isFree(lock));
}

TEST(LockScope, hands_the_time_on_to_the_lock) {
  NotingLock lock;
  for (const long timeOut : {-1L, 0L}) {
    const LockScope hold(lock, timeOut, DiagCtrlBaseException::MutexException, "Sample::method()");
    EXPECT_EQ(lock.noted, timeOut);
  }
}

TEST(LockScope, knows_two_times_only) {
  EXPECT_EQ(lockTimeOut(-1), -1);
  for (const long other : {0L, 1L, 200L, -2L, 2000L}) {
    EXPECT_EQ(lockTimeOut(other), 0) << other;
  }
}

TEST(LockScope, names_the_method_whose_lock_could_not_be_taken) {
  RefusingLock lock;
  try {
    const LockScope hold(lock, 0, DiagCtrlBaseException::LockNotAcquired, "Sample::method()",
                         "sample.cpp", 42);
    FAIL() << "the lock was taken";
  } catch (const DiagCtrlMutexException& failure) {
    EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::LockNotAcquired);
    EXPECT_STREQ(failure.getParameter(), "Sample::method()");
    EXPECT_STREQ(failure.getFile(), "sample.cpp");
    EXPECT_EQ(failure.getLine(), 42U);
  }
  EXPECT_EQ(lock.unlocks, 0) << "a lock that was not taken is not given back";
}

TEST(LockScope, says_where_the_lock_was_wanted) {
  RefusingLock lock;
  const unsigned long before = __LINE__;
  try {
    const LockScope hold(lock, 0, DiagCtrlBaseException::MutexException, "Sample::method()");
    FAIL() << "the lock was taken";
  } catch (const DiagCtrlMutexException& failure) {
    EXPECT_EQ(failure.getLine(), before + 2);
    EXPECT_TRUE(std::string(failure.getFile()).ends_with("LockTest.cpp")) << failure.getFile();
  }
}

TEST(LockScope, closes_the_trace_of_the_method_whose_lock_could_not_be_taken) {
  const TemporaryDirectory directory;
  DiagTracer* const tracer = DiagTracer::getInstance();
  tracer->openTraceFile(directory.path().c_str(), DiagCtrlConstants::DIAG_INFORMATION);
  RefusingLock refusing;
  EXPECT_THROW(lockedMethod(tracer, refusing), DiagCtrlMutexException);
  const std::vector<std::string> expected = {"@enter Sample::lockedMethod",
                                             "@exit Sample::lockedMethod"};
  EXPECT_EQ(TraceFile(directory.path()).texts(), expected);
}

TEST(LockScope, lets_a_locks_own_exception_out_where_the_caller_handles_it) {
  RefusingLock lock;
  try {
    const LockScope hold(lock, 0);
    FAIL() << "the lock was taken";
  } catch (const DiagCtrlMutexException& failure) {
    EXPECT_STREQ(failure.getParameter(), "RefusingLock::lock()");
  }
}

TEST(TracedLock, holds_the_lock_to_its_end) {
  DiagCtrlLock lock(kAnyTime);
  const TraceScope trace(DiagTracer::getInstance(), "Sample::method");
  {
    const TracedLock hold(trace, lock, 0, "Sample::method()");
    EXPECT_FALSE(isFree(lock));
  }
  EXPECT_TRUE(isFree(lock));
}

TEST(TracedLock, traces_why_the_lock_could_not_be_taken_before_it_names_the_method) {
  const TemporaryDirectory directory;
  DiagTracer* const tracer = DiagTracer::getInstance();
  tracer->openTraceFile(directory.path().c_str(), DiagCtrlConstants::DIAG_ERROR);
  RefusingLock lock;
  const unsigned long before = __LINE__;
  try {
    const TraceScope trace(tracer, "Sample::method");
    const TracedLock hold(trace, lock, 0, "Sample::method()");
    FAIL() << "the lock was taken";
  } catch (const DiagCtrlMutexException& failure) {
    EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::MutexException);
    EXPECT_STREQ(failure.getParameter(), "Sample::method()");
    EXPECT_STREQ(failure.getFile(), __FILE__);
    EXPECT_EQ(failure.getLine(), before + 3);
  }
  EXPECT_EQ(lock.unlocks, 0);
  const TraceFile file(directory.path());
  EXPECT_TRUE(
      file.contains("Sample::method - Mutex Exception :  The MinorCode of Exception is :14"));
  EXPECT_TRUE(file.contains(" The Key Not Found is :RefusingLock::lock()"));
}

// ---- Condition variables ---------------------------------------------------------------------

using WallClock = std::chrono::system_clock;

WallClock::time_point startOfSecond(WallClock::time_point time) {
  return std::chrono::floor<std::chrono::seconds>(time);
}

std::chrono::nanoseconds sinceEpoch(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Until when a wait lasts that begins behind a moment of a second of the wall clock, counted from
/// the start of that second. Not from the very first moments: the clock of whole seconds ticks a
/// little later than the fine one.
std::chrono::nanoseconds endOfWaitFrom(std::chrono::milliseconds moment, long timeout) {
  DiagCtrlConditionVar condition;
  PlatformCalls calls;
  calls.endTimedWaits(ETIMEDOUT);
  for (;; std::this_thread::sleep_for(1ms)) {
    const auto before = WallClock::now();
    EXPECT_EQ(condition.timedWait(timeout), DiagCtrlConditionVar::timedOut);
    const auto second = startOfSecond(before);
    if (before - second >= moment && startOfSecond(WallClock::now()) == second) {
      return sinceEpoch(calls.deadline()) - second.time_since_epoch();
    }
  }
}

TEST(DiagCtrlConditionVar, returns_at_once_from_a_wait_of_no_time) {
  EXPECT_EQ(endOfWaitFrom(30ms, 0), 0ms);
  EXPECT_EQ(DiagCtrlConditionVar().timedWait(0), DiagCtrlConditionVar::timedOut);
}

TEST(DiagCtrlConditionVar, counts_a_short_time_from_the_start_of_the_second) {
  EXPECT_EQ(endOfWaitFrom(200ms, 500), 500ms);
}

TEST(DiagCtrlConditionVar, does_not_wait_for_a_moment_of_the_second_that_has_passed) {
  EXPECT_EQ(endOfWaitFrom(700ms, 500), 500ms);
}

TEST(DiagCtrlConditionVar, waits_shorter_than_asked_late_in_a_second) {
  EXPECT_EQ(endOfWaitFrom(800ms, 1500), 1500ms);
}

TEST(DiagCtrlConditionVar, waits_between_one_and_two_seconds_when_asked_for_two) {
  EXPECT_EQ(endOfWaitFrom(700ms, DiagCtrlConstants::mlSMonitorThrTimeWait), 2000ms);
}

TEST(DiagCtrlConditionVar, waits_until_the_moment_has_come) {
  auto start = WallClock::now();
  for (; start - startOfSecond(start) < 30ms; start = WallClock::now()) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(DiagCtrlConditionVar().timedWait(1500), DiagCtrlConditionVar::timedOut);
  EXPECT_GE(WallClock::now(), startOfSecond(start) + 1500ms);
}

TEST(DiagCtrlConditionVar, takes_the_times_next_to_a_second) {
  DiagCtrlConditionVar condition;
  EXPECT_EQ(condition.timedWait(999), DiagCtrlConditionVar::timedOut);
  EXPECT_EQ(condition.timedWait(1001), DiagCtrlConditionVar::timedOut);
}

void expectRefused(long timeout) {
  DiagCtrlConditionVar condition;
  try {
    condition.timedWait(timeout);
    ADD_FAILURE() << timeout << " was waited for";
  } catch (const DiagCtrlUnsupportedOperation& failure) {
    EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::UnsupportedOperation);
    EXPECT_STREQ(failure.getParameter(), "DiagCtrlConditionVar::timedWait()");
  }
  // The mutex inside was given back.
  condition.signal();
}

/// The same for a wait that the platform ends in its own way.
DiagCtrlConditionVar::WaitRetStatus statusAfter(int platformResult) {
  DiagCtrlConditionVar condition;
  PlatformCalls calls;
  calls.endTimedWaits(platformResult);
  return condition.timedWait(DiagCtrlConstants::mlSMonitorThrTimeWait);
}

TEST(DiagCtrlConditionVar, refuses_a_time_of_exactly_one_second) {
  expectRefused(1000);
}

TEST(DiagCtrlConditionVar, refuses_a_negative_time) {
  expectRefused(-1);
  expectRefused(-2000);
  expectRefused(std::numeric_limits<long>::min());
}

TEST(DiagCtrlConditionVar, refuses_a_wait_that_the_platform_cannot_make) {
  EXPECT_THROW(statusAfter(EINVAL), DiagCtrlUnsupportedOperation);
  EXPECT_THROW(statusAfter(EFAULT), DiagCtrlUnsupportedOperation);
}

TEST(DiagCtrlConditionVar, takes_every_end_but_the_deadline_for_a_signal) {
  EXPECT_EQ(statusAfter(ETIMEDOUT), DiagCtrlConditionVar::timedOut);
  for (const int result : {0, EPERM, EINTR, ENOTRECOVERABLE}) {
    EXPECT_EQ(statusAfter(result), DiagCtrlConditionVar::receivedSignal) << result;
  }
}

TEST(DiagCtrlConditionVar, closes_its_trace_before_it_throws) {
  const TemporaryDirectory directory;
  DiagTracer::getInstance()->openTraceFile(directory.path().c_str(), 3);
  EXPECT_THROW(DiagCtrlConditionVar().timedWait(1000), DiagCtrlUnsupportedOperation);
  const std::vector<std::string> expected = {"@enter DiagCtrlConditionVar::timedWait",
                                             "@exit DiagCtrlConditionVar::timedWait"};
  EXPECT_EQ(TraceFile(directory.path()).texts(), expected);
}

TEST(DiagCtrlConditionVar, wakes_a_timed_waiter_with_a_signal) {
  DiagCtrlConditionVar condition;
  std::optional<DiagCtrlConditionVar::WaitRetStatus> status;
  Companion waiter([&] { status = condition.timedWait(600'000); });
  EXPECT_TRUE(waiter.blocks());
  condition.signal();
  ASSERT_TRUE(waiter.ends());
  EXPECT_EQ(status, DiagCtrlConditionVar::receivedSignal);
}

TEST(DiagCtrlConditionVar, wakes_one_waiter_with_each_signal) {
  DiagCtrlConditionVar condition;
  Companion first([&] { condition.wait(); });
  Companion second([&] { condition.wait(); });
  EXPECT_TRUE(first.blocks());
  EXPECT_TRUE(second.blocks());
  condition.signal();
  EXPECT_TRUE(eventually([&] { return first.ended() || second.ended(); }));
  EXPECT_TRUE((first.ended() ? second : first).blocks());
  condition.signal();
  EXPECT_TRUE(first.ends());
  EXPECT_TRUE(second.ends());
}

TEST(DiagCtrlConditionVar, forgets_a_signal_that_nobody_waited_for) {
  DiagCtrlConditionVar condition;
  condition.signal();
  Companion waiter([&] { condition.wait(); });
  EXPECT_TRUE(waiter.blocks());
  condition.signal();
  EXPECT_TRUE(waiter.ends());
  EXPECT_EQ(condition.timedWait(0), DiagCtrlConditionVar::timedOut);
}

TEST(DiagCtrlConditionVar, does_not_wait_for_a_signal_given_since_the_ticket) {
  DiagCtrlConditionVar condition;
  const unsigned long ticket = condition.ticket();
  condition.signal();
  EXPECT_EQ(condition.timedWaitSince(600'000, ticket), DiagCtrlConditionVar::receivedSignal);
}

TEST(DiagCtrlConditionVar, waits_on_with_a_ticket_that_no_signal_followed) {
  DiagCtrlConditionVar condition;
  condition.signal();
  const unsigned long ticket = condition.ticket();
  EXPECT_EQ(condition.timedWaitSince(0, ticket), DiagCtrlConditionVar::timedOut);
  Companion waiter([&] {
    EXPECT_EQ(condition.timedWaitSince(600'000, ticket), DiagCtrlConditionVar::receivedSignal);
  });
  EXPECT_TRUE(waiter.blocks());
  condition.signal();
  EXPECT_TRUE(waiter.ends());
}

TEST(DiagCtrlConditionVar, numbers_its_results) {
  EXPECT_EQ(DiagCtrlConditionVar::waitAbandoned, 0U);
  EXPECT_EQ(DiagCtrlConditionVar::timedOut, 1U);
  EXPECT_EQ(DiagCtrlConditionVar::receivedSignal, 2U);
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
