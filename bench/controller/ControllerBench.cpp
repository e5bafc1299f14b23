// What a client waits for: start, enumeration, queries, texts and stop of the controller.
//
// Where a cost grows with a size, the counter "exponent" of the largest size is the slope of the
// logarithm of the time over that of the size, fitted over all sizes: 1 is linear growth.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerHarness.h"

namespace {

using TarvexDiags::DiagCtrl::DiagDevice;
using TarvexDiags::DiagCtrl::DiagnosticController;
using TarvexDiags::DiagCtrl::DiagnosticPackage;
using TarvexDiags::DiagCtrl::PackageList;
using TarvexDiags::DiagCtrl::PackageTestInfo;
using TarvexDiags::DiagCtrl::ParamStringVector;
using TarvexDiags::TestSupport::ControllerHarness;
using TarvexDiags::TestSupport::PackageConfig;
using Ids = std::vector<int>;

constexpr int kDevices = 10;
constexpr int kTests = 50;

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  }

 private:
  std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

/// The times of one benchmark by size, and how they grow.
class Growth {
 public:
  /// Notes the mean time of a run and shows the exponent of all sizes so far.
  void note(benchmark::State& state, double totalSeconds) {
    m_times[state.range(0)] = totalSeconds / static_cast<double>(state.iterations());
    if (m_times.size() > 1) {
      state.counters["exponent"] = exponent();
    }
  }

 private:
  double exponent() const {
    double sumX = 0;
    double sumY = 0;
    double sumXX = 0;
    double sumXY = 0;
    for (const auto& [size, time] : m_times) {
      const double x = std::log(static_cast<double>(size));
      const double y = std::log(time);
      sumX += x;
      sumY += y;
      sumXX += x * x;
      sumXY += x * y;
    }
    const auto count = static_cast<double>(m_times.size());
    return (count * sumXY - sumX * sumY) / (count * sumXX - sumX * sumX);
  }

  std::map<long, double> m_times;
};

void addPackages(ControllerHarness& harness, long count) {
  for (long number = 1; number <= count; ++number) {
    harness.addPackage("PACKAGE" + std::to_string(number), PackageConfig(kTests))
        .setDevices(kDevices)
        .recordNothing();
  }
}

// ---- Start, enumeration, stop ------------------------------------------------------------------

void initialize(benchmark::State& state) {
  ControllerHarness harness;
  for (auto _ : state) {
    const Stopwatch watch;
    harness.initialize();
    state.SetIterationTime(watch.seconds());
    harness.shutDown();
  }
}
BENCHMARK(initialize)->UseManualTime()->Unit(benchmark::kMicrosecond);

void enumerate(benchmark::State& state) {
  static Growth growth;
  ControllerHarness harness;
  addPackages(harness, state.range(0));
  double total = 0;
  for (auto _ : state) {
    harness.initialize();
    const Stopwatch watch;
    harness.enumerate();
    const double seconds = watch.seconds();
    state.SetIterationTime(seconds);
    total += seconds;
    harness.shutDown();
  }
  growth.note(state, total);
}
BENCHMARK(enumerate)->Arg(1)->Arg(10)->Arg(100)->UseManualTime()->Unit(benchmark::kMillisecond);

void shutDownFromIdle(benchmark::State& state) {
  ControllerHarness harness;
  addPackages(harness, 1);
  for (auto _ : state) {
    harness.start();
    const Stopwatch watch;
    harness.shutDown();
    state.SetIterationTime(watch.seconds());
  }
}
BENCHMARK(shutDownFromIdle)->UseManualTime()->Unit(benchmark::kMicrosecond);

/// With one test inside its package, which ends as soon as it is asked to.
void shutDownFromActive(benchmark::State& state) {
  ControllerHarness harness;
  auto& script = harness.addPackage("ALPHA");
  for (auto _ : state) {
    script.clearLog();
    script.holdRuns();
    harness.start();
    harness.queue("ALPHA", 1, {1});
    if (!script.awaitRunning(1)) {
      state.SkipWithError("the test did not start");
      break;
    }
    const Stopwatch watch;
    harness.shutDown();
    state.SetIterationTime(watch.seconds());
  }
}
BENCHMARK(shutDownFromActive)->UseManualTime()->Unit(benchmark::kMicrosecond);

// ---- Queries -----------------------------------------------------------------------------------

template <class Ask>
void query(benchmark::State& state, Ask ask) {
  ControllerHarness harness;
  addPackages(harness, 3);
  harness.start();
  for (auto _ : state) {
    if (ask(harness.controller()) != DiagnosticController::SUCCESS) {
      state.SkipWithError("the query failed");
      break;
    }
  }
}

/// One that hands out ids, with their release.
template <class Ask>
void queryIds(benchmark::State& state, Ask ask) {
  query(state, [ask](DiagnosticController& controller) {
    Ids* ids = nullptr;
    const auto code = ask(controller, ids);
    const std::unique_ptr<Ids> owned(ids);
    return code;
  });
}

using C = DiagnosticController;

void getNumberOfDiagPackages(benchmark::State& state) {
  int count = 0;
  query(state, [&](C& controller) { return controller.getNumberOfDiagPackages(count); });
}
void getDiagPackage(benchmark::State& state) {
  DiagnosticPackage* package = nullptr;
  query(state, [&](C& controller) { return controller.getDiagPackage(2, package); });
}
void getDevice(benchmark::State& state) {
  DiagDevice* device = nullptr;
  query(state, [&](C& controller) { return controller.getDevice(2, kDevices, device); });
}
void getTest(benchmark::State& state) {
  PackageTestInfo* test = nullptr;
  query(state, [&](C& controller) { return controller.getTest(2, kTests, test); });
}
void getDeviceIdList(benchmark::State& state) {
  queryIds(state, [](C& controller, Ids*& ids) { return controller.getDeviceIdList(2, ids); });
}
void getValidDeviceIdList(benchmark::State& state) {
  queryIds(state, [](C& controller, Ids*& ids) {
    return controller.getValidDeviceIdList(2, kTests, ids);
  });
}
void getTestIdList(benchmark::State& state) {
  queryIds(state, [](C& controller, Ids*& ids) { return controller.getTestIdList(2, ids); });
}
void getValidTestIdList(benchmark::State& state) {
  queryIds(state, [](C& controller, Ids*& ids) {
    return controller.getValidTestIdList(2, kDevices, ids);
  });
}
void getDisableTestList(benchmark::State& state) {
  queryIds(state, [](C& controller, Ids*& ids) { return controller.getDisableTestList(2, ids); });
}
void getDisableDeviceList(benchmark::State& state) {
  queryIds(state, [](C& controller, Ids*& ids) {
    return controller.getDisableDeviceList(2, kTests, ids);
  });
}
void getDisablePackageList(benchmark::State& state) {
  query(state, [](C& controller) {
    PackageList* list = nullptr;
    const auto code = controller.getDisablePackageList(list);
    const std::unique_ptr<PackageList> owned(list);
    return code;
  });
}
void getDeviceStatus(benchmark::State& state) {
  unsigned int status = 0;
  query(state, [&](C& controller) { return controller.getDeviceStatus(2, kDevices, status); });
}
BENCHMARK(getNumberOfDiagPackages);
BENCHMARK(getDiagPackage);
BENCHMARK(getDevice);
BENCHMARK(getTest);
BENCHMARK(getDeviceIdList);
BENCHMARK(getValidDeviceIdList);
BENCHMARK(getTestIdList);
BENCHMARK(getValidTestIdList);
BENCHMARK(getDisableTestList);
BENCHMARK(getDisableDeviceList);
BENCHMARK(getDisablePackageList);
BENCHMARK(getDeviceStatus);

// ---- Texts -------------------------------------------------------------------------------------

/// The last text of a language file, with one parameter, by the number of texts.
void getLocalizedMessage(benchmark::State& state) {
  static Growth growth;
  ControllerHarness harness;
  harness.addPackage("ALPHA").recordNothing();
  std::map<std::string, std::string> texts;
  for (long number = 0; number < state.range(0); ++number) {
    texts["TOKEN_" + std::to_string(number)] = "Text number " + std::to_string(number);
  }
  texts["TOKEN_Z"] = "Test $1$ failed";
  harness.packages().addLanguage("ALPHA", "en", texts);
  harness.start();
  char language[] = "en";
  char token[] = "TOKEN_Z";
  const Stopwatch watch;
  for (auto _ : state) {
    ParamStringVector parameters{"3"};
    char* text = nullptr;
    if (harness->getLocalizedMessage(1, language, token, parameters, text) != C::SUCCESS) {
      state.SkipWithError("there is no text");
      break;
    }
    delete[] text;
  }
  growth.note(state, watch.seconds());
}
BENCHMARK(getLocalizedMessage)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

}  // namespace
