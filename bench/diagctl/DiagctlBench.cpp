// What the front end itself costs, with the bundled packages and nothing configured: the time from
// its start to the first test that runs, and its own processor time and memory while tests run.
//
// Tests run in worker processes, so what /proc tells of the front end's process is the front end
// with the controller in it, without the tests. TARVEX_BENCH_SECONDS (60) is how long they run.

#include <benchmark/benchmark.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/BusyLoops.h"

namespace {

using Clock = std::chrono::steady_clock;
using TarvexDiags::TestSupport::BusyLoops;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// A run of a program whose standard output, or terminal, is read.
class Process {
 public:
  enum class Output { pipe, terminal };

  Process(const std::vector<std::string>& arguments, Output output) {
    int ends[2] = {-1, -1};
    if (output == Output::terminal) {
      winsize size{.ws_row = 40, .ws_col = 120, .ws_xpixel = 0, .ws_ypixel = 0};
      m_process = forkpty(&m_out, nullptr, nullptr, &size);
    } else if (pipe(ends) == 0) {
      m_process = fork();
    }
    if (m_process < 0) {
      throw std::system_error(errno, std::generic_category(), "starting a process");
    }
    if (m_process == 0) {
      if (output == Output::pipe) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
      }
      become(arguments);
    }
    if (output == Output::pipe) {
      m_out = ends[0];
      close(ends[1]);
    }
  }
  ~Process() {
    if (m_process > 0) {
      kill(m_process, SIGKILL);
      waitpid(m_process, nullptr, 0);
    }
    close(m_out);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t id() const { return m_process; }

  /// Reads what there is, for no longer than a while. @return false at the end of the output.
  bool read(std::string& text, int milliseconds) {
    pollfd input{m_out, POLLIN, 0};
    if (poll(&input, 1, milliseconds) <= 0) {
      return true;
    }
    char buffer[65536];
    const ssize_t count = ::read(m_out, buffer, sizeof buffer);
    if (count <= 0) {
      return false;
    }
    text.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  void type(char key) {
    if (write(m_out, &key, 1) != 1) {
      throw std::system_error(errno, std::generic_category(), "typing a key");
    }
  }

  /// @return the exit code, -1 for a signal.
  int finish() {
    std::string rest;
    while (read(rest, -1)) {
      rest.clear();
    }
    int status = 0;
    waitpid(m_process, &status, 0);
    m_process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  [[noreturn]] static void become(const std::vector<std::string>& arguments) {
    for (const char* variable : {"XDG_CONFIG_HOME", "HOME"}) {
      unsetenv(variable);  // nothing is configured
    }
    std::vector<char*> texts;
    for (const std::string& argument : arguments) {
      texts.push_back(const_cast<char*>(argument.c_str()));
    }
    texts.push_back(nullptr);
    execv(texts[0], texts.data());
    _exit(127);
  }

  pid_t m_process = -1;
  int m_out = -1;
};

std::vector<std::string> diagctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {TARVEX_DIAGCTL, "--allow-insecure"});
  return arguments;
}

/// From the start of the program, over the enumeration of all bundled packages, to the line of its
/// log that says that a test is running.
void StartToFirstTest(benchmark::State& state) {
  const auto arguments = diagctl(
      {"run", "-q", "--quick", "-p", "network", "-t", "Loopback datagrams", "--format", "jsonl"});
  for (auto _ : state) {
    const auto begin = Clock::now();
    Process process(arguments, Process::Output::pipe);
    std::string log;
    while (log.find("testStepStart") == std::string::npos && process.read(log, -1)) {
    }
    state.SetIterationTime(secondsSince(begin));
    if (process.finish() != 0) {
      state.SkipWithError("the test did not pass");
      break;
    }
  }
}
BENCHMARK(StartToFirstTest)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(3);

/// The same enumeration with nothing to run, and the bare start of a process beside it.
void StartToEnd(benchmark::State& state, const std::vector<std::string>& arguments) {
  for (auto _ : state) {
    if (Process(arguments, Process::Output::pipe).finish() != 0) {
      state.SkipWithError("the program failed");
      break;
    }
  }
}
BENCHMARK_CAPTURE(StartToEnd, list, diagctl({"list"}))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(StartToEnd, version, diagctl({"--version"}))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(StartToEnd, bin_true, {"/bin/true"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

struct Usage {
  double processorSeconds = 0;
  double residentMiB = 0;
};

double fieldOf(const std::string& file, const std::string& name) {
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    if (line.rfind(name, 0) == 0) {
      return std::strtod(line.c_str() + name.size(), nullptr);
    }
  }
  return 0;
}

/// Of the process and its threads, without its children. Zero once it has ended.
Usage usageOf(pid_t process) {
  constexpr double kibInMib = 1024;
  const std::string directory = "/proc/" + std::to_string(process);
  std::ifstream stream(directory + "/stat");
  std::string text;
  std::getline(stream, text);
  std::istringstream fields(text.substr(std::min(text.size(), text.rfind(')') + 1)));
  std::string skipped;
  constexpr int fieldsBetween = 11;
  for (int i = 0; i < fieldsBetween; ++i) {
    fields >> skipped;
  }
  double user = 0;
  double system = 0;
  fields >> user >> system;
  return {(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK)),
          fieldOf(directory + "/status", "VmRSS:") / kibInMib};
}

/// The argument is whether somebody watches on a terminal. Two cores are tested at a time.
void WhileTestsRun(benchmark::State& state) {
  constexpr double secondsOfHour = 3600;
  constexpr double warmUp = 5;
  const char* wanted = std::getenv("TARVEX_BENCH_SECONDS");
  const std::string seconds = wanted != nullptr ? wanted : "60";
  const auto output = state.range(0) != 0 ? Process::Output::terminal : Process::Output::pipe;
  for (auto _ : state) {
    const auto begin = Clock::now();
    Process process(diagctl({"run", "-p", "processor", "-t", "Integer arithmetic", "--passes",
                             "1000000000", "--time", seconds, "-o", "jsonl=/dev/null"}),
                    output);
    Usage first;
    Usage last;
    double elapsed = 0;
    std::string drawn;
    constexpr int interval = 200;
    while (process.read(drawn, interval)) {
      drawn.clear();
      const Usage usage = usageOf(process.id());
      if (usage.residentMiB > 0) {
        last = usage;
        elapsed = secondsSince(begin);
        first = first.residentMiB == 0 && elapsed > warmUp ? usage : first;
      }
    }
    if (process.finish() != 0) {
      state.SkipWithError("the tests did not pass");
      break;
    }
    state.counters["processorSecondsAnHour"] = last.processorSeconds / elapsed * secondsOfHour;
    state.counters["residentMiB"] = last.residentMiB;
    state.counters["grownMiB"] = first.residentMiB > 0 ? last.residentMiB - first.residentMiB : 0;
  }
}

// Reads until a text has come. @return whether it has.
bool await(Process& process, const std::string& text) {
  std::string read;
  while (read.find(text) == std::string::npos) {
    if (!process.read(read, -1)) {
      return false;
    }
  }
  return true;
}

/// Beside busy loops: from the key that ends a run to the display that says so, and to the end of
/// the program (counter). Wanted: half a second.
void KeyToAnswer(benchmark::State& state) {
  const BusyLoops loops;
  double untilEnd = 0;
  for (auto _ : state) {
    Process process(
        diagctl({"run", "-p", "processor", "-t", "Integer arithmetic", "--passes", "100"}),
        Process::Output::terminal);
    if (!await(process, "Integer arithmetic on")) {
      state.SkipWithError("no test has begun");
      break;
    }
    const auto begin = Clock::now();
    process.type('q');
    if (!await(process, "ending")) {
      state.SkipWithError("the key was not answered");
      break;
    }
    state.SetIterationTime(secondsSince(begin));
    process.finish();
    untilEnd += secondsSince(begin);
  }
  state.counters["secondsToTheEnd"] =
      benchmark::Counter(untilEnd, benchmark::Counter::kAvgIterations);
}
BENCHMARK(KeyToAnswer)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(10);

/// Beside busy loops: the whole of a run that is to end after three seconds. Wanted: four.
void TotalTimeOfThreeSeconds(benchmark::State& state) {
  const BusyLoops loops;
  for (auto _ : state) {
    Process(diagctl({"run", "-p", "processor", "-p", "memory", "--total-time", "3"}),
            Process::Output::terminal)
        .finish();
  }
}
BENCHMARK(TotalTimeOfThreeSeconds)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(5);

/// Beside busy loops of ordinary priority: the program as it starts, before others, and as one
/// whose scheduling somebody has chosen, which it leaves alone.
void ListBesideLoops(benchmark::State& state, const std::vector<std::string>& chosen) {
  const BusyLoops loops(0);
  std::vector<std::string> arguments = chosen;
  const auto list = diagctl({"list"});
  arguments.insert(arguments.end(), list.begin(), list.end());
  for (auto _ : state) {
    if (Process(arguments, Process::Output::pipe).finish() != 0) {
      state.SkipWithError("the program failed");
      break;
    }
  }
}
BENCHMARK_CAPTURE(ListBesideLoops, before_others, {})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);
BENCHMARK_CAPTURE(ListBesideLoops, as_others, {"/usr/bin/chrt", "--batch", "0"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);

BENCHMARK(WhileTestsRun)->ArgName("terminal")->Arg(0)->Arg(1)->Iterations(1)->UseRealTime();

}  // namespace
