// Atomic operations and the order in which one core sees the stores of another. Two cores work on
// the same words at the same time; the core under test is one of them.

#include <array>
#include <atomic>
#include <memory>

#include "packages/processor/Checks.h"

namespace TarvexDiags::Processor {

namespace {

constexpr std::uint64_t kTurns = 4096;

/// Failed exchanges of a core in all its turns: many times what two cores cost each other. A core
/// whose exchanges never succeed gives up and is found, where it would hang otherwise.
constexpr std::uint64_t kMostFailures = 1000 * kTurns;

struct alignas(64) SharedWord {
  std::atomic<std::uint64_t> value{0};
};

/// Both cores work on one word, `turns` times each; then it must hold what is expected.
template <typename Work>
void checkSharedWord(Verifier& verifier, std::uint64_t expectedWord, Work work,
                     const char* operands) {
  SharedWord shared;
  const auto all = [&](std::uint64_t side) {
    for (std::uint64_t turn = 0; turn < kTurns; ++turn) {
      work(shared.value, side, turn);
    }
  };
  verifier.partner().together([&] { all(0); }, [&] { all(1); });
  std::array<std::uint64_t, 1> found = {shared.value.load()};
  const std::array<std::uint64_t, 1> expected = {expectedWord};
  verifier.verify(found, expected, [&](std::size_t) {
    return std::string(operands) + ", partner core " + std::to_string(verifier.partnerCpu());
  });
}

using AtomicWord = std::atomic<std::uint64_t>;

void add(Verifier& verifier) {
  checkSharedWord(
      verifier, 2 * kTurns, [](AtomicWord& word, std::uint64_t, std::uint64_t) { ++word; },
      "4096 increments by each core");
}

/// Each core adds up what the word held before its own increments: together each number once. The
/// sum goes into the upper half of the word, the count is in the lower.
void fetchAndAdd(Verifier& verifier) {
  constexpr std::uint64_t count = 2 * kTurns;
  constexpr std::uint64_t lowerHalf = 0xffffffff;
  std::array<std::uint64_t, 2> sums = {0, 0};
  checkSharedWord(
      verifier, (count * (count - 1) / 2) << 32 | count,
      [&](AtomicWord& word, std::uint64_t side, std::uint64_t turn) {
        sums[side] += word.fetch_add(1) & lowerHalf;
        if (turn + 1 == kTurns) {
          word += sums[side] << 32;
        }
      },
      "numbers drawn 4096 times by each core");
}

void compareExchange(Verifier& verifier) {
  std::array<SharedWord, 2> failures;
  checkSharedWord(
      verifier, 6 * kTurns,
      [&](AtomicWord& word, std::uint64_t side, std::uint64_t) {
        std::uint64_t seen = word.load(std::memory_order_relaxed);
        while (!word.compare_exchange_weak(seen, seen + 3) &&
               failures[side].value.load(std::memory_order_relaxed) < kMostFailures) {
          failures[side].value.fetch_add(1, std::memory_order_relaxed);
        }
      },
      "4096 additions of 3 by each core");
}

/// Tokens change hands through one word: none may be lost, none may come twice, and nobody gets the
/// one that he gives.
void exchange(Verifier& verifier) {
  std::array<std::uint64_t, 2> held = {1, 2};
  std::array<std::uint64_t, 2> unchanged = {0, 0};
  checkSharedWord(
      verifier, 3,
      [&](AtomicWord& word, std::uint64_t side, std::uint64_t turn) {
        const std::uint64_t given = held[side];
        held[side] = word.exchange(given);
        unchanged[side] += held[side] == given ? 1 : 0;
        // What is held at the end goes back; each token is a bit, and a second one carries over.
        if (turn + 1 == kTurns) {
          word += held[side] + (unchanged[side] << 32);
          held[side] = 0;
        }
      },
      "tokens exchanged 4096 times by each core");
}

/// Each side has every other bit. It toggles all of its own in its first turn, then one after the
/// other as often as leaves them so, but for the one whose turn the first was.
void toggleBits(Verifier& verifier) {
  constexpr std::uint64_t everyOther = 0x5555555555555555;
  checkSharedWord(
      verifier, ~std::uint64_t{3},
      [](AtomicWord& word, std::uint64_t side, std::uint64_t turn) {
        word.fetch_xor(turn == 0 ? everyOther << side
                                 : std::uint64_t{1} << (2 * (turn % 32) + side));
      },
      "bits toggled 4096 times by each core");
}

#if defined(__x86_64__)

__extension__ using DoubleWord = unsigned __int128;

/// @return what the word held before: the expected value when it was exchanged
[[gnu::target("cx16")]] DoubleWord exchanged(DoubleWord* word, DoubleWord expected,
                                             DoubleWord desired) {
  return __sync_val_compare_and_swap(word, expected, desired);
}

/// Both halves count together, so that a torn access shows.
void compareExchangeWide(Verifier& verifier) {
  alignas(16) DoubleWord counter = 0;
  const DoubleWord one = (DoubleWord{1} << 64) | 1;
  const auto count = [&] {
    std::uint64_t failures = 0;
    for (std::uint64_t turn = 0; turn < kTurns; ++turn) {
      DoubleWord seen = 0;
      DoubleWord before = 0;
      while ((before = exchanged(&counter, seen, seen + one)) != seen &&
             ++failures < kMostFailures) {
        seen = before;
      }
    }
  };
  verifier.partner().together(count, count);
  std::array<std::uint64_t, 2> found = {static_cast<std::uint64_t>(counter),
                                        static_cast<std::uint64_t>(counter >> 64)};
  const std::array<std::uint64_t, 2> expected = {2 * kTurns, 2 * kTurns};
  verifier.verify(found, expected, [](std::size_t half) {
    return "4096 increments of both halves by each core, half " + std::to_string(half);
  });
}

#endif

// --- Visibility of stores
// --------------------------------------------------------------------------

// Small programs for two cores, each with an outcome that the memory model forbids. The names are
// those of the literature: Alglave, Maranget, Sarkar and Sewell, "Litmus: running tests against
// hardware", 2011. The C++ orders below forbid on every processor what is checked here.

struct Place {
  SharedWord first;
  SharedWord second;
};

struct Outcome {
  std::uint64_t first = 0;
  std::uint64_t second = 0;
};

constexpr std::size_t kPlaces = 2048;

/// What a core does at one place, with what it read.
using Program = void (*)(Place& place, Outcome& outcome);

struct Litmus {
  Program here;
  Program there;
  bool (*forbidden)(std::uint64_t first, std::uint64_t second);
  const char* text;  ///< what is expected, for reports
};

void checkLitmus(Verifier& verifier, const Litmus& litmus) {
  const auto shared = std::make_unique<std::array<Place, kPlaces>>();
  auto outcomes = std::make_unique<std::array<std::array<Outcome, kPlaces>, 2>>();
  const auto all = [&](Program program, std::array<Outcome, kPlaces>& outcome) {
    for (std::size_t index = 0; index < kPlaces; ++index) {
      program((*shared)[index], outcome[index]);
    }
  };
  verifier.partner().together([&] { all(litmus.here, (*outcomes)[0]); },
                              [&] { all(litmus.there, (*outcomes)[1]); });
  // Only one of the two writes each half; together they are what was read.
  std::array<std::uint64_t, kPlaces> found{};
  for (std::size_t index = 0; index < kPlaces; ++index) {
    const std::uint64_t first = (*outcomes)[0][index].first | (*outcomes)[1][index].first;
    const std::uint64_t second = (*outcomes)[0][index].second | (*outcomes)[1][index].second;
    found[index] = first << 32 | second;
  }
  verifier.verifyEach(
      found,
      [&](std::size_t index) {
        return litmus.forbidden(found[index] >> 32, found[index] & 0xffffffff)
                   ? std::string(litmus.text)
                   : std::string();
      },
      [&](std::size_t) {
        return "reads of core and partner core " + std::to_string(verifier.partnerCpu());
      });
}

void storeBuffering(Verifier& verifier) {
  checkLitmus(verifier,
              {[](Place& place, Outcome& outcome) {
                 place.first.value.store(1);
                 outcome.first = place.second.value.load();
               },
               [](Place& place, Outcome& outcome) {
                 place.second.value.store(1);
                 outcome.second = place.first.value.load();
               },
               [](std::uint64_t first, std::uint64_t second) { return first == 0 && second == 0; },
               "at least one core sees the other's store"});
}

void messagePassing(Verifier& verifier) {
  checkLitmus(verifier,
              {[](Place& place, Outcome& outcome) {
                 outcome.first = place.second.value.load(std::memory_order_acquire);
                 outcome.second = place.first.value.load(std::memory_order_relaxed);
               },
               [](Place& place, Outcome&) {
                 place.first.value.store(1, std::memory_order_relaxed);
                 place.second.value.store(1, std::memory_order_release);
               },
               [](std::uint64_t first, std::uint64_t second) { return first == 1 && second == 0; },
               "the message is there when its flag is"});
}

void loadBuffering(Verifier& verifier) {
  checkLitmus(verifier,
              {[](Place& place, Outcome& outcome) {
                 outcome.first = place.first.value.load(std::memory_order_acquire);
                 place.second.value.store(1, std::memory_order_release);
               },
               [](Place& place, Outcome& outcome) {
                 outcome.second = place.second.value.load(std::memory_order_acquire);
                 place.first.value.store(1, std::memory_order_release);
               },
               [](std::uint64_t first, std::uint64_t second) { return first == 1 && second == 1; },
               "no load sees a store that follows it"});
}

void coherentReads(Verifier& verifier) {
  checkLitmus(verifier, {[](Place& place, Outcome& outcome) {
                           outcome.first = place.first.value.load(std::memory_order_acquire);
                           outcome.second = place.first.value.load(std::memory_order_acquire);
                         },
                         [](Place& place, Outcome&) {
                           for (std::uint64_t value = 1; value <= 4; ++value) {
                             place.first.value.store(value, std::memory_order_release);
                           }
                         },
                         [](std::uint64_t first, std::uint64_t second) { return second < first; },
                         "the later read is no older than the earlier"});
}

#if defined(__x86_64__)
bool hasWideExchange() {
  // __builtin_cpu_supports learned the name late; every 64-bit processor but the first has it.
  return __builtin_cpu_supports("sse3");
}
#endif

}  // namespace

std::vector<Check> atomicChecks() {
  return {
    {"atomic add", always, add}, {"atomic fetch and add", always, fetchAndAdd},
        {"atomic compare and exchange", always, compareExchange},
        {"atomic exchange", always, exchange}, {"atomic exclusive or", always, toggleBits},
#if defined(__x86_64__)
        {"atomic compare and exchange, 128-bit (CMPXCHG16B)", hasWideExchange, compareExchangeWide},
#endif
        {"store visibility: store buffering", always, storeBuffering},
        {"store visibility: message passing", always, messagePassing},
        {"store visibility: load buffering", always, loadBuffering},
        {"store visibility: coherent reads", always, coherentReads},
  };
}

}  // namespace TarvexDiags::Processor
