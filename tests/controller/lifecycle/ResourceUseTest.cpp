// What a hundred runs of the controller leave behind in the process: nothing.

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Sanitized.h"

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

  static Holdings now() {
    Holdings found;
    const auto heap = mallinfo2();  // all zero under a sanitizer, which keeps its own heap
    found.heapBytes = static_cast<long>(heap.uordblks + heap.hblkhd);
    std::ifstream memory("/proc/self/statm");
    long total = 0;
    memory >> total >> found.residentBytes;
    found.residentBytes *= sysconf(_SC_PAGESIZE);
    found.threads = entries("/proc/self/task");
    found.fileHandles = entries("/proc/self/fd");
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      found.mappings += line.find(".so") != std::string::npos ? 1 : 0;
    }
    return found;
  }

 private:
  static long entries(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
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
    for (const char* name : {"ALPHA", "BETA"}) {
      harness.addPackage(name, PackageConfig(3)).setDevices(2).recordNothing();
      Scripted::Script::of(name).everyPass({.events = {{.code = 1}}});
    }
    harness.control().parallel();
  }

  /// Everything that a client does with a started controller.
  void work() {
    harness.registerForAll();
    harness.enumerate();
    const auto first = harness.queuePackage("ALPHA", ControllerHarness::settings(2));
    const auto second = harness.queuePackage("BETA");
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

  ControllerHarness harness;
};

TEST_F(ResourceUseTest, a_hundred_starts_and_stops_leave_nothing_behind) {
  for (int run = 0; run < kWarmUp; ++run) {
    ASSERT_NO_FATAL_FAILURE(startWorkStop());
  }
  const Holdings before = Holdings::now();
  for (int run = 0; run < kRuns; ++run) {
    ASSERT_NO_FATAL_FAILURE(startWorkStop());
  }
  expectNoGrowth(before, Holdings::now());
}

TEST_F(ResourceUseTest, a_hundred_resets_leave_nothing_behind) {
  harness.initialize();
  for (int run = 0; run < kWarmUp; ++run) {
    ASSERT_NO_FATAL_FAILURE(workReset());
  }
  const Holdings before = Holdings::now();
  for (int run = 0; run < kRuns; ++run) {
    ASSERT_NO_FATAL_FAILURE(workReset());
  }
  expectNoGrowth(before, Holdings::now());
}

}  // namespace
}  // namespace TarvexDiags::Lifecycle
