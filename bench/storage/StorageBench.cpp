// The storage package's engines on a file that stands for a disk: bench/io_compare.py makes it,
// names it in TARVEX_BENCH_FILE, and runs the peers in between. A round is a single iteration,
// timed from the engine's start to its end; opening and the buffers are not counted, as with the
// peers.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "packages/storage/Crc32c.h"
#include "packages/storage/PageBuffer.h"
#include "packages/storage/ReadDiagnostics.h"
#include "packages/storage/TemporaryFile.h"
#include "packages/storage/WriteVerify.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief Keeps nothing; what the engines find on a sound file is of no interest here.
class SilentJournal : public RunJournal {
 public:
  void report(unsigned int code, std::vector<std::string>) override {
    faults += Common::severityOfCode(code) == Common::Severity::Error ? 1 : 0;
  }
  void progress(unsigned int) override {}
  bool stopRequested() override { return false; }

  int faults = 0;
};

std::string benchFile() {
  const char* path = std::getenv("TARVEX_BENCH_FILE");
  return path == nullptr ? "" : path;
}

double seconds(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

/// @brief Times the engine on the file; what it returns goes into the rate.
template <typename Engine>
void onFile(benchmark::State& state, const SourceOptions& options, Engine engine) {
  if (benchFile().empty()) {
    state.SkipWithError("TARVEX_BENCH_FILE names no file");
    return;
  }
  SilentJournal journal;
  for (auto _ : state) {
    const auto source = openForReading(benchFile(), options);
    const auto begin = std::chrono::steady_clock::now();
    const ReadFigures figures = engine(*source, journal);
    state.SetIterationTime(seconds(std::chrono::steady_clock::now() - begin));
    state.SetBytesProcessed(static_cast<std::int64_t>(figures.bytes));
    state.SetItemsProcessed(static_cast<std::int64_t>(figures.reads));
  }
  if (journal.faults > 0) {
    state.SkipWithError("the file was not read without fault");
  }
}

void sequentialScan(benchmark::State& state) {
  const SourceOptions options{.slots = 32, .useUring = state.range(0) != 0};
  onFile(state, options, [](BlockSource& source, RunJournal& journal) {
    return scanSequentially(source, {}, "bench", journal);
  });
}
BENCHMARK(sequentialScan)->ArgName("uring")->Arg(1)->Arg(0)->Iterations(1)->UseManualTime();

void randomRead(benchmark::State& state) {
  const SourceOptions options{.slots = 32, .slotSize = 4096, .useUring = state.range(0) != 0};
  onFile(state, options, [](BlockSource& source, RunJournal& journal) {
    return readRandomly(source, {.reads = 200'000, .seed = 1}, "bench", journal);
  });
}
BENCHMARK(randomRead)->ArgName("uring")->Arg(1)->Arg(0)->Iterations(1)->UseManualTime();

void readTwiceAndCompare(benchmark::State& state) {
  onFile(state, {.slots = 32}, [](BlockSource& source, RunJournal& journal) {
    return checkStability(source, {}, "bench", journal);
  });
}
BENCHMARK(readTwiceAndCompare)->Iterations(1)->UseManualTime();

/// @brief The rate counts each byte once, though it is written and read.
void writeAndVerify(benchmark::State& state) {
  if (benchFile().empty()) {
    state.SkipWithError("TARVEX_BENCH_FILE names no file");
    return;
  }
  const std::filesystem::path file = benchFile();
  const std::uint64_t size = std::filesystem::file_size(file);
  SilentJournal journal;
  for (auto _ : state) {
    const auto source =
        overFile(makeTemporaryFile(file.parent_path().string(), size), {.slots = 32});
    const auto begin = std::chrono::steady_clock::now();
    const WriteVerifyFigures figures = writeAndVerify(*source, {.seed = 1}, "bench", journal);
    state.SetIterationTime(seconds(std::chrono::steady_clock::now() - begin));
    state.SetBytesProcessed(static_cast<std::int64_t>(figures.bytes));
    state.counters["write"] = rateOf(figures.bytes, figures.writing);
    state.counters["verify"] = rateOf(figures.bytes, figures.verifying);
  }
  if (journal.faults > 0) {
    state.SkipWithError("the file was not verified without fault");
  }
}
BENCHMARK(writeAndVerify)->Iterations(1)->UseManualTime();

void checksum(benchmark::State& state) {
  const PageBuffer buffer(std::size_t{1} << 20);
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc32c(buffer.bytes()));
  }
  state.SetBytesProcessed(state.iterations() * (std::int64_t{1} << 20));
}
BENCHMARK(checksum);

}  // namespace
}  // namespace TarvexDiags::Storage
