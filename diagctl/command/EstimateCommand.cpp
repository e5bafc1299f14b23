#include "diagctl/command/EstimateCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <map>
#include <string>
#include <utility>

#include "diagctl/run/RequestWatch.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/Inbox.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Estimate.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::chrono::milliseconds kLongestWait{100};
constexpr unsigned long kLongestRun = 3600;
constexpr std::size_t kLeastWidth = 12;  ///< columns of a time

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
            tr("estimating {}", pair.test->toldName()));
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
        entry->second->seconds = PackageKit::Contract::estimateFrom(
            std::max(result->getEstimatedTime(), -1), result->getParamVector());
      }
    }
  }

  Session& m_session;
  RequestWatch m_watch;
  Inbox<Diag::DiagnosticResult> m_results;
  std::map<unsigned int, Estimate*> m_open;
};

std::string toText(double seconds) {
  if (seconds < 0) {
    return tr("unknown");
  }
  const long whole = wholeSeconds(seconds);
  if (whole < 60) {
    return tr("{} s", whole);
  }
  return whole < 3600 ? tr("{} min {:02} s", whole / 60, whole % 60)
                      : tr("{} h {:02} min", whole / 3600, whole / 60 % 60);
}

}  // namespace

DescribedTimes::DescribedTimes(std::string directory, bool isQuick)
    : m_directory(std::move(directory)), m_isQuick(isQuick) {}

double DescribedTimes::of(const PackageItem& package, const TestItem& test) const {
  const double usual = test.estimatedTime > 0 ? test.estimatedTime : -1;
  if (!m_isQuick) {
    return usual;
  }
  auto text = m_texts.find(package.baseName);
  if (text == m_texts.end()) {
    text = m_texts
               .emplace(package.baseName,
                        ConfigurationText::read(m_directory + "/" + package.baseName + ".cfg"))
               .first;
  }
  const auto quick = text->second ? text->second->value("TestID" + std::to_string(test.id),
                                                        PackageKit::Contract::kQuickEstimateKey)
                                  : std::nullopt;
  return quick ? PackageKit::Contract::toNumber(*quick).value_or(usual) : usual;
}

double secondsOfPasses(double seconds, const RunOptions& options) {
  if (seconds <= 0) {
    return seconds;
  }
  const double all = passesOf(options);
  return seconds *
         (options.secondsPerTest
              ? std::min(all,
                         std::floor(static_cast<double>(*options.secondsPerTest) / seconds) + 1)
              : all);
}

std::vector<Estimate> estimate(Session& session, const std::vector<SelectedPair>& pairs,
                               const RunOptions& options, const std::string& directory) {
  const DescribedTimes described(directory, isQuick(options));
  std::vector<Estimate> estimates;
  for (const SelectedPair& pair : pairs) {
    if (pair.state == PairState::Enabled) {
      estimates.push_back({pair, described.of(*pair.package, *pair.test)});
    }
  }
  Collection collection(session);
  for (Estimate& each : estimates) {
    collection.queue(each, isQuick(options));
  }
  collection.waitForAll();
  for (Estimate& each : estimates) {
    each.seconds = secondsOfPasses(each.seconds, options);
  }
  return estimates;
}

TimeNeeded sum(const std::vector<Estimate>& estimates) {
  std::vector<Load> loads;
  for (const Estimate& each : estimates) {
    loads.push_back({each.pair.device->tag, each.seconds, each.pair.package->takesMachine});
  }
  return timeNeeded(loads);
}

long wholeSeconds(double seconds) {
  constexpr double kMost = 1e15;
  return static_cast<long>(std::ceil(std::min(seconds, kMost)));
}

void writeEstimates(Printer& out, const std::vector<Estimate>& estimates) {
  std::size_t width = kLeastWidth;
  for (const Estimate& each : estimates) {
    width = std::max(width, columnsOf(toText(each.seconds)));
  }
  for (const Estimate& each : estimates) {
    const std::string time = toText(each.seconds);
    out.print("{}{}  {}\n", std::string(width - columnsOf(time), ' '), time,
              tr("{}: {} on {}", each.pair.package->toldName(), each.pair.test->toldName(),
                 each.pair.device->name));
  }
  const TimeNeeded sums = sum(estimates);
  const auto bound = [&](double seconds) {
    return sums.isComplete ? toText(seconds) : tr("at least {}", toText(seconds));
  };
  out.print("\n{}\n", trn("1 test: {1}", "{0} tests: {1} one after the other, {2} side by side",
                          estimates.size(), bound(sums.oneAfterTheOther), bound(sums.sideBySide)));
}

}  // namespace TarvexDiags::FrontEnd
