#pragma once

// A controller with a package of empty tests, and the moments of its requests.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "tests/support/ControllerHarness.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::Bench {

using Clock = std::chrono::steady_clock;

inline double microseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

inline double percentile99(std::vector<double> figures) {
  if (figures.empty()) {
    return 0;
  }
  std::sort(figures.begin(), figures.end());
  return figures[(figures.size() - 1) * 99 / 100];
}

/// A controller, a package of empty tests, and the moments of the latest request.
class Pipeline {
 public:
  typedef Scripted::Call Call;
  typedef Scripted::CallRecord CallRecord;

  Pipeline(bool isParallel, int devices)
      : alpha(harness.addPackage("ALPHA", TestSupport::PackageConfig(1))) {
    alpha.setDevices(devices).recordNothing();
    if (isParallel) {
      harness.control().parallel();
    }
    harness.start();
  }
  /// The script outlives the pipeline, what it would call does not.
  ~Pipeline() {
    for (const Call call :
         {Call::GetDiagnostics, Call::RunEnter, Call::RunReturn, Call::DestroyDiagnostics}) {
      alpha.on(call, nullptr);
    }
    alpha.everyPass({});
  }
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  /// Notes the moments of each request and pass.
  void watch() {
    note(Call::GetDiagnostics, queued);
    note(Call::RunEnter, begun);
    note(Call::RunReturn, ended);
    alpha.on(Call::DestroyDiagnostics, [this](const CallRecord&) {
      const std::lock_guard<std::mutex> hold(m_mutex);
      judged = Clock::now();
      ++m_finished;
      m_changed.notify_one();
    });
  }
  /// Queues one request; waits until its verdict is done, which gives its object back.
  void runOne(int passes = 1) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const unsigned long before = m_finished;
    lock.unlock();
    queue(1, passes);
    lock.lock();
    m_changed.wait(lock, [&] { return m_finished > before; });
  }
  void queue(unsigned int device, int passes = 1) {
    std::vector<int> tests{1};
    auto settings = TestSupport::ControllerHarness::settings(passes);
    unsigned long id = 0;
    if (harness->queueTest(1, device, tests, settings, id) !=
        DiagCtrl::DiagnosticController::SUCCESS) {
      throw std::runtime_error("not queued");
    }
  }
  /// Until so many requests have been given back since the start.
  void awaitFinished(unsigned long number) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return m_finished >= number; });
  }
  unsigned long finished() {
    const std::lock_guard<std::mutex> hold(m_mutex);
    return m_finished;
  }

  TestSupport::ControllerHarness harness;
  Scripted::Script& alpha;
  std::atomic<Clock::time_point> queued{};
  std::atomic<Clock::time_point> begun{};
  std::atomic<Clock::time_point> ended{};
  std::atomic<Clock::time_point> judged{};

 private:
  void note(Call call, std::atomic<Clock::time_point>& moment) {
    alpha.on(call, [&moment](const CallRecord&) { moment = Clock::now(); });
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  unsigned long m_finished = 0;
};

}  // namespace TarvexDiags::Bench
