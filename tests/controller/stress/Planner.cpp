#include "tests/controller/stress/Planner.h"

#include <chrono>

namespace TarvexDiags::TestSupport {

using std::chrono::microseconds;

void Planner::setTimes(Scripted::Pass& pass, Random& random, const Role& role,
                       const Scripted::CallRecord& run) const {
  if (m_isQuick) {
    pass.duration = microseconds(oneIn(random, 200) ? below(random, 2000) : 0);
    return;
  }
  const bool lasts = oneIn(random, role.isPatient ? 2 : 4);
  pass.duration = microseconds(oneIn(random, 30) ? 15'000 : below(random, lasts ? 8000 : 600));
  pass.unwinding = microseconds(oneIn(random, 10) ? 3000 : 0);
  if (role.isPatient && run.run > 1 && oneIn(random, 20)) {
    pass.duration = std::chrono::seconds(20);  // an abort is sure to come earlier
  }
}

Scripted::Pass Planner::plan(const Scripted::CallRecord& run, const Role& role) {
  Random random(m_seed * 7919 + run.requestId * 31 + run.run);
  Scripted::Pass pass;
  setTimes(pass, random, role, run);
  const unsigned int events = below(random, 3);
  for (unsigned int i = 0; i < events; ++i) {
    pass.events.push_back({.code = ++m_lastCode});
    pass.lastEvents.push_back({.code = ++m_lastCode});
  }
  pass.results.clear();
  const unsigned int results = 1 + below(random, 2);
  const std::lock_guard<std::mutex> hold(m_mutex);
  Planned& planned = m_planned[run.requestId];
  planned.runs = run.run;
  for (unsigned int i = 0; i < results; ++i) {
    const auto verdict = static_cast<Diag::DiagnosticResult::TestResult>(
        oneIn(random, 8) ? 1 + below(random, 2) : 0);
    const unsigned int code = ++m_lastCode;  // other passes count on meanwhile
    pass.results.push_back({.verdict = verdict, .code = code});
    planned.results.push_back(code);
  }
  return pass;
}

std::vector<unsigned int> Planner::resultsOf(unsigned long request) const {
  const std::lock_guard<std::mutex> hold(m_mutex);
  const auto found = m_planned.find(request);
  return found == m_planned.end() ? std::vector<unsigned int>() : found->second.results;
}

unsigned int Planner::runsOf(unsigned long request) const {
  const std::lock_guard<std::mutex> hold(m_mutex);
  const auto found = m_planned.find(request);
  return found == m_planned.end() ? 0 : found->second.runs;
}

}  // namespace TarvexDiags::TestSupport
