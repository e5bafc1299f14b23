#pragma once

// A small region with a team of two, and everything that a test of it has to say kept.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "packages/common/CpuList.h"
#include "packages/memory/MemoryDiagnostics.h"

namespace TarvexDiags::Memory {

/// @brief Keeps what it hears.
class RecordingObserver : public Observer {
 public:
  bool stopRequested() override { return stop; }
  void progress(double share) override { lastProgress = share; }
  void walked(std::uint64_t bytes) override { bytesWalked += bytes; }
  void miscompare(const Miscompare& fault) override { faults.push_back(fault); }
  void pagePoisoned(const PoisonedPage& page) override { poisoned.push_back(page); }
  bool wait(std::chrono::milliseconds duration) override {
    waited += duration;
    return !stop;
  }

  std::atomic<bool> stop{false};
  double lastProgress = 0;
  std::uint64_t bytesWalked = 0;
  std::chrono::milliseconds waited{0};
  std::vector<Miscompare> faults;
  std::vector<PoisonedPage> poisoned;
};

inline std::vector<int> twoCpus() {
  std::vector<int> cpus = Common::allowedCpus();
  cpus.resize(2, cpus.front());
  return cpus;
}

inline std::unique_ptr<Region> smallRegion(Team& team, std::size_t blocks) {
  std::string reason;
  auto region = Region::map(
      blocks * kBlockBytes, -1, team, [] { return false; }, reason);
  EXPECT_NE(region, nullptr) << reason;
  return region;
}

/// @brief Tests that have something of their own to show, by their numbers.
enum TestNumber : int {
  AddressLines = 1,
  WalkingOnes = 2,
  MovingInversions = 4,
  RandomPatterns = 5,
  BlockMove = 6,
  BitFade = 8,
  BandwidthStress = 9,
};

inline const MemoryTest& memoryTest(int number) {
  const auto tests = memoryTests();
  return *std::find_if(tests.begin(), tests.end(),
                       [&](const MemoryTest& test) { return test.number == number; });
}

inline std::vector<int> testNumbers() {
  std::vector<int> numbers;
  for (const MemoryTest& test : memoryTests()) {
    numbers.push_back(test.number);
  }
  return numbers;
}

/// @brief The short forms of all tests: what a sweep finds does not depend on how many there are.
inline TestOptions quickOptions() {
  TestOptions options;
  options.quick = true;
  options.seed = 42;
  return options;
}

}  // namespace TarvexDiags::Memory
