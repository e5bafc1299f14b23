#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace TarvexDiags::Memory {

/**
 * @brief Threads that wait for work, one on each of a list of CPUs.
 *
 * Thread-safety: one thread gives work.
 */
class Team {
 public:
  /**
   * @brief Starts one thread for each CPU and pins it there.
   * @param cpus  not empty; a CPU that the kernel refuses leaves its thread unpinned
   */
  explicit Team(const std::vector<int>& cpus);
  ~Team();
  Team(const Team&) = delete;
  Team& operator=(const Team&) = delete;

  std::size_t size() const { return mThreads.size(); }

  /** @brief The CPUs on which no thread could be pinned. */
  const std::vector<int>& refusedCpus() const { return mRefusedCpus; }

  /** @brief Calls `work` once on every thread and returns when all calls have. It must not throw.
   */
  void onAll(const std::function<void()>& work);

 private:
  void serve(int cpu);

  std::mutex mLock;
  std::condition_variable mBegin;
  std::condition_variable mDone;
  const std::function<void()>* mWork = nullptr;
  std::size_t mRound = 0;
  std::size_t mBusy = 0;
  bool mStopped = false;
  std::vector<int> mRefusedCpus;
  std::vector<std::thread> mThreads;
};

}  // namespace TarvexDiags::Memory
