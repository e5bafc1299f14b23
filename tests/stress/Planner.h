#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <vector>

#include "tests/scripted/Script.h"
#include "tests/stress/Dice.h"

namespace TarvexDiags::TestSupport {

/** Plans passes, each result with a code of its own, and knows which codes a request must deliver.
 */
class Planner {
 public:
  explicit Planner(unsigned int seed) : m_seed(seed) {}

  Scripted::Pass plan(const Scripted::CallRecord& run) {
    Random random(m_seed * 7919 + run.requestId * 31 + run.run);
    Scripted::Pass pass;
    pass.duration = std::chrono::microseconds(oneIn(random, 30) ? 15000 : below(random, 600));
    pass.unwinding = std::chrono::microseconds(oneIn(random, 10) ? 3000 : 0);
    const unsigned int events = below(random, 3);
    for (unsigned int i = 0; i < events; ++i) {
      pass.events.push_back({.code = ++m_lastCode});
      pass.lastEvents.push_back({.code = ++m_lastCode});
    }
    pass.results.clear();
    const unsigned int results = 1 + below(random, 2);
    const std::lock_guard<std::mutex> hold(m_mutex);
    for (unsigned int i = 0; i < results; ++i) {
      const auto verdict = static_cast<Diag::DiagnosticResult::TestResult>(
          oneIn(random, 8) ? 1 + below(random, 2) : 0);
      const unsigned int code = ++m_lastCode;  // other passes count on meanwhile
      pass.results.push_back({.verdict = verdict, .code = code});
      m_resultsOf[run.requestId].push_back(code);
    }
    return pass;
  }
  std::vector<unsigned int> resultsOf(unsigned long request) {
    const std::lock_guard<std::mutex> hold(m_mutex);
    return m_resultsOf[request];
  }

 private:
  const unsigned int m_seed;
  std::atomic<unsigned int> m_lastCode{0};
  std::mutex m_mutex;
  std::map<unsigned long, std::vector<unsigned int>> m_resultsOf;
};

}  // namespace TarvexDiags::TestSupport
