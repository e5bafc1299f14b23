// What a hundred runs of the controller leave behind in the process: nothing.

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Sanitized.h"
#include "tests/support/ThreadCount.h"

namespace TarvexDiags::Lifecycle {
namespace {

using DiagCtrl::DiagnosticController;
using TestSupport::ControllerHarness;
using TestSupport::PackageConfig;

/// What the process holds at a moment.
struct Holdings {
  long heapBytes = 0;
  long residentBytes = 0;
  long threads = 0;
  long fileHandles = 0;
  long mappings = 0;

  /// Once that many threads are left.
  static Holdings with(long threads) {
    EXPECT_TRUE(TestSupport::threadsComeTo(threads));
    Holdings found;
    const auto heap = mallinfo2();  // all zero under a sanitizer, which keeps its own heap
    found.heapBytes = static_cast<long>(heap.uordblks + heap.hblkhd);
    std::ifstream memory("/proc/self/statm");
    long total = 0;
    memory >> total >> found.residentBytes;
    found.residentBytes *= sysconf(_SC_PAGESIZE);
    found.threads = TestSupport::threadCount();
    found.fileHandles = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      found.mappings += line.find(".so") != std::string::npos ? 1 : 0;
    }
    return found;
  }
};

std::ostream& operator<<(std::ostream& stream, const Holdings& holdings) {
  return stream << holdings.heapBytes << " bytes of heap, " << holdings.residentBytes
                << " resident, " << holdings.threads << " threads, " << holdings.fileHandles
                << " files, " << holdings.mappings << " mappings";
}

class ResourceUseTest : public ::testing::Test {
 protected:
  ResourceUseTest() {
    for (Scripted::Script* script : scripts) {
      script->setDevices(2).recordNothing().everyPass({.events = {{.code = 1}}});
    }
    harness.control().parallel();
  }

  /// Everything that a client does with a started controller. While it warms up, all devices are
  /// tested at once: the platform keeps stacks and heaps for as many threads as there ever were.
  void work() {
    harness.registerForAll();
    harness.enumerate();
    for (Scripted::Script* script : scripts) {
      isWarm ? script->releaseRuns() : script->holdRuns();
    }
    const auto first = harness.queuePackage("ALPHA", ControllerHarness::settings(2));
    const auto second = harness.queuePackage("BETA");
    for (Scripted::Script* script : scripts) {
      ASSERT_TRUE(isWarm || script->awaitRunning(2));
    }
    for (Scripted::Script* script : scripts) {
      script->releaseRuns();
    }
    for (const auto& ids : {first, second}) {
      for (const unsigned long id : ids) {
        ASSERT_TRUE(harness.awaitEnd(id));
      }
    }
    ASSERT_TRUE(harness.awaitResults(6));
    ASSERT_TRUE(harness.awaitEvents(6));
    harness.ctrlEvents();
    harness.forget();
  }

  /// One run from the start to the stop.
  void startWorkStop() {
    harness.initialize();
    work();
    ASSERT_EQ(harness.shutDown(), DiagnosticController::SUCCESS);
  }
  /// One run that begins and ends with a reset.
  void workReset() {
    work();
    ASSERT_EQ(harness->resetDiagController(), DiagnosticController::SUCCESS);
  }

  void expectNoGrowth(const Holdings& before, const Holdings& after) {
    SCOPED_TRACE(::testing::Message() << "before: " << before << "\nafter: " << after);
    EXPECT_LE(after.heapBytes - before.heapBytes, 16 * 1024);
    EXPECT_LE(after.residentBytes - before.residentBytes, kResidentSlack);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.fileHandles, before.fileHandles);
    EXPECT_EQ(after.mappings, before.mappings);
  }

  // A sanitizer keeps what was freed for a while.
  static constexpr long kResidentSlack = (TestSupport::kIsSanitized ? 256L : 2L) * 1024 * 1024;
  static constexpr int kWarmUp = 20;
  static constexpr int kRuns = 100;

  const long threadsBefore = TestSupport::threadCountAfterFirst();
  ControllerHarness harness;
  const std::vector<Scripted::Script*> scripts{&harness.addPackage("ALPHA", PackageConfig(3)),
                                               &harness.addPackage("BETA", PackageConfig(3))};
  bool isWarm = false;
};

TEST_F(ResourceUseTest, a_hundred_starts_and_stops_leave_nothing_behind) {
  for (int run = 0; run < kWarmUp; ++run) {
    ASSERT_NO_FATAL_FAILURE(startWorkStop());
  }
  isWarm = true;
  const Holdings before = Holdings::with(threadsBefore);
  for (int run = 0; run < kRuns; ++run) {
    ASSERT_NO_FATAL_FAILURE(startWorkStop());
  }
  expectNoGrowth(before, Holdings::with(threadsBefore));
}

TEST_F(ResourceUseTest, a_hundred_resets_leave_nothing_behind) {
  harness.initialize();
  for (int run = 0; run < kWarmUp; ++run) {
    ASSERT_NO_FATAL_FAILURE(workReset());
  }
  isWarm = true;
  const long threads = threadsBefore + 2;  // one dispatcher, one monitor
  const Holdings before = Holdings::with(threads);
  for (int run = 0; run < kRuns; ++run) {
    ASSERT_NO_FATAL_FAILURE(workReset());
  }
  expectNoGrowth(before, Holdings::with(threads));
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
