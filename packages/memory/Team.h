#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::Memory {

/// @brief Threads that wait for work, one on each of a list of CPUs.
///
/// Thread-safety: one thread gives work.
class Team {
 public:
  /// @brief Starts one thread for each CPU and pins it there.
  /// @param cpus  not empty; a CPU that the kernel refuses leaves its thread unpinned
  explicit Team(const std::vector<int>& cpus);
  ~Team();
  Team(const Team&) = delete;
  Team& operator=(const Team&) = delete;

  std::size_t size() const { return mThreads.size(); }

  /// @brief The CPUs on which no thread could be pinned.
  std::vector<int> refusedCpus() const;

  ///  @brief Calls `work` once on every thread and returns when all calls have. It must not throw.
  void onAll(const std::function<void()>& work);

 private:
  void serve(int cpu);
  /// Tells that a round is done and waits for the next one; null at the end.
  const std::function<void()>* nextWork(std::size_t& round);

  mutable System::Mutex mLock;
  System::ConditionVariable mBegin;
  System::ConditionVariable mDone;
  const std::function<void()>* mWork TARVEXDIAGS_GUARDED_BY(mLock) = nullptr;
  std::size_t mRound TARVEXDIAGS_GUARDED_BY(mLock) = 0;
  std::size_t mBusy TARVEXDIAGS_GUARDED_BY(mLock) = 0;
  bool mStopped TARVEXDIAGS_GUARDED_BY(mLock) = false;
  std::vector<int> mRefusedCpus TARVEXDIAGS_GUARDED_BY(mLock);
  std::vector<std::thread> mThreads;
};

}  // namespace TarvexDiags::Memory
