#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <vector>

#include "tests/controller/stress/Cast.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::TestSupport {

/// Plans passes, each result with a code of its own, and knows which codes a request must deliver
/// and how many passes it had. Any thread may call anything.
class Planner {
 public:
  /// Quick: passes that hardly last.
  Planner(unsigned int seed, bool isQuick) : m_seed(seed), m_isQuick(isQuick) {}

  Scripted::Pass plan(const Scripted::CallRecord& run, const Role& role);

  std::vector<unsigned int> resultsOf(unsigned long request) const;
  unsigned int runsOf(unsigned long request) const;

 private:
  struct Planned {
    std::vector<unsigned int> results;
    unsigned int runs = 0;
  };

  void setTimes(Scripted::Pass& pass, Random& random, const Role& role,
                const Scripted::CallRecord& run) const;

  const unsigned int m_seed;
  const bool m_isQuick;
  std::atomic<unsigned int> m_lastCode{0};
  mutable std::mutex m_mutex;
  std::map<unsigned long, Planned> m_planned;
};

}  // namespace TarvexDiags::TestSupport
