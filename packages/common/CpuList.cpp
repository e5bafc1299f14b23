#include "packages/common/CpuList.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace TarvexDiags::Common {

namespace {

// More CPUs than any kernel of today is built for.
constexpr int kMaximumCpus = 1 << 16;

/// A set of CPUs of any size, as the kernel's calls take it.
class CpuSet {
 public:
  explicit CpuSet(int cpus) : m_size(CPU_ALLOC_SIZE(cpus)), m_set(CPU_ALLOC(cpus)) {
    CPU_ZERO_S(m_size, m_set);
  }
  ~CpuSet() { CPU_FREE(m_set); }
  CpuSet(const CpuSet&) = delete;
  CpuSet& operator=(const CpuSet&) = delete;

  std::size_t size() const { return m_size; }
  cpu_set_t* get() { return m_set; }

 private:
  std::size_t m_size;
  cpu_set_t* m_set;
};

}  // namespace

std::vector<int> allowedCpus() {
  CpuSet set(kMaximumCpus);
  std::vector<int> numbers;
  if (sched_getaffinity(0, set.size(), set.get()) != 0) {
    return numbers;
  }
  for (int cpu = 0; cpu < kMaximumCpus; ++cpu) {
    if (CPU_ISSET_S(static_cast<std::size_t>(cpu), set.size(), set.get())) {
      numbers.push_back(cpu);
    }
  }
  return numbers;
}

bool runsOnlyOn(int cpu) {
  CpuSet set(kMaximumCpus);
  return cpu >= 0 && cpu < kMaximumCpus && sched_getaffinity(0, set.size(), set.get()) == 0 &&
         CPU_COUNT_S(set.size(), set.get()) == 1 &&
         CPU_ISSET_S(static_cast<std::size_t>(cpu), set.size(), set.get());
}

bool pinThisThread(int cpu) {
  return allowThisThread({cpu});
}

bool allowThisThread(const std::vector<int>& cpus) {
  CpuSet set(kMaximumCpus);
  for (const int cpu : cpus) {
    if (cpu < 0 || cpu >= kMaximumCpus) {
      return false;
    }
    CPU_SET_S(static_cast<std::size_t>(cpu), set.size(), set.get());
  }
  return pthread_setaffinity_np(pthread_self(), set.size(), set.get()) == 0;
}

}  // namespace TarvexDiags::Common
