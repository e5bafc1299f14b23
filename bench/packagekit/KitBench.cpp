// What running tests in processes of their own costs.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "packagekit/internal/RunControl.h"
#include "packagekit/internal/WorkerSession.h"
#include "packagekit/testing/PackageDriver.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

namespace {

double median(std::vector<double> values) {
  if (values.empty()) {
    return 0;
  }
  const auto middle = values.begin() + static_cast<long>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void spawnTrue() {
  char name[] = "/bin/true";
  char* const arguments[] = {name, nullptr};
  pid_t process = 0;
  posix_spawn(&process, name, nullptr, nullptr, arguments, environ);
  waitpid(process, nullptr, 0);
}

template <class Action>
double timeOf(Action action) {
  const auto start = Clock::now();
  action();
  return Microseconds(Clock::now() - start).count();
}

void drain(Diag::IDiagnostics& diagnostics) {
  const std::unique_ptr<std::vector<Diag::DiagnosticEvent*>> events(
      diagnostics.getDiagnosticEvents());
  const std::unique_ptr<std::vector<Diag::DiagnosticResult*>> results(
      diagnostics.getDiagnosticResults());
  for (auto* const event : *events) {
    delete event;
  }
  for (auto* const result : *results) {
    delete result;
  }
}

// A pass of an empty test and a bare process, in turn.
void passAgainstProcess(benchmark::State& state) {
  Testing::PackageDriver driver(TARVEX_BENCH_DIR, "kitbench");
  auto& device = driver.device("nothing0");
  const auto diagnostics = driver.makeDiagnostics();
  Diag::DiagnosticSettings settings;
  settings.setTestNumberVector({1});
  std::vector<double> processes;
  std::vector<double> passes;
  for (auto _ : state) {
    processes.push_back(timeOf(&spawnTrue));
    const double pass = timeOf([&] { diagnostics->runDiagnostic(device, &settings); });
    passes.push_back(pass);
    drain(*diagnostics);
    state.SetIterationTime(pass * 1e-6);
  }
  state.counters["process_us"] = median(processes);
  state.counters["pass_us"] = median(passes);
  state.counters["ratio"] = median(passes) / median(processes);
}
BENCHMARK(passAgainstProcess)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);

class LatencyObserver : public SessionObserver {
 public:
  void testBegan(std::size_t, Time) override {}
  void testProgressed(unsigned int, Time) override {}
  void testEnded(const TestReport&) override {}
  void eventRaised(Diag::DiagnosticEvent::EventType, unsigned int,
                   std::vector<std::string> parameters, Time) override {
    const auto now = Clock::now().time_since_epoch().count();
    m_latencies.push_back(static_cast<double>(now - std::stoll(parameters[0])) * 1e-3);
  }
  const std::vector<double>& latencies() const { return m_latencies; }

 private:
  std::vector<double> m_latencies;
};

// From the test's call to the host's queue, one event every millisecond.
void eventLatency(benchmark::State& state) {
  LatencyObserver observer;
  for (auto _ : state) {
    PassSetup setup;
    setup.testIds = {2};
    setup.configFile = TARVEX_BENCH_DIR "/kitbench.cfg";
    SessionLimits limits;
    limits.tests = {60};
    RunControl control;
    control.beginRun();
    WorkerProcess process(TARVEX_PACKAGE_DIR "/tarvex-package-worker",
                          TARVEX_BENCH_DIR "/libkitbench.so", 0);
    WorkerSession(setup, limits, control, observer).run(process);
  }
  state.counters["events"] = static_cast<double>(observer.latencies().size());
  state.counters["median_us"] = median(observer.latencies());
}
BENCHMARK(eventLatency)->Unit(benchmark::kMillisecond)->Iterations(4);

}  // namespace
