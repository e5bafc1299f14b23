// What it costs to read the description of a package, by its number of tests.
//
// The time of one test grows with the number of tests: each of its six keys is looked for in the
// file anew, which is scanned up to the key, so a whole description costs its number of keys times
// half of its size. It is what keeps no stale text of a file that somebody has just changed.

#include <benchmark/benchmark.h>

#include <string>

#include "DiagCtrl/DiagnosticPackage.h"
#include "tests/support/PackageConfig.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using TarvexDiags::DiagCtrl::DiagnosticPackage;
using TarvexDiags::TestSupport::PackageConfig;
using TarvexDiags::TestSupport::TemporaryDirectory;

void readDescription(benchmark::State& state) {
  const TemporaryDirectory directory;
  const auto tests = static_cast<int>(state.range(0));
  const std::string path = PackageConfig(tests).writeTo(directory);
  for (auto _ : state) {
    DiagnosticPackage package("ALPHA", 1);
    package.initialize(path.c_str());
    benchmark::DoNotOptimize(package.getTestIdMap().size());
  }
  state.SetItemsProcessed(state.iterations() * tests);
  state.counters["per test"] =
      benchmark::Counter(static_cast<double>(state.iterations() * tests),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(readDescription)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
