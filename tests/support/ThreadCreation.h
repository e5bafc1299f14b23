#pragma once

#include <functional>

namespace TarvexDiags::TestSupport {

/// Stands between the process and pthread_create while the object lives. A test that uses it has
/// ThreadCreation.cpp among its sources, whose definition stands in front of the platform's. One
/// object at a time.
///
///   ThreadCreation creation;
///   creation.refuse(2);                        // the second thread from now on
///   EXPECT_EQ(harness->initialize(path), DiagnosticController::UNABLE_TO_INIT_MONI_THREAD);
class ThreadCreation {
 public:
  ThreadCreation();
  ~ThreadCreation();
  ThreadCreation(const ThreadCreation&) = delete;
  ThreadCreation& operator=(const ThreadCreation&) = delete;

  /// The number-th thread from the making of the object on, and as many as told, are refused.
  void refuse(int number, int count = 1);
  /// Called before each thread from now on, on the creating thread, with the thread's number.
  void watch(std::function<void(int)> observer);
  /// Called by each thread from now on, before anything else of it.
  void atStart(std::function<void()> beginning);
  /// Threads wanted so far, refused ones included.
  int wanted() const;
};

}  // namespace TarvexDiags::TestSupport
