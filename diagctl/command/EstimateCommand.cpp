#include "diagctl/command/EstimateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>

#include "diagctl/run/RequestWatch.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/Inbox.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::chrono::milliseconds kLongestWait{100};
constexpr unsigned long kLongestRun = 3600;

Diag::DiagnosticSettings estimationSettings(bool isQuick) {
  Diag::DiagnosticSettings settings;
  settings.setEstimationMode(true);
  settings.setQuickTestMode(isQuick);
  settings.setRequestedPassCount(1);
  settings.setPassCount(1);
  settings.setRunTime(kLongestRun);
  return settings;
}

/// The figures of requests that are under way.
class Collection {
 public:
  explicit Collection(Session& session) : m_session(session), m_watch(session.controller()) {
    m_results.open(session.controller(), session.wakeups());
  }

  void queue(Estimate& estimate, bool isQuick) {
    const SelectedPair& pair = estimate.pair;
    Diag::DiagnosticSettings settings = estimationSettings(isQuick);
    std::vector<int> tests{pair.test->id};
    unsigned long request = 0;
    require(m_session.controller().queueTest(pair.package->index, pair.device->id, tests, settings,
                                             request),
            tr("estimating {}", pair.test->name));
    m_open[static_cast<unsigned int>(request)] = &estimate;
  }

  void waitForAll() {
    while (!m_open.empty() && Interruption::signal() == 0) {
      const std::vector<unsigned int> over = ended();
      collect();
      for (const unsigned int request : over) {
        m_open.erase(request);
      }
      if (!m_open.empty()) {
        m_session.wakeups().waitFor(kLongestWait);
      }
    }
  }

 private:
  std::vector<unsigned int> ended() const {
    std::vector<unsigned int> requests;
    for (const auto& [request, estimate] : m_open) {
      if (m_watch.hasEnded(request)) {
        requests.push_back(request);
      }
    }
    return requests;
  }

  void collect() {
    require(m_results.drain(), tr("collecting estimates"));
    while (const auto result = m_results.takeFirst()) {
      const auto entry = m_open.find(result->getTestRequestId());
      if (entry != m_open.end() && result->getEstimatedTime() != 0) {
        entry->second->seconds = std::max(result->getEstimatedTime(), -1);
      }
    }
  }

  Session& m_session;
  RequestWatch m_watch;
  Inbox<Diag::DiagnosticResult> m_results;
  std::map<unsigned int, Estimate*> m_open;
};

std::string toText(long seconds) {
  if (seconds < 0) {
    return tr("unknown");
  }
  if (seconds < 60) {
    return tr("{} s", seconds);
  }
  return seconds < 3600 ? tr("{} min {:02} s", seconds / 60, seconds % 60)
                        : tr("{} h {:02} min", seconds / 3600, seconds / 60 % 60);
}

}  // namespace

std::vector<Estimate> estimate(Session& session, const std::vector<SelectedPair>& pairs, int passes,
                               bool isQuick) {
  std::vector<Estimate> estimates;
  for (const SelectedPair& pair : pairs) {
    if (pair.state == PairState::Enabled) {
      const int configured = pair.test->estimatedTime;
      estimates.push_back({pair, configured > 0 ? configured : -1});
    }
  }
  Collection collection(session);
  for (Estimate& each : estimates) {
    collection.queue(each, isQuick);
  }
  collection.waitForAll();
  for (Estimate& each : estimates) {
    each.seconds = each.seconds < 0 ? -1 : each.seconds * passes;
  }
  return estimates;
}

EstimateSums sum(const std::vector<Estimate>& estimates) {
  EstimateSums sums;
  std::map<std::string, long> byDevice;
  for (const Estimate& each : estimates) {
    if (each.seconds < 0) {
      sums.isComplete = false;
      continue;
    }
    sums.serial += each.seconds;
    long& ofDevice = byDevice[each.pair.device->tag];
    ofDevice += each.seconds;
    sums.parallel = std::max(sums.parallel, ofDevice);
  }
  return sums;
}

void writeEstimates(Printer& out, const std::vector<Estimate>& estimates) {
  for (const Estimate& each : estimates) {
    out.say("{:>12}  {}: {} on {}\n", toText(each.seconds), each.pair.package->name,
            each.pair.test->name, each.pair.device->name);
  }
  const EstimateSums sums = sum(estimates);
  const auto bound = [&](long seconds) {
    return sums.isComplete ? toText(seconds) : tr("at least {}", toText(seconds));
  };
  out.say("\n{} tests: {} one after the other, {} side by side\n", estimates.size(),
          bound(sums.serial), bound(sums.parallel));
}

}  // namespace TarvexDiags::FrontEnd
