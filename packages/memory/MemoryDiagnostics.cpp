#include "packages/memory/MemoryDiagnostics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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

using PatternAt = std::function<Pattern(std::size_t number)>;

/// How a test goes from pattern to pattern. Patterns are made when it is their turn: there may be
/// millions of rounds.
struct March {
  std::size_t patterns = 0;
  PatternAt patternAt = {};
  Sweep::Writing writing = Sweep::Writing::Streamed;
  /// Called before each comparison; false ends the march.
  std::function<bool()> beforeComparing = [] { return true; };
};

/// Each walk but the first and last verifies one pattern and writes the next, rising and falling in
/// turn.
bool run(Sweeper& sweeper, const March& march) {
  sweeper.expectWalks(march.patterns + 1);
  Sweep sweep;
  sweep.writing = march.writing;
  for (std::size_t number = 0; number <= march.patterns; ++number) {
    sweep.order = number % 2 == 0 ? Order::Rising : Order::Falling;
    sweep.expected = std::move(sweep.next);
    sweep.next = number < march.patterns ? std::optional(march.patternAt(number)) : std::nullopt;
    if ((sweep.expected && !march.beforeComparing()) || !sweeper.run(sweep)) {
      return false;
    }
  }
  return true;
}

/// The patterns again and again.
March marchThrough(std::vector<Pattern> patterns, int rounds) {
  March march;
  march.patterns = patterns.size() * static_cast<std::size_t>(rounds);
  march.patternAt = [patterns = std::move(patterns)](std::size_t number) {
    return patterns[number % patterns.size()];
  };
  return march;
}

/// Random words and their inverses in turn, from one seed after the other.
Pattern randomAt(std::uint64_t seed, std::size_t number) {
  const Pattern pattern = Pattern::random(seed + number / 2);
  return number % 2 == 0 ? pattern : pattern.inverse();
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
  const Pattern address = Pattern::ownAddress();
  // More than once, as what flips before the first comparison of a cell or after its last one is
  // lost on a test.
  const int rounds = (options.quick ? 1 : 5) * options.rounds;
  return run(sweeper, marchThrough({address, address.inverse()}, rounds));
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
  return run(sweeper, marchThrough(std::move(patterns), options.rounds));
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
  return run(sweeper, marchThrough(std::move(patterns), options.rounds));
}

bool randomPatterns(Sweeper& sweeper, const TestOptions& options) {
  March march;
  march.patterns =
      std::size_t{2} * (options.quick ? 1 : 8) * static_cast<std::size_t>(options.rounds);
  march.patternAt = [&](std::size_t number) { return randomAt(options.seed, number); };
  return run(sweeper, march);
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
  March march = marchThrough(std::move(patterns), options.rounds);
  march.writing = Sweep::Writing::Scattered;
  return run(sweeper, march);
}

// --- Block move
// ------------------------------------------------------------------------------------

/// What all threads need of their own to move blocks: room for the one that makes way.
struct MovingBlock {
  alignas(kLineBytes) std::array<std::byte, kBlockBytes> data;
};

/// The blocks of each slice move one place on, again and again; the one at the end comes back at
/// the other end. Every place is read just before it is written anew: what flips in between has no
/// time to hide.
class BlockMover {
 public:
  enum class Direction { Up, Down };

  explicit BlockMover(Sweeper& sweeper) : m_sweeper(sweeper), m_region(sweeper.region()) {}

  bool fill(const Pattern& next) {
    return walk([&](std::size_t first, std::size_t count) {
      for (std::size_t place = 0; place < count; ++place) {
        m_sweeper.kernels().fill(blockAt(first, count, place), next);
      }
    });
  }

  bool move(Direction direction) {
    m_sweeper.tellWritten();
    const bool good =
        walk([&](std::size_t first, std::size_t count) { moveSlice(first, count, direction); });
    m_places += direction == Direction::Up ? 1 : -1;
    return good;
  }

  /// Compares, and writes the next pattern where there is one.
  bool compare(const Pattern& expected, const Pattern* next) {
    m_sweeper.tellWritten();
    return walk([&](std::size_t first, std::size_t count) {
      for (std::size_t place = 0; place < count; ++place) {
        m_sweeper.compare(blockAt(first, count, place), expected, next);
      }
      m_sweeper.countVerified(count);
    });
  }

 private:
  bool walk(const std::function<void(std::size_t first, std::size_t count)>& work) {
    return m_sweeper.forEachSlice(Order::Rising, [&](std::size_t slice) {
      work(slice * Region::kBlocksInSlice, m_region.blocksOfSlice(slice));
    });
  }

  /// The block at a place, with the number of the block whose content has come there.
  Block blockAt(std::size_t first, std::size_t count, std::size_t place) const {
    const auto size = static_cast<long>(count);
    const long source = ((static_cast<long>(place) - m_places) % size + size) % size;
    return {m_region.block(first + place).data, first + static_cast<std::size_t>(source)};
  }

  void moveSlice(std::size_t first, std::size_t count, Direction direction) {
    const Kernels& kernels = m_sweeper.kernels();
    const auto place = [&](std::size_t turn) {
      return m_region.block(first + (direction == Direction::Down ? turn : count - 1 - turn));
    };
    const auto room = std::make_unique<MovingBlock>();
    const Block aside = {room->data.data(), 0};
    kernels.copy(aside, place(0));
    for (std::size_t turn = 1; turn < count; ++turn) {
      kernels.copy(place(turn - 1), place(turn));
    }
    kernels.copy(place(count - 1), aside);
  }

  Sweeper& m_sweeper;
  Region& m_region;
  long m_places = 0;  ///< by which all contents have moved up
};

/// Each pattern moves up and its inverse back down, so that a bit which is stuck differs from one.
bool blockMove(Sweeper& sweeper, const TestOptions& options) {
  constexpr int kMoves = 3;
  const std::size_t patterns =
      std::size_t{2} * (options.quick ? 1 : 2) * static_cast<std::size_t>(options.rounds);
  sweeper.expectWalks(1 + patterns * (kMoves + 1));
  sweeper.expectMoves();
  BlockMover mover(sweeper);
  std::optional<Pattern> next = randomAt(options.seed, 0);
  bool good = mover.fill(*next);
  for (std::size_t index = 0; good && index < patterns; ++index) {
    using Direction = BlockMover::Direction;
    const Pattern expected = *next;
    next = index + 1 < patterns ? std::optional(randomAt(options.seed, index + 1)) : std::nullopt;
    for (int turn = 0; good && turn < kMoves; ++turn) {
      good = mover.move(index % 2 == 0 ? Direction::Up : Direction::Down);
    }
    good = good && mover.compare(expected, next ? &*next : nullptr);
  }
  return good;
}

// --- Tests that last
// -------------------------------------------------------------------------------

bool bitFade(Sweeper& sweeper, const TestOptions& options) {
  const Pattern ones = Pattern::constant(~std::uint64_t{0});
  March march = marchThrough({ones, ones.inverse()}, options.rounds);
  march.beforeComparing = [&] { return sweeper.observer().wait(options.hold); };
  return run(sweeper, march);
}

/// Each pattern is followed by its inverse; random words and the same word all over take turns.
Pattern stressPattern(const Pattern& written, std::uint64_t seed, std::uint64_t turn) {
  if (turn % 2 != 0) {
    return written.inverse();
  }
  return turn % 4 == 0 ? Pattern::random(seed + turn)
                       : Pattern::constant(Common::mixed(seed + turn));
}

bool bandwidthStress(Sweeper& sweeper, const TestOptions& options) {
  const auto start = Clock::now();
  const double wanted = std::chrono::duration<double>(options.duration).count();
  const std::uint64_t leastTurns = options.quick ? 1 : 10;
  // The first one, those of the turns, and the verification at the end.
  sweeper.expectWalks(leastTurns + 2);
  Pattern written = Pattern::random(options.seed);
  bool good = sweeper.run(Sweep{.next = written});
  for (std::uint64_t turn = 1; good && (turn <= leastTurns || secondsSince(start) < wanted);
       ++turn) {
    const Pattern next = stressPattern(written, options.seed, turn);
    good = sweeper.run(Sweep{.order = turn % 2 == 0 ? Order::Rising : Order::Falling,
                             .expected = written,
                             .next = next});
    written = next;
    if (turn == 1) {
      const double walk = secondsSince(start) / 2;
      sweeper.expectWalks(std::max<std::size_t>(
          leastTurns, static_cast<std::size_t>(std::ceil(wanted / std::max(walk, 1e-6)))));
    }
  }
  return good && sweeper.run(Sweep{.expected = written});
}

constexpr MemoryTest kTests[] = {
    {.number = 1, .body = addressLines, .walks = 11, .quickWalks = 3},
    {.number = 2, .body = walkingOnes, .walks = 65, .quickWalks = 9},
    {.number = 3, .body = walkingZeros, .walks = 65, .quickWalks = 9},
    {.number = 4, .body = movingInversions, .walks = 25, .quickWalks = 10},
    {.number = 5, .body = randomPatterns, .walks = 17, .quickWalks = 3},
    {.number = 6, .body = blockMove, .walks = 17, .quickWalks = 9},
    {.number = 7, .body = moduloX, .walks = 180, .quickWalks = 30},
    {.number = 8, .body = bitFade, .walks = 3, .quickWalks = 3, .holds = true},
    {.number = 9, .body = bandwidthStress, .walks = 12, .quickWalks = 3, .lasts = true},
};

}  // namespace

std::span<const MemoryTest> memoryTests() {
  return kTests;
}

TestReport runTest(const MemoryTest& test, Sweeper& sweeper, const TestOptions& options) {
  const auto start = Clock::now();
  const std::uint64_t miscompares = sweeper.miscompares();
  const std::uint64_t bytes = sweeper.bytesVerified();
  const bool completed = test.body(sweeper, options);
  sweeper.tellPoisonedPages();
  return {completed, sweeper.miscompares() - miscompares, sweeper.bytesVerified() - bytes,
          secondsSince(start)};
}

}  // namespace TarvexDiags::Memory
