#include "watch/Attribution.h"

#include <algorithm>

namespace TarvexDiags::Watching {

// The lineage is taken at the beginning: a device that vanishes has none any more.
void Attribution::begin(const std::string& test, const std::vector<std::string>& resources,
                        Moment time) {
  Run& run = m_runs.emplace_back(Run{test, {}, time, std::nullopt});
  for (const std::string& resource : resources) {
    run.lineage.merge(m_topology.lineage(resource));
  }
}

void Attribution::end(const std::string& test, Moment time) {
  for (Run& run : m_runs) {
    if (run.test == test && !run.end) {
      run.end = time;
    }
  }
}

std::vector<std::string> Attribution::testsOf(const Finding& finding) const {
  // The kernel tells at once what a disk did not carry out, so no test before has anything to do
  // with it.
  const bool isToldAtOnce = finding.device.starts_with("block:");
  std::vector<std::string> running = testsOf(finding, std::chrono::milliseconds(0));
  return isToldAtOnce && !running.empty() ? running : testsOf(finding, m_settle);
}

std::vector<std::string> Attribution::testsOf(const Finding& finding,
                                              std::chrono::milliseconds settle) const {
  std::vector<std::string> tests;
  for (const Run& run : m_runs) {
    const bool isInTime =
        finding.time >= run.begin && (!run.end || finding.time <= *run.end + settle);
    if (isInTime && run.lineage.contains(finding.device) &&
        std::find(tests.begin(), tests.end(), run.test) == tests.end()) {
      tests.push_back(run.test);
    }
  }
  return tests;
}

}  // namespace TarvexDiags::Watching
