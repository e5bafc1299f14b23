// What the pipeline itself costs a request: the tests are empty, the trace is off. The peer is the
// least that any such pipeline does for a request: hand it to a thread, create a thread for it,
// join that one, and hand the result back.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/Comparison.h"
#include "tests/scripted/Script.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Eventually.h"

namespace {

using TarvexDiags::Bench::medianOf;
using TarvexDiags::Scripted::Call;
using TarvexDiags::Scripted::CallRecord;
using TarvexDiags::Scripted::Script;
using TarvexDiags::TestSupport::ControllerHarness;
using TarvexDiags::TestSupport::eventually;
using TarvexDiags::TestSupport::PackageConfig;
using Clock = std::chrono::steady_clock;

double microseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

double percentile99(std::vector<double> figures) {
  if (figures.empty()) {
    return 0;
  }
  std::sort(figures.begin(), figures.end());
  return figures[(figures.size() - 1) * 99 / 100];
}

/** A controller, a package of empty tests, and the moments of the latest request. */
class Pipeline {
 public:
  Pipeline(bool isParallel, int devices) : alpha(harness.addPackage("ALPHA", PackageConfig(1))) {
    alpha.setDevices(devices).recordNothing();
    if (isParallel) {
      harness.control().parallel();
    }
    harness.start();
  }
  /** The script outlives the pipeline, what it would call does not. */
  ~Pipeline() {
    for (const Call call :
         {Call::GetDiagnostics, Call::RunEnter, Call::RunReturn, Call::DestroyDiagnostics}) {
      alpha.on(call, nullptr);
    }
    alpha.everyPass({});
  }
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  /** Notes the moments of each request and pass. */
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
  /** Queues one request; waits until its verdict is done, which gives its object back. */
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
    auto settings = ControllerHarness::settings(passes);
    unsigned long id = 0;
    if (harness->queueTest(1, device, tests, settings, id) !=
        TarvexDiags::DiagCtrl::DiagnosticController::SUCCESS) {
      throw std::runtime_error("not queued");
    }
  }
  /** Until so many requests have been given back since the start. */
  void awaitFinished(unsigned long number) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return m_finished >= number; });
  }
  unsigned long finished() {
    const std::lock_guard<std::mutex> hold(m_mutex);
    return m_finished;
  }

  ControllerHarness harness;
  Script& alpha;
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

void label(benchmark::State& state) {
  state.SetLabel(state.range(0) != 0 ? "PARALLEL" : "SERIAL");
}

void report(benchmark::State& state, const std::vector<double>& figures) {
  state.counters["median_us"] = medianOf(figures);
  state.counters["p99_us"] = percentile99(figures);
}

// ---- The peer ----------------------------------------------------------------------------------

/** One hand-over by condition variable to a thread that stands by, as a dispatcher would. */
class BarePeer {
 public:
  BarePeer() : m_thread([this] { serve(); }) {}
  ~BarePeer() {
    set(3);
    m_thread.join();
  }
  void runOne() {
    set(1);
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_state == 2; });
  }

 private:
  void set(int state) {
    const std::lock_guard<std::mutex> hold(m_mutex);
    m_state = state;
    m_changed.notify_all();
  }
  void serve() {
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_state == 1 || m_state == 3; });
        if (m_state == 3) {
          return;
        }
      }
      pthread_t worker{};
      pthread_create(
          &worker, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
      pthread_join(worker, nullptr);
      set(2);
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_state = 0;
  std::thread m_thread;
};

void bareThreadAndHandOvers(benchmark::State& state) {
  BarePeer peer;
  for (auto _ : state) {
    peer.runOne();
  }
}
BENCHMARK(bareThreadAndHandOvers)->UseRealTime();

// ---- Latencies ---------------------------------------------------------------------------------

using Moment = std::atomic<Clock::time_point> Pipeline::*;

/** The time between two moments of each request. */
void measure(benchmark::State& state, Moment from, Moment to) {
  label(state);
  Pipeline pipeline(state.range(0) != 0, 1);
  pipeline.watch();
  std::vector<double> figures;
  for (auto _ : state) {
    pipeline.runOne();
    figures.push_back(microseconds((pipeline.*to).load() - (pipeline.*from).load()));
    state.SetIterationTime(figures.back() / 1e6);
  }
  report(state, figures);
}

void queueToStart(benchmark::State& state) {
  measure(state, &Pipeline::queued, &Pipeline::begun);
}
BENCHMARK(queueToStart)->Arg(0)->Arg(1)->UseManualTime();

void endOfPassToVerdict(benchmark::State& state) {
  measure(state, &Pipeline::ended, &Pipeline::judged);
}
BENCHMARK(endOfPassToVerdict)->Arg(0)->Arg(1)->UseManualTime();

// From the request's making to its end, with the peer in turn, so that a disturbance of the machine
// meets both.
void queueToVerdict(benchmark::State& state) {
  label(state);
  Pipeline pipeline(state.range(0) != 0, 1);
  pipeline.watch();
  BarePeer peer;
  std::vector<double> figures;
  std::vector<double> bare;
  for (auto _ : state) {
    const auto begin = Clock::now();
    peer.runOne();
    bare.push_back(microseconds(Clock::now() - begin));
    pipeline.runOne();
    figures.push_back(microseconds(pipeline.judged.load() - pipeline.queued.load()));
    state.SetIterationTime(figures.back() / 1e6);
  }
  report(state, figures);
  state.counters["bare_median_us"] = medianOf(bare);
  state.counters["times_bare"] = medianOf(figures) / medianOf(bare);
}
BENCHMARK(queueToVerdict)->Arg(0)->Arg(1)->UseManualTime();

// One pass of a request after the other: verdict, way back to the queue, and the next start.
void nextPass(benchmark::State& state) {
  label(state);
  Pipeline pipeline(state.range(0) != 0, 1);
  pipeline.watch();
  constexpr int passes = 200;
  for (auto _ : state) {
    pipeline.runOne(passes);
  }
  state.SetItemsProcessed(state.iterations() * passes);
}
BENCHMARK(nextPass)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// ---- Throughput --------------------------------------------------------------------------------

/** Arguments: mode, devices. All requests are queued by one client as fast as it can. */
void requestsASecond(benchmark::State& state) {
  label(state);
  const auto devices = static_cast<unsigned int>(state.range(1));
  Pipeline pipeline(state.range(0) != 0, static_cast<int>(devices));
  pipeline.watch();
  constexpr unsigned int requests = 200;
  for (auto _ : state) {
    const unsigned long before = pipeline.finished();
    for (unsigned int request = 0; request < requests; ++request) {
      pipeline.queue(1 + request % devices);
    }
    pipeline.awaitFinished(before + requests);
  }
  state.SetItemsProcessed(state.iterations() * requests);
}
BENCHMARK(requestsASecond)
    ->Args({0, 1})
    ->Args({0, 8})
    ->Args({1, 1})
    ->Args({1, 8})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// Each of them finds the device held by the one before.
void tenOneSecondTestsOnOneDevice(benchmark::State& state) {
  Pipeline pipeline(true, 1);
  pipeline.alpha.everyPass({.duration = std::chrono::seconds(1)});
  pipeline.watch();
  for (auto _ : state) {
    const unsigned long before = pipeline.finished();
    for (int request = 0; request < 10; ++request) {
      pipeline.queue(1);
    }
    pipeline.awaitFinished(before + 10);
  }
}
BENCHMARK(tenOneSecondTestsOnOneDevice)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// ---- Memory ------------------------------------------------------------------------------------

// A finished request stays until the client clears it away.
void finishedRequestInTheMap(benchmark::State& state) {
  Pipeline pipeline(false, 1);
  pipeline.watch();
  pipeline.runOne();
  constexpr unsigned long requests = 1000;
  double bytes = 0;
  for (auto _ : state) {
    pipeline.harness.forget();
    const std::size_t before = mallinfo2().uordblks;
    for (unsigned long request = 0; request < requests; ++request) {
      pipeline.runOne();
    }
    pipeline.harness.forget();
    bytes = static_cast<double>(mallinfo2().uordblks - before) / requests;
  }
  state.counters["bytes_a_request"] = bytes;
}
BENCHMARK(finishedRequestInTheMap)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
