// How fast the memory tests verify, beside bare loops of the same work and beside memtester and
// stressapptest, in rounds in which each has its turn. Rates are bytes verified in a second.

#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "bench/memory/BareLoops.h"
#include "bench/support/Comparison.h"
#include "packages/common/CpuList.h"
#include "packages/memory/MemoryDiagnostics.h"

namespace TarvexDiags::Memory {
namespace {

using Bench::Comparison;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kSolid = 0x5555555555555555U;
constexpr int kTurnsInRound = 4;  // loops of ours are short: both forms alternate within a round

constexpr const char* kBareWrite = "bare loop, write then compare";
constexpr const char* kOwnWrite = "ours, write then verify";
constexpr const char* kBareMarch = "bare loop, march";
constexpr const char* kOwnMarch = "ours, march";
constexpr const char* kOwnRandom = "ours, random values, write then verify";
constexpr const char* kOwnRandomMarch = "ours, random values, march";
constexpr const char* kMemtesterSolid = "memtester, solid bits, one process";
constexpr const char* kMemtesterRandom = "memtester, random value, one process";
constexpr const char* kStressapptest = "stressapptest -m 2";

struct Arguments {
  std::size_t megabytes = 1024;
  std::size_t peerMegabytes = 256;
  int rounds = 5;
  int seconds = 5;  // of stressapptest
};

double secondsOf(const std::function<void()>& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// @brief A program's output; empty when it is not there or fails.
std::string outputOf(const std::string& command) {
  FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return {};
  }
  std::string output;
  char buffer[4096];
  for (std::size_t got = 0; (got = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) {
    output.append(buffer, got);
  }
  const int status = pclose(pipe);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? output : std::string();
}

class SilentObserver : public Observer {
 public:
  bool stopRequested() override { return false; }
  void progress(double) override {}
  void miscompare(const Miscompare&) override { std::abort(); }
  void pagePoisoned(const PoisonedPage&) override { std::abort(); }
  bool wait(std::chrono::milliseconds) override { return true; }
};

class MemoryComparison {
 public:
  explicit MemoryComparison(const Arguments& arguments) : m_arguments(arguments) {
    std::string reason;
    const double seconds = secondsOf([&] {
      m_region = Region::map(
          arguments.megabytes << 20, -1, m_team, [] { return false; }, reason);
    });
    if (m_region == nullptr) {
      std::fprintf(stderr, "%s\n", reason.c_str());
      std::exit(1);
    }
    std::printf("Memory: %zu MiB, %zu threads, kernels %s, bare loops %s, %d rounds\n",
                arguments.megabytes, m_team.size(), bestKernels().name, bestBareLoops().name,
                arguments.rounds);
    std::printf("Mapping, populating and locking it, once: %.3f s\n\n", seconds);
  }

  bool run() {
    measureOurs();  // a round that does not count: clocks and tables settle
    m_comparison = Comparison("GB/s");
    for (int round = 0; round < m_arguments.rounds; ++round) {
      measureOurs();
      measurePeers();
    }
    m_comparison.printFigures();
    Comparison::printRatioHead();
    bool good = m_comparison.printRatio(kOwnWrite, kBareWrite, 0.95);
    good &= m_comparison.printRatio(kOwnWrite, kMemtesterSolid, 1.6);
    good &= m_comparison.printRatio(kOwnMarch, kBareMarch, 0.95);
    good &= m_comparison.printRatio(kOwnMarch, kStressapptest, 1.4);
    good &= m_comparison.printRatio(kOwnMarch, kMemtesterSolid, 2);
    good &= m_comparison.printRatio(kOwnRandom, kMemtesterRandom, 20);
    return good;
  }

 private:
  double rate(double seconds, double passes) const {
    return static_cast<double>(m_region->bytes()) * passes / seconds / 1e9;
  }

  /// @brief Each thread takes its half, as a bare loop would.
  void bare(const std::function<bool(std::byte* data, std::size_t bytes)>& loop) {
    std::atomic<std::size_t> share{0};
    const std::size_t bytes = m_region->bytes() / m_team.size() / kLineBytes * kLineBytes;
    m_team.onAll([&] {
      if (!loop(m_region->data() + share++ * bytes, bytes)) {
        std::abort();
      }
    });
  }

  void bareWriteThenCompare() {
    const BareLoops& loops = bestBareLoops();
    bare([&](std::byte* data, std::size_t bytes) {
      loops.write(data, bytes, kSolid);
      return true;
    });
    bare([&](std::byte* data, std::size_t bytes) { return loops.compare(data, bytes, kSolid); });
  }

  void bareMarchOnce(bool inverted) {
    const std::uint64_t before = inverted ? ~kSolid : kSolid;
    bare([&](std::byte* data, std::size_t bytes) {
      return bestBareLoops().march(data, bytes, before, ~before);
    });
  }

  void measureOurs() {
    Sweeper sweeper(*m_region, m_team, bestKernels(), m_observer);
    const Pattern pattern = Pattern::constant(kSolid);
    const Pattern inverse = Pattern::constant(~kSolid);
    const Pattern random = Pattern::random(1);
    const Pattern otherRandom = Pattern::random(2);
    std::vector<std::pair<const char*, std::function<void()>>> works = {
        {kBareWrite, [&] { bareWriteThenCompare(); }},
        {kOwnWrite,
         [&] {
           sweeper.run({Sweep{.next = pattern}, Sweep{.expected = pattern}});
         }},
        {kBareMarch,
         [&] {
           bareMarchOnce(false);
           bareMarchOnce(true);
         }},
        {kOwnMarch,
         [&] {
           sweeper.run(
               {Sweep{.expected = pattern, .next = inverse},
                Sweep{.order = Sweep::Order::Falling, .expected = inverse, .next = pattern}});
         }},
    };
    std::vector<double> seconds(works.size());
    for (int turn = 0; turn < kTurnsInRound; ++turn) {
      for (std::size_t index = 0; index < works.size(); ++index) {
        // Every other turn the pairs change places, so that none always comes first.
        const std::size_t place = turn % 2 == 0 ? index : index ^ 1;
        seconds[place] += secondsOf(works[place].second);
      }
    }
    for (std::size_t index = 0; index < works.size(); ++index) {
      m_comparison.add(works[index].first, rate(seconds[index], index < 2 ? 4 : 8));
    }
    m_comparison.add(kOwnRandom,
                     rate(secondsOf([&] {
                            sweeper.run({Sweep{.next = random}, Sweep{.expected = random}});
                          }),
                          1));
    m_comparison.add(
        kOwnRandomMarch,
        rate(secondsOf([&] { sweeper.run(Sweep{.expected = random, .next = otherRandom}); }), 1));
  }

  /// @brief A test of memtester alone; its passes write and compare all of the memory.
  double memtesterSeconds(const std::string& mask) const {
    const std::string command = "MEMTESTER_TEST_MASK=" + mask + " memtester " +
                                std::to_string(m_arguments.peerMegabytes) + "M 1 2>/dev/null";
    bool ran = false;
    const double seconds = secondsOf([&] { ran = !outputOf(command).empty(); });
    return ran ? seconds : 0;
  }

  void measurePeers() {
    // The masks are the tests' places in its list; a place beyond the list leaves what always runs.
    const double always = memtesterSeconds("0x40000000");
    const double bytes = static_cast<double>(m_arguments.peerMegabytes << 20);
    if (always > 0) {
      m_comparison.add(kMemtesterSolid, bytes * 64 / (memtesterSeconds("0x100") - always) / 1e9);
      m_comparison.add(kMemtesterRandom, bytes / (memtesterSeconds("0x01") - always) / 1e9);
    }
    const std::string output =
        outputOf("stressapptest -m 2 -M " + std::to_string(m_arguments.megabytes) + " -s " +
                 std::to_string(m_arguments.seconds) + " 2>/dev/null");
    std::smatch match;
    if (std::regex_search(output, match, std::regex("Memory Copy: .* at ([0-9.]+)MB/s"))) {
      // It counts what it reads and what it writes; it verifies what it reads.
      m_comparison.add(kStressapptest, std::stod(match[1]) * 1048576 / 2 / 1e9);
    }
  }

  Arguments m_arguments;
  Team m_team{[] {
    std::vector<int> cpus = Common::allowedCpus();
    cpus.resize(2, cpus.front());
    return cpus;
  }()};
  std::unique_ptr<Region> m_region;
  SilentObserver m_observer;
  Comparison m_comparison{"GB/s"};
};

}  // namespace
}  // namespace TarvexDiags::Memory

/// Usage: memory_comparison [MiB [rounds [MiB of memtester [seconds of stressapptest]]]]
int main(int count, char** texts) {
  TarvexDiags::Memory::Arguments arguments;
  const auto number = [&](int index, auto fallback) {
    return count > index ? static_cast<decltype(fallback)>(std::atol(texts[index])) : fallback;
  };
  arguments.megabytes = number(1, arguments.megabytes);
  arguments.rounds = number(2, arguments.rounds);
  arguments.peerMegabytes = number(3, arguments.peerMegabytes);
  arguments.seconds = number(4, arguments.seconds);
  return TarvexDiags::Memory::MemoryComparison(arguments).run() ? 0 : 1;
}
