// Faults put between writing and comparing: every test finds each of them, with each vector unit.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/packages/memory/MemoryFixture.h"

namespace TarvexDiags::Memory {
namespace {

constexpr std::size_t kBlocksOfRegion = 2 * Region::kBlocksInSlice + 3;

/// @brief Flips one bit the n-th time that everything is written.
class FlippingSeam : public FaultSeam {
 public:
  FlippingSeam(std::size_t step, std::size_t word, int bit)
      : m_step(step), m_word(word), m_bit(bit) {}

  void written(const Region& region, std::size_t step) override {
    steps = step + 1;
    if (step == m_step) {
      address = reinterpret_cast<std::uint64_t*>(region.data()) + m_word;
      *address ^= std::uint64_t{1} << m_bit;
    }
  }

  std::size_t steps = 0;
  std::uint64_t* address = nullptr;

 private:
  std::size_t m_step;
  std::size_t m_word;
  int m_bit;
};

struct Outcome {
  TestReport report;
  std::vector<Miscompare> faults;
};

class MemoryTestsTest : public ::testing::TestWithParam<int> {
 protected:
  Outcome runWith(const Kernels& kernels, FaultSeam* seam) {
    RecordingObserver observer;
    Sweeper sweeper(*m_region, m_team, kernels, observer, seam);
    const TestReport report = runTest(memoryTest(GetParam()), sweeper, quickOptions());
    return {report, observer.faults};
  }

  /// How often a test asks for faults.
  std::size_t steps() {
    FlippingSeam counter(SIZE_MAX, 0, 0);
    runWith(bestKernels(), &counter);
    EXPECT_GE(counter.steps, 1U);
    return counter.steps;
  }

  Team m_team{twoCpus()};
  std::unique_ptr<Region> m_region = smallRegion(m_team, kBlocksOfRegion);
};

TEST_P(MemoryTestsTest, good_memory_passes_and_is_verified_whole) {
  for (const Kernels* kernels : supportedKernels()) {
    const Outcome outcome = runWith(*kernels, nullptr);
    EXPECT_TRUE(outcome.report.completed) << kernels->name;
    EXPECT_EQ(outcome.report.miscompares, 0U) << kernels->name;
    EXPECT_EQ(outcome.report.bytesVerified % m_region->bytes(), 0U) << kernels->name;
    EXPECT_GE(outcome.report.bytesVerified, m_region->bytes()) << kernels->name;
  }
}

/// How many blocks further the content of the first block is compared: three moves up and later
/// three down, around the ends of a slice.
std::size_t placesMoved(int test, std::size_t step) {
  if (test != BlockMove || step % 4 == 3) {
    return 0;
  }
  const std::size_t left = 3 - step % 4;
  return step < 4 ? left : Region::kBlocksInSlice - left;
}

TEST_P(MemoryTestsTest, a_bit_flipped_at_any_step_is_found_once_and_told_exactly) {
  // The first block is written at every step of every test, also while blocks move.
  const std::size_t word = 1234;
  const std::size_t stepCount = steps();
  for (const Kernels* kernels : supportedKernels()) {
    for (std::size_t step = 0; step < stepCount; ++step) {
      SCOPED_TRACE(std::string(kernels->name) + ", step " + std::to_string(step));
      const int bit = static_cast<int>(step * 11 % 64);
      FlippingSeam seam(step, word, bit);
      const Outcome outcome = runWith(*kernels, &seam);
      ASSERT_FALSE(outcome.faults.empty());
      for (const Miscompare& fault : outcome.faults) {
        EXPECT_EQ(fault.differingBits(), std::uint64_t{1} << bit);
        EXPECT_EQ(fault.kind, FaultKind::FlippedContent);
        EXPECT_EQ(fault.foundAgain, fault.found);
        EXPECT_FALSE(fault.pattern.empty());
      }
      ASSERT_EQ(outcome.report.miscompares, 1U);
      EXPECT_EQ(outcome.faults[0].virtualAddress, reinterpret_cast<std::uintptr_t>(seam.address) +
                                                      placesMoved(GetParam(), step) * kBlockBytes);
    }
  }
}

TEST_P(MemoryTestsTest, a_flip_in_the_very_last_word_is_found) {
  const std::size_t last = steps() - 1;
  for (const Kernels* kernels : supportedKernels()) {
    FlippingSeam seam(last, kBlocksOfRegion * kWordsInBlock - 1, 63);
    EXPECT_EQ(runWith(*kernels, &seam).report.miscompares, 1U) << kernels->name;
  }
}

TEST_P(MemoryTestsTest, request_to_stop_ends_it) {
  RecordingObserver observer;
  observer.stop = true;
  Sweeper sweeper(*m_region, m_team, bestKernels(), observer);
  EXPECT_FALSE(runTest(memoryTest(GetParam()), sweeper, quickOptions()).completed);
  EXPECT_EQ(sweeper.bytesVerified(), 0U);
}

INSTANTIATE_TEST_SUITE_P(AllTests, MemoryTestsTest, ::testing::ValuesIn(testNumbers()));

/// @brief A cell whose lowest bit cannot be cleared.
class StuckCell : public FaultSeam {
 public:
  explicit StuckCell(std::size_t word) : m_word(word) {}

  void written(const Region& region, std::size_t) override {
    m_cell = reinterpret_cast<std::uint64_t*>(region.data()) + m_word;
    *m_cell |= 1;
  }
  void wordWritten(std::uint64_t* word) override {
    if (word == m_cell) {
      *word |= 1;
    }
  }

 private:
  std::size_t m_word;
  std::uint64_t* m_cell = nullptr;
};

/// @brief A bus that spoils a read, and reads right when asked again.
class DisturbedRead : public FaultSeam {
 public:
  void written(const Region& region, std::size_t step) override {
    if (step == 1) {
      m_word = reinterpret_cast<std::uint64_t*>(region.data()) + 77;
      m_right = *m_word;
      *m_word ^= 0xff00;
    }
  }
  void readAgain(std::uint64_t* word) override {
    if (word == m_word) {
      *word = m_right;
    }
  }

 private:
  std::uint64_t* m_word = nullptr;
  std::uint64_t m_right = 0;
};

/// @brief An address line that is stuck: a write to the word with that line set arrives without.
class StuckAddressLine : public FaultSeam {
 public:
  StuckAddressLine(std::uint64_t* first, std::size_t words) : m_first(first), m_words(words) {}

  void wordWritten(std::uint64_t* word) override {
    if (word == m_first + m_words) {
      *m_first = *word;
    }
  }

 private:
  std::uint64_t* m_first;
  std::size_t m_words;
};

class MemoryFaultKindsTest : public ::testing::Test {
 protected:
  TestReport run(int number, FaultSeam& seam) {
    Sweeper sweeper(*m_region, m_team, bestKernels(), m_observer, &seam);
    return runTest(memoryTest(number), sweeper, quickOptions());
  }

  Team m_team{twoCpus()};
  std::unique_ptr<Region> m_region = smallRegion(m_team, Region::kBlocksInSlice);
  RecordingObserver m_observer;
};

TEST_F(MemoryFaultKindsTest, stuck_bit_is_told_from_content_that_flipped) {
  StuckCell cell(4711);
  const TestReport report = run(WalkingOnes, cell);
  // Seven of the eight patterns have the bit clear.
  EXPECT_EQ(report.miscompares, 7U);
  for (const Miscompare& fault : m_observer.faults) {
    EXPECT_EQ(fault.kind, FaultKind::StuckBit);
    EXPECT_EQ(fault.differingBits(), 1U);
    EXPECT_EQ(fault.virtualAddress, reinterpret_cast<std::uintptr_t>(m_region->data()) + 4711 * 8);
  }
}

TEST_F(MemoryFaultKindsTest, disturbed_read_is_told_from_a_bad_cell) {
  DisturbedRead bus;
  EXPECT_EQ(run(RandomPatterns, bus).miscompares, 1U);
  ASSERT_EQ(m_observer.faults.size(), 1U);
  EXPECT_EQ(m_observer.faults[0].kind, FaultKind::ReadDisturbance);
  EXPECT_EQ(m_observer.faults[0].foundAgain, m_observer.faults[0].expected);
  EXPECT_EQ(m_observer.faults[0].differingBits(), 0xff00U);
}

TEST_F(MemoryFaultKindsTest, each_stuck_address_line_is_found_and_named_by_its_offset) {
  auto* const first = reinterpret_cast<std::uint64_t*>(m_region->data());
  for (std::size_t words = 1; words < m_region->blocks() * kWordsInBlock; words *= 2) {
    m_observer.faults.clear();
    StuckAddressLine line(first, words);
    EXPECT_GE(run(AddressLines, line).miscompares, 1U) << words;
    ASSERT_FALSE(m_observer.faults.empty());
    EXPECT_EQ(m_observer.faults[0].virtualAddress, reinterpret_cast<std::uintptr_t>(first));
    EXPECT_NE(m_observer.faults[0].pattern.find("offset " + std::to_string(words * 8)),
              std::string::npos)
        << m_observer.faults[0].pattern;
  }
}

TEST_F(MemoryFaultKindsTest, faults_beyond_the_limit_are_counted_but_not_told) {
  class BadBlock : public FaultSeam {
   public:
    void written(const Region& region, std::size_t step) override {
      if (step == 0) {
        auto* const words = reinterpret_cast<std::uint64_t*>(region.data());
        for (std::size_t word = 0; word < 3 * kWordsInBlock; ++word) {
          words[word] ^= 1;
        }
      }
    }
  } block;
  EXPECT_EQ(run(RandomPatterns, block).miscompares, 3 * kWordsInBlock);
  EXPECT_EQ(m_observer.faults.size(), Sweeper::kMaximumReported);
}

TEST_F(MemoryFaultKindsTest, memory_that_is_bad_all_over_ends_the_test_early) {
  class BadMemory : public FaultSeam {
   public:
    void written(const Region& region, std::size_t) override {
      for (std::size_t offset = 0; offset < region.bytes(); offset += kLineBytes / 2) {
        region.data()[offset] ^= std::byte{1};
      }
    }
  } memory;
  const TestReport report = run(MovingInversions, memory);
  EXPECT_FALSE(report.completed);
  EXPECT_GE(report.miscompares, Sweeper::kMaximumCounted);
}

TEST_F(MemoryFaultKindsTest, bit_fade_leaves_the_memory_alone_for_the_configured_time) {
  Sweeper sweeper(*m_region, m_team, bestKernels(), m_observer);
  TestOptions options = quickOptions();
  options.hold = std::chrono::minutes(5);
  EXPECT_TRUE(runTest(memoryTest(BitFade), sweeper, options).completed);
  EXPECT_EQ(m_observer.waited, std::chrono::minutes(10)) << "once for ones, once for zeros";
}

TEST_F(MemoryFaultKindsTest, bandwidth_stress_lasts_as_long_as_asked) {
  Sweeper sweeper(*m_region, m_team, bestKernels(), m_observer);
  TestOptions options = quickOptions();
  options.duration = std::chrono::milliseconds(200);
  const TestReport report = runTest(memoryTest(BandwidthStress), sweeper, options);
  EXPECT_TRUE(report.completed);
  EXPECT_GE(report.seconds, 0.2);
  EXPECT_GT(report.bytesVerified, 2 * m_region->bytes());
}

TEST_F(MemoryFaultKindsTest, full_forms_have_more_patterns_and_progress_reaches_the_end) {
  for (const MemoryTest& test : memoryTests()) {
    if (test.lasts) {
      continue;  // as long in both
    }
    Sweeper sweeper(*m_region, m_team, bestKernels(), m_observer);
    const auto quick = runTest(test, sweeper, quickOptions());
    TestOptions options = quickOptions();
    options.quick = false;
    const auto full = runTest(test, sweeper, options);
    EXPECT_GE(full.bytesVerified, quick.bytesVerified) << test.number;
    EXPECT_EQ(full.miscompares, 0U) << test.number;
    EXPECT_DOUBLE_EQ(m_observer.lastProgress, 1.0) << test.number;
    EXPECT_GE(m_observer.bytesWalked, quick.bytesVerified + full.bytesVerified) << test.number;
    m_observer.bytesWalked = 0;
  }
}

TEST_F(MemoryFaultKindsTest, stop_in_the_middle_of_a_stress_is_obeyed_at_once) {
  Sweeper sweeper(*m_region, m_team, bestKernels(), m_observer);
  TestOptions options = quickOptions();
  options.duration = std::chrono::hours(1);
  std::thread client([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    m_observer.stop = true;
  });
  const TestReport report = runTest(memoryTest(BandwidthStress), sweeper, options);
  client.join();
  EXPECT_FALSE(report.completed);
  EXPECT_LT(report.seconds, 30);
}

}  // namespace
}  // namespace TarvexDiags::Memory
