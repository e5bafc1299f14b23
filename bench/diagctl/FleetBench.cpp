// What the logs of many machines cost to be told together and to be merged: the time, lines a
// second, and the most memory that the program took.

#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "bench/support/ProgramRun.h"

namespace {

namespace fs = std::filesystem;

/// Logs of as many machines, of which each hundredth has a fault; removed at the end.
class FleetOfLogs {
 public:
  FleetOfLogs(std::size_t machines, std::size_t lines) {
    m_directory = (fs::temp_directory_path() / "fleet-bench-XXXXXX").string();
    if (mkdtemp(m_directory.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), m_directory);
    }
    for (std::size_t machine = 0; machine < machines; ++machine) {
      m_logs.push_back(m_directory + "/n" + std::to_string(machine) + ".jsonl");
      write(machine, lines);
    }
  }
  ~FleetOfLogs() { fs::remove_all(m_directory); }
  FleetOfLogs(const FleetOfLogs&) = delete;
  FleetOfLogs& operator=(const FleetOfLogs&) = delete;

  const std::vector<std::string>& logs() const { return m_logs; }
  std::string merged() const { return m_directory + "/all"; }

 private:
  void write(std::size_t machine, std::size_t lines) const {
    std::ofstream log(m_logs.back());
    std::size_t number = 0;
    const auto add = [&](const std::string& content) {
      log << "{" << content << R"(,"sequenceNumber":)" << number++
          << R"(,"timestamp":"2026-11-23T02:00:00.000Z"})" << '\n';
    };
    const auto addStep = [&](std::size_t step, const std::string& content) {
      add(R"("testStepArtifact":{"testStepId":")" + std::to_string(step) + "\"," + content + "}");
    };
    const std::string name = std::to_string(machine);
    add(R"("schemaVersion":{"major":2,"minor":0})");
    add(R"("testRunArtifact":{"testRunStart":{"name":"diagctl","version":"1","commandLine":"",)"
        R"("parameters":{"passes":"1"},"dutInfo":{"dutInfoId":"id)" +
        name + R"(","name":"n)" + name + "\"}}}");
    constexpr std::size_t linesOfStep = 7;
    std::size_t step = 0;
    while (number + linesOfStep < lines) {
      ++step;
      const bool hasFailed = machine % 100 == 7 && step == 5;
      addStep(step, R"("testStepStart":{"name":"Memory: Test )" + std::to_string(step) +
                        R"( on Memory of node 0"})");
      for (const char* const figure : {"seed", "duration", "coveredBytes"}) {
        addStep(step, std::string(R"("measurement":{"name":")") + figure +
                          R"(","value":1234.5,"unit":"s"})");
      }
      addStep(step, R"("extension":{"name":"pass","content":{"number":1}})");
      addStep(step, hasFailed
                        ? R"("diagnosis":{"verdict":"miscompare","type":"FAIL","message":"M"})"
                        : R"("diagnosis":{"verdict":"PASSED","type":"PASS"})");
      addStep(step, R"("testStepEnd":{"status":"COMPLETE"})");
    }
    while (number + 1 < lines) {
      add(R"("testRunArtifact":{"log":{"severity":"INFO","message":"of this and that"}})");
    }
    add(R"("testRunArtifact":{"testRunEnd":{"status":"COMPLETE","result":"PASS"}})");
  }

  std::string m_directory;
  std::vector<std::string> m_logs;
};

void tellMany(benchmark::State& state, bool merges) {
  const auto machines = static_cast<std::size_t>(state.range(0));
  constexpr std::size_t lines = 500;
  const FleetOfLogs fleet(machines, lines);
  std::vector<std::string> arguments = {TARVEX_DIAGCTL, merges ? "merge" : "report"};
  if (merges) {
    arguments.insert(arguments.end(), {"-o", fleet.merged()});
  }
  arguments.insert(arguments.end(), fleet.logs().begin(), fleet.logs().end());
  double memory = 0;
  for ([[maybe_unused]] auto _ : state) {
    memory = TarvexDiags::Bench::memoryOfRun(arguments);
  }
  state.counters["MiB"] = memory;
  state.counters["lines/s"] = benchmark::Counter(static_cast<double>(machines * lines),
                                                 benchmark::Counter::kIsIterationInvariantRate);
}

void ReportOfMany(benchmark::State& state) {
  tellMany(state, false);
}

void MergeOfMany(benchmark::State& state) {
  tellMany(state, true);
}

BENCHMARK(ReportOfMany)->Arg(10)->Arg(1000)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(MergeOfMany)->Arg(10)->Arg(1000)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
