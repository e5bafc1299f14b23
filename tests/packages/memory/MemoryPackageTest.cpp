// The package as the controller drives it, and its tests with a machine of files around them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/ResourceTags.h"
#include "packagekit/testing/PackageDriver.h"
#include "packagekit/testing/RecordingContext.h"
#include "packages/common/ContextJournal.h"
#include "packages/memory/MemoryReasons.h"
#include "packages/memory/NodeDiagnostic.h"
#include "tests/packages/memory/MemoryFixture.h"
#include "tests/packages/memory/PoisonSignal.h"
#include "tests/support/FakeMachine.h"

namespace TarvexDiags::Memory {
namespace {

using Diag::DiagnosticResult;
using PackageKit::Testing::PackageDriver;
using PackageKit::Testing::RecordingContext;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::vector<int> kAllTests = testNumbers();

class MemoryPackageTest : public ::testing::Test {
 protected:
  MemoryPackageTest() {
    driver.set("Package", "QuickMaximumMegabytes", "4");
    driver.set("Package", "MarginMegabytes", "0");
    driver.set("Package", "MarginPercent", "0");
    driver.set("TestID8", "QuickHoldSeconds", "0.05");
    driver.set("TestID9", "QuickDurationSeconds", "0.05");
    const std::string tag = driver.devices().at(0).getDevice()->getResourceTag();
    device = tag.substr(tag.rfind('/') + 1);
  }

  PackageDriver::Run runQuick(const std::vector<int>& tests, bool haltOnError = false) {
    PackageDriver::Options options;
    options.quickMode = true;
    options.haltOnError = haltOnError;
    return driver.run(device, tests, options);
  }

  PackageDriver driver{TARVEX_PACKAGE_DIR, "memory"};
  std::string device;
};

TEST_F(MemoryPackageTest, good_memory_passes_every_test_on_memory_of_its_own) {
  const auto run = runQuick(kAllTests);
  EXPECT_EQ(run.verdict, DiagnosticResult::PASSED);
  const long regions =
      std::count_if(run.events.begin(), run.events.end(),
                    [](const PackageDriver::Event& event) { return event.code == RegionReady; });
  EXPECT_EQ(regions, static_cast<long>(kAllTests.size()));
  EXPECT_EQ(run.parametersOf(RegionReady).at(1), "4");
  EXPECT_GT(std::stod(run.measurement("verifiedRate")), 0);
  EXPECT_GT(std::stod(run.measurement("coveredBytes")), 0);
  EXPECT_GT(std::stod(run.measurement("totalBytes")), std::stod(run.measurement("coveredBytes")));
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(MemoryPackageTest, injected_fault_fails_each_test_and_is_told_with_all_that_is_known) {
  for (const int test : kAllTests) {
    driver.set("TestID" + std::to_string(test), "InjectFault", "4242");
  }
  for (const int test : kAllTests) {
    const auto run = runQuick({test});
    EXPECT_EQ(run.verdict, DiagnosticResult::FAILED) << test;
    const auto errors = std::count_if(run.events.begin(), run.events.end(), [](const auto& event) {
      return event.type == Diag::DiagnosticEvent::ERROR_EVENT;
    });
    EXPECT_EQ(errors, 1) << test << ": one flipped word is one finding, told once";
    EXPECT_FALSE(run.has(MiscompareTotal)) << test;
    const std::vector<std::string> fault = run.parametersOf(MiscompareFound);
    ASSERT_THAT(fault, SizeIs(9)) << test;
    EXPECT_THAT(fault[1], HasSubstr("0x")) << test;
    EXPECT_EQ(std::stoull(fault[3], nullptr, 16) ^ std::stoull(fault[4], nullptr, 16),
              std::stoull(fault[5], nullptr, 16))
        << test;
    EXPECT_EQ(fault[5], "0x0000000000010000") << "bit 0 of byte 2 of its word";
    EXPECT_EQ(fault[6], "FLIPPED_CONTENT") << test;
  }
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(MemoryPackageTest, halt_on_error_ends_a_test_with_the_fault) {
  driver.set("TestID9", "InjectFault", "0");
  driver.set("TestID9", "QuickDurationSeconds", "3600");
  EXPECT_EQ(runQuick({9}, true).verdict, DiagnosticResult::FAILED);
}

TEST_F(MemoryPackageTest, margin_that_leaves_nothing_to_test_is_told_and_no_fault) {
  driver.set("Package", "MarginPercent", "100");
  const auto run = runQuick({2});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_TRUE(run.has(TooLittleMemory));
  EXPECT_TRUE(run.has(PackageKit::TEST_NOT_SUPPORTED));
  EXPECT_THAT(driver.eventsWithoutToken(), IsEmpty());
}

TEST_F(MemoryPackageTest, setting_that_is_missing_leaves_no_verdict_and_is_named) {
  driver.set("Package", "Rounds", "");
  const auto run = runQuick({2});
  EXPECT_EQ(run.verdict, DiagnosticResult::UNUSUAL_STATUS);
  EXPECT_THAT(run.parametersOf(9006).at(3), HasSubstr("the key Rounds is missing for test 2"));
}

TEST_F(MemoryPackageTest, estimate_grows_with_the_work) {
  PackageDriver::Options options;
  options.estimationMode = true;
  const int short1 = driver.run(device, {1}, options).estimatedTime;
  EXPECT_GT(short1, 0);
  EXPECT_GT(driver.run(device, {2}, options).estimatedTime, short1);
  EXPECT_GE(driver.run(device, {8}, options).estimatedTime, 180);
  options.quickMode = true;
  EXPECT_LE(driver.run(device, {8}, options).estimatedTime, 30);
}

TEST_F(MemoryPackageTest, nodes_have_tags_and_locks_of_their_own) {
  Tests::FakeMachine machine;
  for (const std::string node : {"0", "1"}) {
    const std::string folder = "sys/devices/system/node/node" + node;
    machine.has(folder + "/meminfo", "Node " + node + " MemTotal: 1048576 kB\n");
    machine.has(folder + "/cpulist", node == "0" ? "0-1\n" : "60000\n");
  }
  machine.has("proc/meminfo", "MemTotal: 2097152 kB\nMemAvailable: 1048576 kB\n");
  driver.set("Package", "SystemRoot", machine.path());
  std::vector<std::string> tags;
  for (auto& found : driver.enumerateAgain()) {
    tags.push_back(found.getDevice()->getResourceTag());
    EXPECT_EQ(found.getDevice()->getDeviceStatus(), 0U);
  }
  EXPECT_EQ(tags, (std::vector<std::string>{"host/node0", "host/node1"}));
  EXPECT_THAT(PackageKit::findTagClashes(tags), IsEmpty());
  EXPECT_TRUE(driver.supports("node0", 1));
  EXPECT_FALSE(driver.supports("node1", 1)) << "none of its CPUs may be used";
  EXPECT_THAT(driver.logText(), HasSubstr("NO_CPU_ALLOWED"));
}

/// @brief Lets a memory controller count errors while the test waits.
class CountingContext : public RecordingContext {
 public:
  CountingContext(PackageKit::TestParameters parameters, Tests::FakeMachine& machine)
      : RecordingContext(std::move(parameters)), m_machine(machine) {}

  bool sleepFor(std::chrono::nanoseconds duration) override {
    m_machine.has("sys/devices/system/edac/mc/mc0/ce_count", corrected + "\n");
    m_machine.has(uncorrectedFile, uncorrected + "\n");
    return RecordingContext::sleepFor(duration);
  }

  std::string corrected = "7";
  std::string uncorrected = "0";
  std::string uncorrectedFile = "sys/devices/system/edac/mc/mc0/ue_count";

 private:
  Tests::FakeMachine& m_machine;
};

class MemoryCountersTest : public ::testing::Test {
 protected:
  MemoryCountersTest() {
    machine.has("proc/meminfo", "MemTotal: 2048 kB\nMemAvailable: 2048 kB\n");
    machine.has("sys/devices/system/edac/mc/mc0/ce_count", "7\n");
    machine.has("sys/devices/system/edac/mc/mc0/ue_count", "0\n");
    takeAtMost(0);
    makeContext("");
  }

  void takeAtMost(int megabytes) {
    machine.has("memory.cfg",
                "[Package]\nMarginMegabytes=0\nMarginPercent=0\nRounds=1\n"
                "HoldSeconds=0\nDurationSeconds=0\nMaximumMegabytes=" +
                    std::to_string(megabytes) + "\n");
  }

  PackageKit::TestParameters parameters(const std::string& cpus) const {
    PackageKit::TestParameters parameters;
    parameters.testId = 8;
    parameters.device.name = "Memory";
    parameters.device.properties = {{"systemRoot", machine.path()}, {"cpus", cpus}};
    parameters.configFile = machine.path() + "/memory.cfg";
    return parameters;
  }

  void makeContext(const std::string& cpus) {
    context = std::make_unique<CountingContext>(parameters(cpus), machine);
  }

  PackageKit::Verdict run() { return NodeDiagnostic(memoryTest(BitFade)).run(*context); }

  std::vector<unsigned int> codes() const {
    std::vector<unsigned int> codes;
    for (const RecordingContext::Event& event : context->events()) {
      codes.push_back(event.code);
    }
    return codes;
  }

  Tests::FakeMachine machine;
  std::unique_ptr<CountingContext> context;
};

TEST_F(MemoryCountersTest, counters_that_stand_still_change_nothing) {
  EXPECT_EQ(run().kind(), PackageKit::Verdict::Kind::Passed);
}

TEST_F(MemoryCountersTest, errors_that_were_corrected_are_a_warning) {
  context->corrected = "9";
  EXPECT_EQ(run().kind(), PackageKit::Verdict::Kind::Unusual);
  EXPECT_THAT(codes(), Contains(unsigned{CorrectedErrors}));
}

TEST_F(MemoryCountersTest, errors_that_could_not_be_corrected_are_a_fault) {
  context->uncorrected = "1";
  EXPECT_EQ(run().kind(), PackageKit::Verdict::Kind::Failed);
  EXPECT_THAT(codes(), Contains(unsigned{UncorrectedErrors}));
}

/// @brief Takes a page away while the memory is left alone, and blames a module for it.
class LosingContext : public CountingContext {
 public:
  static constexpr int kMegabytes = 3;

  using CountingContext::CountingContext;

  bool sleepFor(std::chrono::nanoseconds duration) override {
    if (lost == nullptr) {
      uncorrected = "1";
      CountingContext::sleepFor(duration);
      lost = findMapping(std::size_t{kMegabytes} << 20) + 2 * kPageBytes;
      signalPoison(lost, BUS_MCEERR_AR);
    }
    return CountingContext::sleepFor(duration);
  }

  std::byte* lost = nullptr;
};

TEST_F(MemoryCountersTest, page_that_is_lost_fails_the_test_and_is_told_with_its_module) {
  machine.has("proc/meminfo", "MemTotal: 8192 kB\nMemAvailable: 4096 kB\n");
  takeAtMost(LosingContext::kMegabytes);
  LosingContext losing(parameters(""), machine);
  EXPECT_EQ(NodeDiagnostic(memoryTest(BitFade)).run(losing).kind(),
            PackageKit::Verdict::Kind::Failed);
  std::vector<std::vector<std::string>> told;
  for (const RecordingContext::Event& event : losing.events()) {
    EXPECT_NE(event.code, unsigned{MiscompareFound});
    if (event.code == PageIsPoisoned) {
      told.push_back(event.parameters);
    }
  }
  ASSERT_THAT(told, SizeIs(1));
  ASSERT_THAT(told[0], SizeIs(4));
  EXPECT_EQ(std::stoull(told[0][1], nullptr, 16), reinterpret_cast<std::uintptr_t>(losing.lost));
  EXPECT_EQ(told[0][3], "mc0");
}

/// The files of two controllers with four modules each, as a driver of the kernel writes them.
void haveModules(Tests::FakeMachine& machine) {
  for (const std::string controller : {"0", "1"}) {
    const std::string folder = "sys/devices/system/edac/mc/mc" + controller;
    for (const std::string file : {"ce_count", "ce_noinfo_count", "ue_count", "ue_noinfo_count"}) {
      machine.has(folder + "/" + file, "0\n");
    }
    for (const std::string module : {"0", "1", "2", "3"}) {
      const std::string place = folder + "/dimm" + module + "/dimm_";
      machine.has(place + "label",
                  "CPU_SrcID#0_MC#" + controller + "_Chan#" + module + "_DIMM#0\n");
      machine.has(place + "location", "channel " + module + " slot 0 \n");
      machine.has(place + "mem_type", "Registered-DDR4\n");
      machine.has(place + "ce_count", "0\n");
      machine.has(place + "ue_count", "0\n");
    }
  }
}

TEST_F(MemoryCountersTest, page_that_is_lost_is_told_with_the_label_of_its_module) {
  machine.has("proc/meminfo", "MemTotal: 8192 kB\nMemAvailable: 4096 kB\n");
  takeAtMost(LosingContext::kMegabytes);
  haveModules(machine);
  LosingContext losing(parameters(""), machine);
  losing.uncorrectedFile = "sys/devices/system/edac/mc/mc1/dimm2/dimm_ue_count";
  EXPECT_EQ(NodeDiagnostic(memoryTest(BitFade)).run(losing).kind(),
            PackageKit::Verdict::Kind::Failed);
  const std::string module = "mc1/dimm2 (CPU_SrcID#0_MC#1_Chan#2_DIMM#0)";
  int poisoned = 0;
  for (const RecordingContext::Event& event : losing.events()) {
    if (event.code == PageIsPoisoned) {
      ++poisoned;
      EXPECT_EQ(event.parameters.at(3), module);
    } else if (event.code == UncorrectedErrors) {
      EXPECT_EQ(event.parameters.at(1), module);
    }
  }
  EXPECT_EQ(poisoned, 1);
}

/// @brief Asks a test to stop at one of its questions whether it shall, and takes the time until
/// its end.
class StoppingContext : public RecordingContext {
 public:
  using Clock = std::chrono::steady_clock;

  StoppingContext(PackageKit::TestParameters parameters, long question)
      : RecordingContext(std::move(parameters)), m_question(question) {}

  bool stopRequested() const noexcept override {
    const long asked = ++m_asked;
    if (asked == m_question) {
      m_stopped = Clock::now();
    }
    return m_question > 0 && asked >= m_question;
  }

  long asked() const { return m_asked; }
  Clock::duration sinceStop() const { return Clock::now() - m_stopped; }

 private:
  const long m_question;
  mutable std::atomic<long> m_asked{0};
  mutable Clock::time_point m_stopped;
};

constexpr auto kLongestAnswer = std::chrono::milliseconds(500);

class MemoryStopTest : public MemoryCountersTest, public ::testing::WithParamInterface<int> {
 protected:
  /// The memory differs in size from run to run, so that each of them maps it.
  PackageKit::TestParameters nextParameters() {
    m_isLarge = !m_isLarge;
    machine.has("proc/meminfo", "MemTotal: 131072 kB\nMemAvailable: 131072 kB\n");
    takeAtMost(m_isLarge ? 16 : 10);
    PackageKit::TestParameters wanted = parameters("");
    wanted.testId = GetParam();
    wanted.quickMode = true;
    return wanted;
  }

 private:
  bool m_isLarge = false;
};

TEST_P(MemoryStopTest, test_ends_at_once_at_each_of_ten_moments) {
  const auto run = [&](StoppingContext& stopping) {
    return NodeDiagnostic(memoryTest(GetParam())).run(stopping);
  };
  StoppingContext whole(nextParameters(), 0);
  EXPECT_EQ(run(whole).kind(), PackageKit::Verdict::Kind::Passed);
  StoppingContext smaller(nextParameters(), 0);
  EXPECT_EQ(run(smaller).kind(), PackageKit::Verdict::Kind::Passed);
  const long questions = std::min(whole.asked(), smaller.asked());
  for (long moment = 0; moment < 10; ++moment) {
    // A busy machine is late once, a test that does not listen each time.
    StoppingContext::Clock::duration quickest = std::chrono::hours(1);
    for (int attempt = 0; attempt < 3 && quickest > kLongestAnswer; ++attempt) {
      StoppingContext stopping(nextParameters(), 1 + moment * (questions - 1) / 10);
      EXPECT_THROW(static_cast<void>(run(stopping)), PackageKit::Stopped) << "moment " << moment;
      quickest = std::min(quickest, stopping.sinceStop());
    }
    EXPECT_LT(quickest, kLongestAnswer) << "moment " << moment;
  }
}

INSTANTIATE_TEST_SUITE_P(AllTests, MemoryStopTest, ::testing::ValuesIn(kAllTests));

TEST_F(MemoryCountersTest, request_to_stop_gives_no_verdict) {
  context->requestStop();
  EXPECT_THROW(static_cast<void>(run()), PackageKit::Stopped);
}

TEST_F(MemoryCountersTest, fault_that_was_found_stands_whatever_comes_after_it) {
  const auto troubled = [&](unsigned int code) {
    return Common::judged(*context, [code](Common::RunJournal& journal) {
      journal.report(code, {});
      throw Common::NotSupported(Reasons::kNotMapped);
    });
  };
  EXPECT_EQ(troubled(200).kind(), PackageKit::Verdict::Kind::Failed);
  EXPECT_EQ(troubled(100).kind(), PackageKit::Verdict::Kind::NotSupported);
  const auto broken = [](Common::RunJournal&) { throw std::runtime_error("trouble"); };
  EXPECT_THROW(static_cast<void>(Common::judged(*context, broken)), std::runtime_error);
}

TEST_F(MemoryCountersTest, node_without_a_cpu_to_run_on_is_not_passed) {
  makeContext("8191");
  EXPECT_EQ(run().kind(), PackageKit::Verdict::Kind::NotSupported);
}

TEST_F(MemoryCountersTest, kernel_that_tells_nothing_makes_the_test_not_supported) {
  machine.has("proc/meminfo", "");
  EXPECT_EQ(run().kind(), PackageKit::Verdict::Kind::NotSupported);
}

}  // namespace
}  // namespace TarvexDiags::Memory
