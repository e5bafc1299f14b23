// Faults of the memory, made from outside while the program tests it: from the fault to the exit
// code and to what each format tells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "packages/memory/Nodes.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/inject/memory/TestedMemory.h"
#include "tests/packages/memory/MemoryFixture.h"

namespace TarvexDiags::Memory {
namespace {

namespace fs = std::filesystem;
using DiagctlTest::kHardwareFailure;
using DiagctlTest::ReportedProgram;
using DiagctlTest::ReportedRun;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr std::uintptr_t kPageBytes = 4096;
constexpr std::uintptr_t kNoDistance = ~std::uintptr_t{0};

std::string textOf(std::uint64_t address) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%016lx", address);
  return text;
}

/// A run of one test on the memory of the first node, with settings of its own.
class MemoryInjection : public ::testing::Test {
 protected:
  MemoryInjection() {
    const std::string packages = m_place.makeDirectory("packages");
    for (const auto& entry : fs::directory_iterator(TARVEX_PACKAGE_DIR)) {
      fs::create_symlink(entry.path(), fs::path(packages) / entry.path().filename());
    }
    fs::remove(fs::path(packages) / "memory.cfg");
    m_place.write("control.cfg", "[GlobalSettings]\nPackDirPath=" + packages +
                                     "\nLogDirPath=" + m_place.path() +
                                     "\nRunMode=PARALLEL\nHaltOnError=FALSE\n"
                                     "DiagnosticMode=CUSTOMER\n");
  }

  /// @param settings  lines of section Package; of a key that comes twice, the first counts
  void begin(int test, const std::string& settings, std::vector<std::string> more = {}) {
    start(test, settings, std::move(more), {});
    worker = program->program().awaitWorker();
    memory = std::make_unique<TestedMemory>(worker);
  }

  void start(int test, const std::string& settings, std::vector<std::string> more,
             const DiagctlTest::Program::Options& options) {
    std::string text = DiagctlTest::contentsOf(TARVEX_PACKAGE_DIR "/memory.cfg");
    for (const std::string section : {"[Package]\n", "[TestID8]\n", "[TestID9]\n"}) {
      text.insert(text.find(section) + section.size(), settings);
    }
    m_place.write("packages/memory.cfg", text);
    const std::string device = "host/" + findNodes(Watching::SystemFiles("/")).at(0).tagComponent();
    std::vector<std::string> arguments = {
        "--allow-insecure", "--config", m_place.file("control.cfg"), "run", "-p",
        "memory",           "-t",       std::to_string(test),        "-d",  device};
    arguments.insert(arguments.end(), more.begin(), more.end());
    program = std::make_unique<ReportedProgram>(arguments, options);
  }

  bool waitForPatterns() const { return program->waitForLog("are tested by"); }

  ReportedRun end() {
    ReportedRun run = program->finish();
    EXPECT_THAT(run.steps(), SizeIs(1));
    EXPECT_THAT(run.faultsOfLog(), IsEmpty());
    step = run.steps().empty() ? "" : *run.steps().begin();
    EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().err;
    EXPECT_THAT(run.verdictsOf(step), ElementsAre("FAILED"));
    return run;
  }

  std::unique_ptr<ReportedProgram> program;
  pid_t worker = -1;
  std::unique_ptr<TestedMemory> memory;
  std::string step;

 private:
  TestSupport::TemporaryDirectory m_place;
};

/// Flips bits of one word after another until the worker has gone or an answer is there.
/// @return the bits that were flipped, by address
std::map<std::uintptr_t, std::uint64_t> flipUntil(const TestedMemory& memory,
                                                  const std::function<bool()>& isEnough) {
  std::map<std::uintptr_t, std::uint64_t> flipped;
  const std::size_t words = memory.bytes() / sizeof(std::uint64_t);
  for (std::size_t turn = 1; turn < 4000 && !isEnough(); ++turn) {
    // A large prime: no word comes twice.
    const std::uintptr_t address = memory.begin() + turn * 15485863 % words * sizeof(std::uint64_t);
    const std::uint64_t bits = std::uint64_t{1} << turn % 64;
    if (!memory.flip(address, bits)) {
      break;
    }
    flipped[address] = bits;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return flipped;
}

class FlippedBits : public MemoryInjection, public ::testing::WithParamInterface<int> {};

TEST_P(FlippedBits, are_told_with_address_and_bit_in_every_format) {
  begin(GetParam(), "MaximumMegabytes=8\nRounds=100000\nHoldSeconds=0.1\nDurationSeconds=3600\n",
        {"--halt-on-error"});
  ASSERT_TRUE(waitForPatterns());
  const auto flipped = flipUntil(*memory, [] { return false; });
  const ReportedRun run = end();
  const std::string log = run.accountOf(step, "jsonl");
  const std::regex told("at address (0x[0-9a-f]+) .*? bits (0x[0-9a-f]+) differ");
  std::size_t count = 0;
  for (std::sregex_iterator match(log.begin(), log.end(), told), last; match != last; ++match) {
    const std::uintptr_t address = std::stoull((*match)[1], nullptr, 16);
    const std::uint64_t bits = std::stoull((*match)[2], nullptr, 16);
    ++count;
    EXPECT_THAT(run.formatsWithout(step, (*match)[1]), IsEmpty());
    // A block takes its content along within a slice.
    const std::uintptr_t distance = GetParam() == BlockMove ? kBlockBytes : kNoDistance;
    EXPECT_TRUE(std::any_of(flipped.begin(), flipped.end(), [&](const auto& flip) {
      const std::uintptr_t apart = address - flip.first;
      return flip.second == bits && (apart == 0 || apart % distance == 0);
    })) << match->str();
  }
  EXPECT_GT(count, 0U) << log;
}

INSTANTIATE_TEST_SUITE_P(AllTests, FlippedBits, ::testing::ValuesIn(testNumbers()));

TEST_F(MemoryInjection, crash_behind_a_miscompare_is_a_failure_of_the_memory) {
  begin(RandomPatterns, "MaximumMegabytes=8\nRounds=100000\n");
  ASSERT_TRUE(waitForPatterns());
  flipUntil(*memory,
            [&] { return program->waitForLog("at address 0x", std::chrono::milliseconds(0)); });
  ASSERT_EQ(kill(worker, SIGSEGV), 0);
  const ReportedRun run = end();
  EXPECT_THAT(run.formatsWithout(step, "at address 0x"), IsEmpty());
}

TEST_F(MemoryInjection, crash_that_does_not_come_back_is_a_warning_with_one_node_too) {
  // While the memory is populated: what remains then takes long enough.
  begin(RandomPatterns, "MaximumMegabytes=128\nRounds=1\n");
  ASSERT_EQ(kill(worker, SIGSEGV), 0);
  const ReportedRun run = program->finish();
  ASSERT_THAT(run.steps(), SizeIs(1)) << run.outcome().err;
  step = *run.steps().begin();
  EXPECT_EQ(run.exitCode(), DiagctlTest::kPassed) << run.outcome().out;
  EXPECT_THAT(run.verdictsOf(step), ElementsAre("WARNING"));
  EXPECT_THAT(run.symptomsOf(step), ElementsAre("crash-not-repeated"));
  EXPECT_THAT(run.formatsWithout(step, "it did not crash"), IsEmpty());
}

TEST_F(MemoryInjection, poisoned_pages_fail_the_test_and_nothing_else_is_blamed) {
  begin(BandwidthStress, "MaximumMegabytes=32\nDurationSeconds=4\n");
  ASSERT_TRUE(waitForPatterns());
  const std::vector<std::uintptr_t> pages = {memory->begin() + 3 * kPageBytes,
                                             memory->begin() + 4444 * kPageBytes};
  std::vector<std::string> told;
  for (const std::uintptr_t page : pages) {
    told.push_back(textOf(page));
    told.push_back(textOf(memory->physicalAddressOf(page)));
  }
  memory->poison(2, pages[0] + 77, BUS_MCEERR_AR);
  memory->poison(0, pages[1], BUS_MCEERR_AO);
  const ReportedRun run = end();
  for (const std::string& text : told) {
    EXPECT_THAT(run.formatsWithout(step, text), IsEmpty()) << text;
  }
  for (const std::string blame : {"SIGBUS", "signal", "worker", "crash", "was expected"}) {
    EXPECT_THAT(run.formatsWithout(step, blame), SizeIs(4)) << blame;
  }
}

TEST_F(MemoryInjection, nothing_that_may_be_mapped_is_nothing_tested_and_told_with_its_cause) {
  DiagctlTest::Program::Options options;
  options.limits[RLIMIT_AS] = 400UL << 20;
  start(RandomPatterns, "MaximumMegabytes=1024\n", {}, options);
  const ReportedRun run = program->finish();
  ASSERT_THAT(run.steps(), SizeIs(1)) << run.outcome().err;
  step = *run.steps().begin();
  EXPECT_EQ(run.exitCode(), DiagctlTest::kNothingRan) << run.outcome().err;
  EXPECT_THAT(run.verdictsOf(step), ElementsAre("SKIPPED"));
  EXPECT_THAT(run.formatsWithout(step, "Cannot allocate memory"), IsEmpty());
}

TEST_F(MemoryInjection, memory_that_may_not_be_locked_is_tested_all_the_same_and_told) {
  DiagctlTest::Program::Options options;
  options.withoutCapabilities = {CAP_IPC_LOCK};
  options.limits[RLIMIT_MEMLOCK] = 0;
  start(RandomPatterns, "MaximumMegabytes=8\n", {}, options);
  const ReportedRun run = program->finish();
  ASSERT_THAT(run.steps(), SizeIs(1)) << run.outcome().err;
  step = *run.steps().begin();
  EXPECT_EQ(run.exitCode(), DiagctlTest::kPassed) << run.outcome().err;
  EXPECT_THAT(run.verdictsOf(step), ElementsAre("PASSED"));
  EXPECT_THAT(run.accountOf(step, "jsonl"), HasSubstr("not all of the memory could be locked"));
}

TEST_F(MemoryInjection, page_poisoned_while_the_memory_is_populated_fails_the_test) {
  // A run that is not over before the fault comes, however late, and does not outlive it: when the
  // memory has been populated by then, the sweeps would go on without the page.
  begin(RandomPatterns, "MaximumMegabytes=128\nRounds=100000\n", {"--halt-on-error"});
  memory->physicalAddressOf(memory->begin());
  memory->poison(0, memory->begin(), BUS_MCEERR_AO);
  const ReportedRun run = end();
  EXPECT_THAT(run.formatsWithout(step, textOf(memory->begin())), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Memory
