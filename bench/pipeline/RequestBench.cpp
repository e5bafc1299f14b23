// What the pipeline itself costs a request: the tests are empty, the trace is off. The peer is the
// least that any such pipeline does for a request: hand it to a thread, create a thread for it,
// join that one, and hand the result back.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/pipeline/Pipeline.h"
#include "bench/support/Comparison.h"

namespace {

using TarvexDiags::Bench::medianOf;
using TarvexDiags::Bench::microseconds;
using TarvexDiags::Bench::percentile99;
using TarvexDiags::Bench::Pipeline;
using Clock = TarvexDiags::Bench::Clock;

void label(benchmark::State& state) {
  state.SetLabel(state.range(0) != 0 ? "PARALLEL" : "SERIAL");
}

void report(benchmark::State& state, const std::vector<double>& figures) {
  state.counters["median_us"] = medianOf(figures);
  state.counters["p99_us"] = percentile99(figures);
}

// ---- The peer ----------------------------------------------------------------------------------

/// One hand-over by condition variable to a thread that stands by, as a dispatcher would.
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

/// The time between two moments of each request.
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

/// Arguments: mode, devices. All requests are queued by one client as fast as it can.
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
