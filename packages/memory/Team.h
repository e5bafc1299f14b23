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

  std::size_t size() const { return m_threads.size(); }

  /// @brief The CPUs on which no thread could be pinned.
  std::vector<int> refusedCpus() const;

  /// @brief Calls `work` once on every thread and returns when all calls have. It must not throw.
  void onAll(const std::function<void()>& work);

 private:
  void serve(int cpu);
  /// Tells that a round is done and waits for the next one; null at the end.
  const std::function<void()>* nextWork(std::size_t& round);

  mutable System::Mutex m_lock;
  System::ConditionVariable m_begin;
  System::ConditionVariable m_done;
  const std::function<void()>* m_work TARVEXDIAGS_GUARDED_BY(m_lock) = nullptr;
  std::size_t m_round TARVEXDIAGS_GUARDED_BY(m_lock) = 0;
  std::size_t m_busy TARVEXDIAGS_GUARDED_BY(m_lock) = 0;
  bool m_stopped TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  std::vector<int> m_refusedCpus TARVEXDIAGS_GUARDED_BY(m_lock);
  std::vector<std::thread> m_threads;
};

}  // namespace TarvexDiags::Memory
