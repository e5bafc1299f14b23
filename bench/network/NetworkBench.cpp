// The network package's engines over the loopback address. bench/io_compare.py runs iperf3 in
// between. A round of the streams is a single iteration of about three seconds.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "packages/network/DatagramDiagnostic.h"
#include "packages/network/Sockets.h"
#include "packages/network/StreamDiagnostic.h"

namespace TarvexDiags::Network {
namespace {

/// @brief Keeps nothing; a fault would show in the count of bytes.
class SilentJournal : public RunJournal {
 public:
  void report(unsigned int code, std::vector<std::string>) override {
    faults += Common::severityOfCode(code) == Common::Severity::Error ? 1 : 0;
  }
  void progress(unsigned int) override {}
  bool stopRequested() override { return false; }

  int faults = 0;
};

/// @brief Every byte is compared. The argument is the number of connections.
void loopbackStream(benchmark::State& state) {
  const auto connections = static_cast<unsigned int>(state.range(0));
  const StreamOptions options{.bytes = std::uint64_t{8} << 30,
                              .seed = 1,
                              .connections = connections,
                              .pace = {.stall = std::chrono::seconds(10)}};
  SilentJournal journal;
  for (auto _ : state) {
    const StreamFigures figures = verifyStreams([](unsigned int) { return connectOverLoopback(); },
                                                options, Path("lo"), journal);
    state.SetIterationTime(std::chrono::duration<double>(figures.elapsed).count());
    state.SetBytesProcessed(static_cast<std::int64_t>(figures.bytes));
  }
  if (journal.faults > 0) {
    state.SkipWithError("the stream was not verified without fault");
  }
}
BENCHMARK(loopbackStream)->ArgName("connections")->Arg(1)->Arg(2)->Iterations(1)->UseManualTime();

void loopbackDatagrams(benchmark::State& state) {
  SilentJournal journal;
  std::uint64_t bytes = 0;
  const DatagramOptions options{.datagrams = 100'000, .seed = 1, .longest = 1472};
  for (auto _ : state) {
    const auto link = connectDatagrams(loopbackEnd(), loopbackEnd());
    bytes += verifyDatagrams(*link, options, Path("lo"), journal).bytes;
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(options.datagrams));
}
BENCHMARK(loopbackDatagrams)->Iterations(1)->UseRealTime();

}  // namespace
}  // namespace TarvexDiags::Network
