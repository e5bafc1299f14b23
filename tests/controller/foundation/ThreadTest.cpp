// The base of the library's threads, and the argument that travels to a new one.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "DiagCtrl/DiagCtrlInvalidParameter.h"
#include "DiagCtrl/DiagCtrlUnsupportedOperation.h"
#include "DiagCtrl/DiagThread.h"
#include "DiagCtrl/DiagThreadArgument.h"
#include "DiagCtrl/DiagTracer.h"
#include "tests/controller/foundation/PlatformCalls.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"
#include "tests/support/VirtualPlace.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using TestSupport::eventually;
using TestSupport::placeOf;
using TestSupport::PlatformCalls;
using TestSupport::TemporaryDirectory;
using TestSupport::TraceFile;

constexpr unsigned long kStackSize = 2'000'000;
constexpr unsigned short kPriority = 98;

/// A thread whose body is given by the test.
class SampleThread : public DiagThread {
 public:
  explicit SampleThread(std::function<void(SampleThread&, void*)> body) : m_body(std::move(body)) {}
  SampleThread() : SampleThread([](SampleThread&, void*) {}) {}

  void run(void* apRunArgument) override { m_body(*this, apRunArgument); }

  SampleThread& prepared(unsigned long stackSize = kStackSize) {
    initialize(sched_Other, stackSize, kPriority);
    return *this;
  }
  SchedulingPolicy policy() const { return meSchedPolicy; }

 private:
  std::function<void(SampleThread&, void*)> m_body;
};

unsigned long now() {
  return static_cast<unsigned long>(time(nullptr));
}

template <class Exception>
void expectFailure(const std::function<void()>& action, DiagCtrlBaseException::MinorCodeEnum minor,
                   const std::string& text) {
  try {
    action();
    ADD_FAILURE() << text << " did not throw";
  } catch (Exception& failure) {
    EXPECT_EQ(failure.getMinor(), minor);
    EXPECT_EQ(failure.getParameter(), text);
    EXPECT_TRUE(std::string(failure.getFile()).ends_with("DiagThread.cpp")) << failure.getFile();
    EXPECT_GT(failure.getLine(), 0U);
  }
}

void expectUnsupported(const std::function<void()>& action, const std::string& text) {
  expectFailure<DiagCtrlUnsupportedOperation>(action, DiagCtrlBaseException::UnsupportedOperation,
                                              text);
}

TEST(DiagThread, is_made_at_rest) {
  const unsigned long before = now();
  SampleThread thread;
  EXPECT_FALSE(thread.getState());
  EXPECT_EQ(thread.getStacksize(), 0U);
  EXPECT_EQ(thread.getId(), pthread_t{0});
  EXPECT_EQ(thread.getRegisterId(), 0U);
  EXPECT_GE(thread.getLastUpdatedTime(), before);
  EXPECT_LE(thread.getLastUpdatedTime(), now());
}

TEST(DiagThread, takes_the_one_policy_and_a_stack_size) {
  SampleThread thread;
  thread.initialize(DiagThread::sched_Other, kStackSize, kPriority);
  EXPECT_EQ(thread.policy(), DiagThread::sched_Other);
  EXPECT_EQ(thread.getStacksize(), kStackSize);
}

TEST(DiagThread, refuses_every_other_policy_and_stores_nothing) {
  for (const auto policy : {DiagThread::sched_FIFO, DiagThread::sched_RR,
                            static_cast<DiagThread::SchedulingPolicy>(3)}) {
    SampleThread thread;
    expectUnsupported([&] { thread.initialize(policy, kStackSize, kPriority); },
                      "DiagThread::initialize()");
    EXPECT_EQ(thread.getStacksize(), 0U);
    EXPECT_EQ(thread.policy(), DiagThread::sched_Other);
  }
}

TEST(DiagThread, refuses_a_thread_without_a_stack) {
  SampleThread thread;
  thread.prepared();
  expectFailure<DiagCtrlInvalidParameter>(
      [&] { thread.initialize(DiagThread::sched_Other, 0, kPriority); },
      DiagCtrlBaseException::InvalidParameter, "DiagThread::initialize()");
  EXPECT_EQ(thread.getStacksize(), kStackSize);
}

TEST(DiagThread, looks_at_the_policy_before_the_stack) {
  SampleThread thread;
  EXPECT_THROW(thread.initialize(DiagThread::sched_RR, 0, kPriority), DiagCtrlUnsupportedOperation);
}

TEST(DiagThread, traces_a_refusal_in_and_out) {
  const TemporaryDirectory directory;
  DiagTracer::getInstance()->openTraceFile(directory.path().c_str(), 3);
  SampleThread thread;
  EXPECT_THROW(thread.initialize(DiagThread::sched_Other, 0, 0), DiagCtrlInvalidParameter);
  const std::vector<std::string> expected = {"@enter DiagThread::initialize",
                                             "@exit DiagThread::initialize"};
  EXPECT_EQ(TraceFile(directory.path()).texts(), expected);
}

TEST(DiagThread, gives_the_same_thread_whatever_the_priority) {
  const auto ownPolicy = [] {
    int policy = -1;
    sched_param ignored{};
    pthread_getschedparam(pthread_self(), &policy, &ignored);
    return policy;
  };
  for (const auto priority : std::initializer_list<unsigned short>{0, 98, 65535}) {
    int policy = -1;
    SampleThread thread([&](SampleThread&, void*) { policy = ownPolicy(); });
    thread.initialize(DiagThread::sched_Other, kStackSize, priority);
    thread.start(nullptr);
    thread.join();
    EXPECT_EQ(policy, ownPolicy()) << priority;  // SCHED_OTHER, unless all runs under another
  }
}

TEST(DiagThread, runs_its_body_on_a_thread_of_its_own) {
  int value = 0;
  void* received = nullptr;
  pthread_t runner{};
  SampleThread thread([&](SampleThread&, void* argument) {
    received = argument;
    runner = pthread_self();
  });
  thread.prepared().start(&value);
  thread.join();
  EXPECT_EQ(received, &value);
  EXPECT_NE(runner, pthread_self());
  EXPECT_EQ(thread.getId(), runner);
}

TEST(DiagThread, gives_the_thread_the_stack_that_was_asked_for) {
  std::size_t size = 0;
  SampleThread thread([&](SampleThread&, void*) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
  });
  thread.prepared().start(nullptr);
  thread.join();
  EXPECT_GE(size, kStackSize - 8192);
  EXPECT_LT(size, 2 * kStackSize) << "the platform's default stack";
}

TEST(DiagThread, is_wanted_from_before_its_first_statement_until_it_is_stopped) {
  std::atomic<bool> hasLooked{false};
  std::atomic<bool> wantedAtFirst{false};
  SampleThread thread([&](SampleThread& self, void*) {
    wantedAtFirst = self.getState();
    hasLooked = true;
    while (self.getState()) {
      std::this_thread::yield();
    }
  });
  thread.prepared().start(nullptr);
  EXPECT_TRUE(thread.getState());
  EXPECT_TRUE(eventually([&] { return hasLooked.load(); }));
  thread.stop();
  EXPECT_FALSE(thread.getState());
  thread.join();
  EXPECT_TRUE(wantedAtFirst);
  EXPECT_FALSE(thread.getState());
}

TEST(DiagThread, stays_wanted_when_its_body_ends_by_itself) {
  SampleThread thread;
  thread.prepared().start(nullptr);
  thread.join();
  EXPECT_TRUE(thread.getState());
}

TEST(DiagThread, keeps_running_after_stop_until_it_looks) {
  std::atomic<bool> mayEnd{false};
  std::atomic<bool> ended{false};
  SampleThread thread([&](SampleThread&, void*) {
    EXPECT_TRUE(eventually([&] { return mayEnd.load(); }));
    ended = true;
  });
  thread.prepared().start(nullptr);
  thread.stop();
  EXPECT_FALSE(thread.getState());
  EXPECT_FALSE(ended);
  mayEnd = true;
  thread.join();
  EXPECT_TRUE(ended);
}

TEST(DiagThread, renews_its_time_stamp) {
  SampleThread thread;
  const unsigned long made = thread.getLastUpdatedTime();
  ASSERT_TRUE(eventually([&] { return now() > made; }));
  EXPECT_EQ(thread.getLastUpdatedTime(), made);
  thread.updateTimeStamp();
  EXPECT_GT(thread.getLastUpdatedTime(), made);
  EXPECT_LE(thread.getLastUpdatedTime(), now());
}

TEST(DiagThread, cannot_be_joined_before_it_was_started) {
  SampleThread thread;
  expectUnsupported([&] { thread.join(); }, "DiagThread::join()");
}

TEST(DiagThread, cannot_be_joined_by_itself) {
  SampleThread thread([](SampleThread& self, void*) {
    expectUnsupported([&] { self.join(); }, "DiagThread::join()");
  });
  thread.prepared().start(nullptr);
  thread.join();
}

TEST(DiagThread, fails_to_start_with_a_stack_that_the_platform_refuses) {
  SampleThread thread;
  thread.prepared(1);
  expectUnsupported([&] { thread.start(nullptr); }, "DiagThread::start()");
  EXPECT_TRUE(thread.getState()) << "nothing is undone";
  EXPECT_EQ(thread.getId(), pthread_t{0});
}

TEST(DiagThread, fails_to_start_when_the_platform_has_no_room_for_the_stack) {
  SampleThread thread;
  thread.prepared(1UL << 46);
  expectUnsupported([&] { thread.start(nullptr); }, "DiagThread::start()");
  EXPECT_TRUE(thread.getState());
}

TEST(DiagThread, fails_to_start_without_attributes_and_is_then_not_wanted) {
  for (const int result : {ENOMEM, EINVAL, EFAULT}) {
    SampleThread thread;
    thread.prepared();
    {
      PlatformCalls calls;
      calls.refuseAttributes(result);
      expectUnsupported([&] { thread.start(nullptr); }, "DiagThread::start()");
    }
    EXPECT_FALSE(thread.getState()) << result;
  }
}

TEST(DiagThread, fails_to_start_when_the_platform_refuses_the_policy) {
  for (const int result : {EINVAL, EFAULT, ENOTSUP}) {
    SampleThread thread;
    thread.prepared();
    {
      PlatformCalls calls;
      calls.refuseSchedulingPolicy(result);
      expectUnsupported([&] { thread.start(nullptr); }, "DiagThread::start()");
    }
    EXPECT_TRUE(thread.getState()) << result;
  }
}

TEST(DiagThread, takes_a_result_that_is_no_known_failure_for_success) {
  bool ran = false;
  SampleThread thread([&](SampleThread&, void*) { ran = true; });
  thread.prepared();
  {
    PlatformCalls calls;
    calls.refuseSchedulingPolicy(EPERM);
    thread.start(nullptr);
  }
  thread.join();
  EXPECT_TRUE(ran);
}

TEST(DiagThread, unwinds_a_body_that_ends_its_thread_from_inside) {
  bool isUnwound = false;
  SampleThread thread([&](SampleThread&, void*) {
    struct Guard {
      bool& isUnwound;
      ~Guard() { isUnwound = true; }
    };
    const Guard guard{isUnwound};
    pthread_exit(nullptr);
  });
  thread.prepared().start(nullptr);
  thread.join();
  EXPECT_TRUE(isUnwound);
}

TEST(DiagThreadDeathTest, ends_the_process_with_what_its_body_throws) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        SampleThread thread([](SampleThread&, void*) { throw std::runtime_error("not handled"); });
        thread.prepared().start(nullptr);
        thread.join();
      },
      "not handled");
}

TEST(DiagThread, is_called_through_the_first_places_of_its_table) {
  EXPECT_EQ(placeOf(&DiagThread::getRegisterId), 2U);
  EXPECT_EQ(placeOf(&DiagThread::run), 3U);
  static_assert(std::has_virtual_destructor_v<DiagThread> && std::is_abstract_v<DiagThread> &&
                std::has_virtual_destructor_v<DiagThreadArgument>);
}

TEST(DiagThread, numbers_its_policies) {
  EXPECT_EQ(DiagThread::sched_Other, 0U);
  EXPECT_EQ(DiagThread::sched_FIFO, 1U);
  EXPECT_EQ(DiagThread::sched_RR, 2U);
}

TEST(DiagThreadArgument, carries_thread_and_argument) {
  int thread = 0;
  int argument = 0;
  const DiagThreadArgument carried(&thread, &argument);
  EXPECT_EQ(carried.getThreadPtr(), &thread);
  EXPECT_EQ(carried.getThreadArgument(), &argument);
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
