#include "packages/memory/MemoryDiagnostics.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "packages/common/RandomSequence.h"
#include "packages/memory/WordAccess.h"

namespace TarvexDiags::Memory {

namespace {

using Clock = std::chrono::steady_clock;
using Order = Sweep::Order;

constexpr std::uint64_t kInEveryByte = 0x0101010101010101U;
constexpr std::uint64_t kAlternating = 0x5555555555555555U;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

bool runAll(Sweeper& sweeper, const std::vector<Sweep>& sweeps) {
  sweeper.expectWalks(sweeps.size());
  return sweeper.run(sweeps);
}

std::vector<Pattern> repeated(const std::vector<Pattern>& patterns, int rounds) {
  std::vector<Pattern> all;
  for (int round = 0; round < rounds; ++round) {
    all.insert(all.end(), patterns.begin(), patterns.end());
  }
  return all;
}

// --- Address lines
// ---------------------------------------------------------------------------------

/// The first word, and those that differ from it in one address line each.
std::vector<std::uint64_t*> probesOf(const Region& region) {
  auto* const first = reinterpret_cast<std::uint64_t*>(region.data());
  std::vector<std::uint64_t*> probes{first};
  for (std::size_t words = 1; words < region.blocks() * kWordsInBlock; words *= 2) {
    probes.push_back(first + words);
  }
  return probes;
}

void writeProbe(Sweeper& sweeper, std::uint64_t* word, std::uint64_t value) {
  writeToMemory(word, value);
  if (sweeper.seam() != nullptr) {
    sweeper.seam()->wordWritten(word);
  }
}

/// A line that is stuck, or tied to another, makes a write to one probe arrive at another.
void probeAddressLines(Sweeper& sweeper, std::uint64_t background) {
  const std::vector<std::uint64_t*> probes = probesOf(sweeper.region());
  for (std::uint64_t* probe : probes) {
    writeProbe(sweeper, probe, background);
  }
  for (std::size_t written = 0; written < probes.size() && !sweeper.stopped(); ++written) {
    writeProbe(sweeper, probes[written], ~background);
    for (std::size_t looked = 0; looked < probes.size(); ++looked) {
      const std::uint64_t expected = looked == written ? ~background : background;
      const std::uint64_t found = readFromMemory(probes[looked]);
      if (found != expected) {
        const auto offset = reinterpret_cast<std::byte*>(probes[written]) - sweeper.region().data();
        sweeper.judge(probes[looked], expected, found,
                      "address lines, written at offset " + std::to_string(offset));
      }
    }
    writeProbe(sweeper, probes[written], background);
  }
}

bool addressLines(Sweeper& sweeper, const TestOptions& options) {
  probeAddressLines(sweeper, kAlternating);
  probeAddressLines(sweeper, ~kAlternating);
  const auto patterns =
      repeated({Pattern::ownAddress(false), Pattern::ownAddress(true)}, options.rounds);
  return runAll(sweeper, marchThrough(patterns));
}

// --- Patterns that march
// ---------------------------------------------------------------------------

/// One bit of each word walks; in a quick test one of each byte.
bool walking(Sweeper& sweeper, const TestOptions& options, bool zeros) {
  std::vector<Pattern> patterns;
  for (int bit = 0; bit < (options.quick ? 8 : 64); ++bit) {
    const std::uint64_t ones = (options.quick ? kInEveryByte : 1) << bit;
    patterns.push_back(Pattern::constant(zeros ? ~ones : ones));
  }
  return runAll(sweeper, marchThrough(repeated(patterns, options.rounds)));
}

bool walkingOnes(Sweeper& sweeper, const TestOptions& options) {
  return walking(sweeper, options, false);
}

bool walkingZeros(Sweeper& sweeper, const TestOptions& options) {
  return walking(sweeper, options, true);
}

bool movingInversions(Sweeper& sweeper, const TestOptions& options) {
  std::vector<std::uint64_t> words = {0, kAlternating};
  if (!options.quick) {
    words.insert(words.end(), {0x3333333333333333U, 0x0f0f0f0f0f0f0f0fU, 0x00ff00ff00ff00ffU,
                               0x0000ffff0000ffffU, 0x00000000ffffffffU});
  }
  words.push_back(Common::mixed(options.seed));
  // Rising from a word to its inverse, falling back to the word.
  std::vector<Pattern> patterns;
  for (const std::uint64_t word : words) {
    patterns.push_back(Pattern::constant(word));
    patterns.push_back(Pattern::constant(~word));
    patterns.push_back(Pattern::constant(word));
  }
  return runAll(sweeper, marchThrough(repeated(patterns, options.rounds)));
}

bool randomPatterns(Sweeper& sweeper, const TestOptions& options) {
  const int count = (options.quick ? 2 : 8) * options.rounds;
  std::vector<Pattern> patterns;
  for (int number = 0; number < count; ++number) {
    patterns.push_back(Pattern::random(options.seed + static_cast<std::uint64_t>(number)));
  }
  return runAll(sweeper, marchThrough(patterns));
}

bool moduloX(Sweeper& sweeper, const TestOptions& options) {
  // In a quick test a few offsets, which meet every place in a line all the same.
  const std::size_t step = options.quick ? 7 : 1;
  std::vector<Pattern> patterns;
  for (const std::uint64_t word : {kAlternating, ~kAlternating, std::uint64_t{0}}) {
    for (std::size_t offset = 0; offset < Pattern::kModuloDistance; offset += step) {
      patterns.push_back(Pattern::modulo(word, offset));
    }
  }
  std::vector<Sweep> sweeps = marchThrough(repeated(patterns, options.rounds));
  for (Sweep& sweep : sweeps) {
    sweep.writing = Sweep::Writing::Scattered;
  }
  return runAll(sweeper, sweeps);
}

// --- Block move
// ------------------------------------------------------------------------------------

/// A slice's lower blocks move up, and back down in reverse order.
class BlockMover {
 public:
  BlockMover(Sweeper& sweeper, std::uint64_t seed)
      : m_sweeper(sweeper), m_region(sweeper.region()), m_pattern(Pattern::random(seed)) {}

  bool run() {
    return walk(&BlockMover::fill) && told() && walk(&BlockMover::moveUp) &&
           walk(&BlockMover::moveDown) && told() && walk(&BlockMover::verify);
  }

  static constexpr std::size_t kWalks = 4;

 private:
  using Step = void (BlockMover::*)(std::size_t first, std::size_t half, std::size_t count);

  bool walk(Step step) {
    return m_sweeper.forEachSlice(Order::Rising, [&](std::size_t slice) {
      const std::size_t count = m_region.blocksOfSlice(slice);
      (this->*step)(slice * Region::kBlocksInSlice, count / 2, count);
    });
  }

  bool told() {
    m_sweeper.tellWritten();
    return true;
  }

  void fill(std::size_t first, std::size_t half, std::size_t count) {
    for (std::size_t index = 0; index < half; ++index) {
      m_sweeper.kernels().fill(m_region.block(first + index), m_pattern);
    }
    // A block without a partner stays where it is.
    if (count % 2 != 0) {
      m_sweeper.kernels().fill(m_region.block(first + count - 1), m_pattern);
    }
  }

  void moveUp(std::size_t first, std::size_t half, std::size_t) {
    for (std::size_t index = 0; index < half; ++index) {
      m_sweeper.kernels().copy(m_region.block(first + half + index), m_region.block(first + index));
    }
  }

  void moveDown(std::size_t first, std::size_t half, std::size_t) {
    for (std::size_t index = 0; index < half; ++index) {
      m_sweeper.kernels().copy(m_region.block(first + half - 1 - index),
                               m_region.block(first + half + index));
    }
  }

  void verify(std::size_t first, std::size_t half, std::size_t count) {
    for (std::size_t index = 0; index < half; ++index) {
      m_sweeper.compareCopy(m_region.block(first + half + index), m_pattern, first + index);
      m_sweeper.compareCopy(m_region.block(first + half - 1 - index), m_pattern, first + index);
    }
    if (count % 2 != 0) {
      m_sweeper.compare(m_region.block(first + count - 1), m_pattern, nullptr);
    }
    m_sweeper.countVerified(count);
  }

  Sweeper& m_sweeper;
  Region& m_region;
  Pattern m_pattern;
};

bool blockMove(Sweeper& sweeper, const TestOptions& options) {
  const int rounds = (options.quick ? 1 : 4) * options.rounds;
  sweeper.expectWalks(static_cast<std::size_t>(rounds) * BlockMover::kWalks);
  for (int round = 0; round < rounds; ++round) {
    if (!BlockMover(sweeper, options.seed + static_cast<std::uint64_t>(round)).run()) {
      return false;
    }
  }
  return true;
}

// --- Tests that last
// -------------------------------------------------------------------------------

bool bitFade(Sweeper& sweeper, const TestOptions& options) {
  sweeper.expectWalks(static_cast<std::size_t>(options.rounds) * 4);
  for (int round = 0; round < options.rounds; ++round) {
    for (const std::uint64_t word : {~std::uint64_t{0}, std::uint64_t{0}}) {
      const Pattern pattern = Pattern::constant(word);
      if (!sweeper.run(Sweep{.next = pattern}) || !sweeper.observer().wait(options.hold) ||
          !sweeper.run(Sweep{.expected = pattern})) {
        return false;
      }
    }
  }
  return true;
}

bool bandwidthStress(Sweeper& sweeper, const TestOptions& options) {
  const auto start = Clock::now();
  const double wanted = std::chrono::duration<double>(options.duration).count();
  // One more after the measured one, and the verification at the end.
  sweeper.expectWalks(3);
  Pattern written = Pattern::random(options.seed);
  bool good = sweeper.run(Sweep{.next = written});
  for (std::uint64_t turn = 1; good && (turn == 1 || secondsSince(start) < wanted); ++turn) {
    const Pattern next = turn % 2 == 0 ? Pattern::random(options.seed + turn)
                                       : Pattern::constant(Common::mixed(options.seed + turn));
    good = sweeper.run(Sweep{.order = turn % 2 == 0 ? Order::Rising : Order::Falling,
                             .expected = written,
                             .next = next});
    written = next;
    if (turn == 1) {
      const double walk = secondsSince(start) / 2;
      sweeper.expectWalks(static_cast<std::size_t>(std::ceil(wanted / std::max(walk, 1e-6))));
    }
  }
  return good && sweeper.run(Sweep{.expected = written});
}

constexpr MemoryTest kTests[] = {
    {.number = 1, .body = addressLines, .walks = 3},
    {.number = 2, .body = walkingOnes, .walks = 65},
    {.number = 3, .body = walkingZeros, .walks = 65},
    {.number = 4, .body = movingInversions, .walks = 25},
    {.number = 5, .body = randomPatterns, .walks = 9},
    {.number = 6, .body = blockMove, .walks = 16},
    {.number = 7, .body = moduloX, .walks = 180},
    {.number = 8, .body = bitFade, .walks = 4, .holds = true},
    {.number = 9, .body = bandwidthStress, .walks = 2, .lasts = true},
};

}  // namespace

std::vector<Sweep> marchThrough(const std::vector<Pattern>& patterns) {
  std::vector<Sweep> sweeps;
  Order order = Order::Rising;
  for (std::size_t index = 0; index <= patterns.size(); ++index) {
    Sweep sweep;
    sweep.order = order;
    if (index > 0) {
      sweep.expected = patterns[index - 1];
      order = order == Order::Rising ? Order::Falling : Order::Rising;
    }
    if (index < patterns.size()) {
      sweep.next = patterns[index];
    }
    sweeps.push_back(std::move(sweep));
  }
  return sweeps;
}

std::span<const MemoryTest> memoryTests() {
  return kTests;
}

TestReport runTest(const MemoryTest& test, Sweeper& sweeper, const TestOptions& options) {
  const auto start = Clock::now();
  const std::uint64_t miscompares = sweeper.miscompares();
  const std::uint64_t bytes = sweeper.bytesVerified();
  const bool completed = test.body(sweeper, options);
  return {completed, sweeper.miscompares() - miscompares, sweeper.bytesVerified() - bytes,
          secondsSince(start)};
}

}  // namespace TarvexDiags::Memory
