// What a request waits for the pipeline while every core is busy, which is what diagnostics do: two
// busy loops a core, pinned to it, of the same session and so of the same scheduling group. Rounds
// with the loops and rounds without take turns.

#include <benchmark/benchmark.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "bench/pipeline/Pipeline.h"
#include "bench/support/Comparison.h"

namespace {

using TarvexDiags::Bench::medianOf;
using TarvexDiags::Bench::microseconds;
using TarvexDiags::Bench::percentile99;
using TarvexDiags::Bench::Pipeline;

constexpr int kLoopsPerCore = 2;
constexpr int kRequestsPerRound = 10;
// At that nice value the controller must keep up; figures in milliseconds.
constexpr int kNiceOfTests = 10;
constexpr double kMostAtMedian = 20;
constexpr double kMostAtPercentile99 = 60;

/// Processes that keep every core busy from resume to pause.
class BusyLoops {
 public:
  explicit BusyLoops(int nice) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (std::size_t core = 0; core < CPU_SETSIZE; ++core) {
      for (int loop = 0; CPU_ISSET(core, &allowed) && loop < kLoopsPerCore; ++loop) {
        m_processes.push_back(startPaused(core, nice));
      }
    }
  }
  ~BusyLoops() {
    signalAll(SIGKILL);
    for (const pid_t process : m_processes) {
      waitpid(process, nullptr, 0);
    }
  }
  BusyLoops(const BusyLoops&) = delete;
  BusyLoops& operator=(const BusyLoops&) = delete;

  void resume() const { signalAll(SIGCONT); }
  void pause() const { signalAll(SIGSTOP); }

 private:
  static pid_t startPaused(std::size_t core, int nice) {
    const pid_t host = getpid();
    const pid_t process = fork();
    if (process < 0) {
      throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (process > 0) {
      waitpid(process, nullptr, WUNTRACED);
      return process;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(core, &own);
    if (getppid() != host || sched_setaffinity(0, sizeof own, &own) != 0 ||
        setpriority(PRIO_PROCESS, 0, nice) != 0) {
      _exit(1);
    }
    raise(SIGSTOP);
    for (;;) {
      __asm__ volatile("");
    }
  }
  void signalAll(int signal) const {
    for (const pid_t process : m_processes) {
      kill(process, signal);
    }
  }

  std::vector<pid_t> m_processes;
};

/// The two waits of each request, in milliseconds.
struct Waits {
  std::vector<double> start = {};    ///< from the request's making until its test begins
  std::vector<double> verdict = {};  ///< from the end of the pass until its object is given back

  void measure(Pipeline& pipeline) {
    for (int request = 0; request < kRequestsPerRound; ++request) {
      pipeline.runOne();
      start.push_back(microseconds(pipeline.begun.load() - pipeline.queued.load()) / 1e3);
      verdict.push_back(microseconds(pipeline.judged.load() - pipeline.ended.load()) / 1e3);
    }
  }
};

std::vector<std::string> missedTargets;

void holdAgainstTargets(const std::string& what, const std::vector<double>& figures) {
  const double median = medianOf(figures);
  const double percentile = percentile99(figures);
  if (median > kMostAtMedian || percentile > kMostAtPercentile99) {
    missedTargets.push_back(what + ": " + std::to_string(median) + " ms median, " +
                            std::to_string(percentile) + " ms at the 99th percentile");
  }
}

/// Arguments: mode, nice value of the loops. The time of an iteration is that of a loaded round.
void requestsWhileCoresAreBusy(benchmark::State& state) {
  const bool isParallel = state.range(0) != 0;
  const int nice = static_cast<int>(state.range(1));
  const BusyLoops loops(nice);  // before there are threads that a fork would leave behind
  Pipeline pipeline(isParallel, 1);
  pipeline.watch();
  Waits idle;
  Waits busy;
  for (auto _ : state) {
    idle.measure(pipeline);
    loops.resume();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto begin = TarvexDiags::Bench::Clock::now();
    busy.measure(pipeline);
    state.SetIterationTime(microseconds(TarvexDiags::Bench::Clock::now() - begin) / 1e6);
    loops.pause();
  }
  const std::string mode = isParallel ? "PARALLEL" : "SERIAL";
  state.SetLabel(mode);
  state.counters["start_median_ms"] = medianOf(busy.start);
  state.counters["start_p99_ms"] = percentile99(busy.start);
  state.counters["verdict_median_ms"] = medianOf(busy.verdict);
  state.counters["verdict_p99_ms"] = percentile99(busy.verdict);
  state.counters["idle_start_median_ms"] = medianOf(idle.start);
  state.counters["idle_verdict_median_ms"] = medianOf(idle.verdict);
  if (nice == kNiceOfTests) {
    holdAgainstTargets(mode + ", queue to start", busy.start);
    holdAgainstTargets(mode + ", end of pass to verdict", busy.verdict);
  }
}

/// Rounds, so many that a nice value takes half a minute on a slow machine.
void addNiceValue(const std::string& name, int nice, int rounds) {
  for (const int mode : {0, 1}) {
    benchmark::RegisterBenchmark(name.c_str(), requestsWhileCoresAreBusy)
        ->ArgNames({"parallel", "nice"})
        ->Args({mode, nice})
        ->Iterations(rounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace

int main(int count, char** arguments) {
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) {
    return 2;
  }
  addNiceValue("requestsWhileCoresAreBusy", 0, 6);
  addNiceValue("requestsWhileCoresAreBusy", kNiceOfTests, 40);
  addNiceValue("requestsWhileCoresAreBusy", 19, 20);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  for (const std::string& missed : missedTargets) {
    std::fprintf(stderr, "at nice %d, at most %.0f and %.0f ms wanted: %s\n", kNiceOfTests,
                 kMostAtMedian, kMostAtPercentile99, missed.c_str());
  }
  return missedTargets.empty() ? 0 : 1;
}
