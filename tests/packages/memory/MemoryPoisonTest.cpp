// Pages that the kernel takes away under a test: it goes on, tells them, and blames nothing else.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/userfaultfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "packagekit/UniqueDescriptor.h"
#include "packages/memory/PhysicalAddress.h"
#include "tests/packages/memory/MemoryFixture.h"
#include "tests/packages/memory/PoisonSignal.h"

namespace TarvexDiags::Memory {
namespace {

constexpr std::size_t kBlocksOfRegion = 2 * Region::kBlocksInSlice + 3;

/// @brief Poisons a page the n-th time that everything is written.
class PoisoningSeam : public FaultSeam {
 public:
  PoisoningSeam(std::size_t step, std::size_t offset, int code)
      : m_step(step), m_offset(offset), m_code(code) {}

  void written(const Region& region, std::size_t step) override {
    steps = step + 1;
    if (step == m_step) {
      signalPoison(region.data() + m_offset, m_code);
    }
  }

  std::size_t steps = 0;

 private:
  std::size_t m_step;
  std::size_t m_offset;
  int m_code;
};

class MemoryPoisonTest : public ::testing::TestWithParam<int> {
 protected:
  TestReport run(FaultSeam* seam) {
    m_observer.poisoned.clear();
    m_observer.faults.clear();
    Sweeper sweeper(*m_region, m_team, bestKernels(), m_observer, seam);
    return runTest(memoryTest(GetParam()), sweeper, quickOptions());
  }

  std::size_t steps() {
    PoisoningSeam counter(SIZE_MAX, 0, 0);
    run(&counter);
    return counter.steps;
  }

  std::uintptr_t addressOf(std::size_t offset) const {
    return reinterpret_cast<std::uintptr_t>(m_region->data()) + offset;
  }

  Team m_team{twoCpus()};
  std::unique_ptr<Region> m_region = smallRegion(m_team, kBlocksOfRegion);
  RecordingObserver m_observer;
};

TEST_P(MemoryPoisonTest, page_lost_at_any_step_is_told_once_and_is_no_miscompare) {
  const std::size_t stepCount = steps();
  for (std::size_t step = 0; step < stepCount; ++step) {
    for (const int code : {BUS_MCEERR_AR, BUS_MCEERR_AO}) {
      SCOPED_TRACE("step " + std::to_string(step) + ", code " + std::to_string(code));
      // Another page each time: one that was lost before is not told again.
      const std::size_t page = (step * 2 + static_cast<std::size_t>(code)) * 37;
      const std::size_t offset = page * kPageBytes % m_region->bytes();
      const auto physical = physicalAddressOf(m_region->data() + offset);
      PoisoningSeam seam(step, offset + 123, code);
      const TestReport report = run(&seam);
      EXPECT_TRUE(report.completed);
      EXPECT_EQ(report.miscompares, 0U);
      ASSERT_EQ(m_observer.poisoned.size(), 1U);
      EXPECT_EQ(m_observer.poisoned[0].begin, addressOf(offset));
      EXPECT_EQ(m_observer.poisoned[0].bytes, kPageBytes);
      EXPECT_EQ(m_observer.poisoned[0].physicalAddress, physical);
    }
  }
}

TEST_P(MemoryPoisonTest, several_pages_are_told_and_a_flipped_bit_beside_them_is_found) {
  class Worse : public FaultSeam {
   public:
    void written(const Region& region, std::size_t step) override {
      if (step == 0) {
        for (const std::size_t page : {0U, 1U, 777U}) {
          signalPoison(region.data() + page * kPageBytes, BUS_MCEERR_AR);
        }
        region.data()[5 * kPageBytes] ^= std::byte{1};
      }
    }
  } seam;
  const TestReport report = run(&seam);
  EXPECT_EQ(report.miscompares, 1U);
  std::set<std::uintptr_t> told;
  for (const PoisonedPage& page : m_observer.poisoned) {
    told.insert(page.begin);
  }
  EXPECT_EQ(told, (std::set<std::uintptr_t>{addressOf(0), addressOf(kPageBytes),
                                            addressOf(777 * kPageBytes)}));
  EXPECT_EQ(run(nullptr).miscompares, 0U);
  EXPECT_TRUE(m_observer.poisoned.empty()) << "the next test does not tell them again";
}

INSTANTIATE_TEST_SUITE_P(AllTests, MemoryPoisonTest, ::testing::ValuesIn(testNumbers()));

TEST(MemoryPoisonRangeTest, huge_page_is_lost_as_a_whole_and_no_more_than_the_region) {
  Team team(twoCpus());
  const auto region = smallRegion(team, Region::kBlocksInSlice + 2);
  constexpr std::size_t slice = Region::kBlocksInSlice * kBlockBytes;
  signalPoison(region->data() + slice + 5, BUS_MCEERR_AO, 21);
  const auto pages = region->poisonedPages().pages();
  ASSERT_EQ(pages.size(), 1U);
  EXPECT_EQ(pages[0].begin, reinterpret_cast<std::uintptr_t>(region->data()) + slice);
  EXPECT_EQ(pages[0].bytes, 2 * kBlockBytes);
}

TEST(MemoryPoisonRangeTest, page_lost_while_the_memory_is_populated_is_told_by_the_first_test) {
  constexpr std::size_t blocks = 2 * Region::kBlocksInSlice + 7;
  Team team({twoCpus().front()});
  int questions = 0;
  std::byte* lost = nullptr;
  std::string reason;
  const auto poisoning = [&] {
    if (++questions == 2) {  // the first slice is populated
      lost = findMapping(blocks * kBlockBytes);
      signalPoison(lost + 3 * kPageBytes, BUS_MCEERR_AR);
    }
    return false;
  };
  const auto region = Region::map(blocks * kBlockBytes, -1, team, poisoning, reason);
  ASSERT_NE(region, nullptr) << reason;
  ASSERT_EQ(region->data(), lost);
  RecordingObserver observer;
  Sweeper sweeper(*region, team, bestKernels(), observer);
  EXPECT_EQ(runTest(memoryTest(RandomPatterns), sweeper, quickOptions()).miscompares, 0U);
  ASSERT_EQ(observer.poisoned.size(), 1U);
  EXPECT_EQ(observer.poisoned[0].begin, reinterpret_cast<std::uintptr_t>(lost) + 3 * kPageBytes);
}

TEST(MemoryPoisonRangeTest, memory_that_loses_page_after_page_ends_the_test) {
  class Hopeless : public FaultSeam {
   public:
    void written(const Region& region, std::size_t step) override {
      for (std::size_t page = 0; step == 0 && page < PoisonedPages::kMaximum; ++page) {
        signalPoison(region.data() + page * kPageBytes, BUS_MCEERR_AO);
      }
    }
  } seam;
  Team team(twoCpus());
  const auto region = smallRegion(team, Region::kBlocksInSlice);
  RecordingObserver observer;
  Sweeper sweeper(*region, team, bestKernels(), observer, &seam);
  EXPECT_FALSE(runTest(memoryTest(RandomPatterns), sweeper, quickOptions()).completed);
  EXPECT_EQ(observer.poisoned.size(), PoisonedPages::kMaximum);
  EXPECT_TRUE(observer.faults.empty());
}

const void* heardElsewhere = nullptr;

TEST(MemoryPoisonRangeTest, page_outside_of_the_region_is_left_to_who_heard_of_it_before) {
  struct sigaction own = {};
  struct sigaction former = {};
  own.sa_flags = SA_SIGINFO;
  own.sa_sigaction = [](int, siginfo_t* information, void*) {
    heardElsewhere = information->si_addr;
  };
  ASSERT_EQ(sigaction(SIGBUS, &own, &former), 0);
  {
    Team team({twoCpus().front()});
    const auto region = smallRegion(team, 1);
    signalPoison(region->data() + region->bytes(), BUS_MCEERR_AR);
    EXPECT_EQ(heardElsewhere, region->data() + region->bytes());
    EXPECT_TRUE(region->poisonedPages().pages().empty());
  }
  struct sigaction after = {};
  ASSERT_EQ(sigaction(SIGBUS, &former, &after), 0);
  EXPECT_EQ(after.sa_sigaction, own.sa_sigaction) << "put back with the end of the region";
}

/// @brief Takes a page away as the kernel does: who touches it gets the signal. Since Linux 6.6.
class TrulyPoisonedPage {
 public:
  explicit TrulyPoisonedPage(std::byte* page)
      : m_file(static_cast<int>(syscall(SYS_userfaultfd, O_CLOEXEC | kUserModeOnly))) {
    uffdio_api agreement = {UFFD_API, kFeaturePoison, 0};
    uffdio_register registration = {
        {reinterpret_cast<std::uintptr_t>(page), kPageBytes}, UFFDIO_REGISTER_MODE_MISSING, 0};
    Request request = {registration.range, 0, 0};
    m_done = m_file && ioctl(m_file.get(), UFFDIO_API, &agreement) == 0 &&
             munlock(page, kPageBytes) == 0 && madvise(page, kPageBytes, MADV_DONTNEED) == 0 &&
             ioctl(m_file.get(), UFFDIO_REGISTER, &registration) == 0 &&
             ioctl(m_file.get(), _IOWR(UFFDIO, 0x08, Request), &request) == 0;
  }
  bool isDone() const { return m_done; }

 private:
  // As in the headers of newer kernels.
  struct Request {
    uffdio_range range;
    __u64 mode;
    __s64 updated;
  };
  static constexpr int kUserModeOnly = 1;
  static constexpr __u64 kFeaturePoison = 1 << 14;

  PackageKit::UniqueDescriptor m_file;
  bool m_done = false;
};

TEST_P(MemoryPoisonTest, thread_that_touches_a_poisoned_page_goes_on) {
  class Poisoning : public FaultSeam {
   public:
    void written(const Region& region, std::size_t step) override {
      if (step == 0) {
        page.emplace(region.data() + 18 * kPageBytes);
      }
    }
    std::optional<TrulyPoisonedPage> page;
  } seam;
  const TestReport report = run(&seam);
  if (!seam.page->isDone()) {
    GTEST_SKIP() << "this kernel cannot play it";
  }
  EXPECT_TRUE(report.completed);
  EXPECT_EQ(report.miscompares, 0U);
  ASSERT_EQ(m_observer.poisoned.size(), 1U);
  EXPECT_EQ(m_observer.poisoned[0].begin, addressOf(18 * kPageBytes));
}

}  // namespace
}  // namespace TarvexDiags::Memory
