// Signals to the worker of a processor test, and an uncorrectable error under
// another test: from the fault to the exit code and to what each format tells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::DiagctlTest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
namespace fs = std::filesystem;

std::string fieldOf(const fs::path& status, const std::string& key) {
  std::ifstream file(status);
  for (std::string line; std::getline(file, line);) {
    if (line.rfind(key + ":\t", 0) == 0) {
      return line.substr(key.size() + 2);
    }
  }
  return {};
}

bool isGone(pid_t process) {
  const std::string state = fieldOf("/proc/" + std::to_string(process) + "/status", "State");
  return state.empty() || state[0] == 'Z' || state[0] == 'X';
}

// The core that a thread of the process has bound itself to; empty if there is
// none yet.
std::string boundCoreOf(pid_t process) {
  std::error_code ended;
  const fs::path tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : fs::directory_iterator(tasks, ended)) {
    const std::string cores = fieldOf(task.path() / "status", "Cpus_allowed_list");
    if (!cores.empty() && cores.find_first_not_of("0123456789") == std::string::npos) {
      return cores;
    }
  }
  return {};
}

/// A processor test on core 0, whose workers crash as each test says.
class CrashFromOutside : public ::testing::Test {
 protected:
  using MustCrash = std::function<bool(int number, const std::string& core)>;

  /// Three workers in all: the test, and its repetitions on core 0 and on
  /// another core.
  ReportedRun runCrashing(int signal, const MustCrash& mustCrash) {
    ReportedProgram run({"--allow-insecure", "run", "--quick", "--serial", "-p", "processor", "-t",
                         "Integer arithmetic", "-d", "cpu0"});
    for (int number = 1; number <= 3; ++number) {
      const pid_t worker = run.program().awaitWorker();
      std::string core;
      EXPECT_TRUE(TestSupport::eventually([&] {
        core = boundCoreOf(worker);
        return !core.empty() || isGone(worker);
      }));
      m_cores.push_back(core);
      if (mustCrash(number, core)) {
        EXPECT_EQ(kill(worker, signal), 0);
      }
      EXPECT_TRUE(TestSupport::eventually([&] { return isGone(worker); }));
    }
    ReportedRun report = run.finish();
    EXPECT_THAT(report.faultsOfLog(), IsEmpty());
    EXPECT_THAT(report.steps(), SizeIs(1));
    return report;
  }

  static std::string stepOf(const ReportedRun& run) { return *run.steps().begin(); }

  /// All three worked on the same random values.
  static void expectOneSeed(const ReportedRun& run) {
    const std::string told = run.accountOf(stepOf(run), "jsonl");
    const std::regex seed("seed ([0-9]+)");
    std::vector<std::string> seeds;
    for (std::sregex_iterator each(told.begin(), told.end(), seed); each != std::sregex_iterator();
         ++each) {
      seeds.push_back((*each)[1]);
    }
    EXPECT_THAT(seeds, SizeIs(3)) << told;
    EXPECT_THAT(std::set<std::string>(seeds.begin(), seeds.end()), SizeIs(1)) << told;
  }

  std::vector<std::string> m_cores;  ///< of the workers, in their order
};

TEST_F(CrashFromOutside, on_one_core_only_is_a_failure_of_the_hardware) {
  const ReportedRun run =
      runCrashing(SIGSEGV, [](int, const std::string& core) { return core == "0"; });
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.verdictsOf(stepOf(run)), ElementsAre("FAILED"));
  EXPECT_THAT(run.symptomsOf(stepOf(run)), ElementsAre("crash-on-one-device"));
  EXPECT_THAT(run.formatsWithout(stepOf(run), "the hardware is at fault"), IsEmpty());
  EXPECT_EQ(m_cores[0], "0");
  EXPECT_EQ(m_cores[1], "0");
  EXPECT_NE(m_cores[2], "0");
  expectOneSeed(run);
}

TEST_F(CrashFromOutside, on_both_cores_is_trouble_of_the_package) {
  const ReportedRun run = runCrashing(SIGILL, [](int, const std::string&) { return true; });
  EXPECT_EQ(run.exitCode(), kNoVerdict) << run.outcome().out;
  EXPECT_THAT(run.verdictsOf(stepOf(run)), ElementsAre("ERROR"));
  EXPECT_THAT(run.symptomsOf(stepOf(run)), ElementsAre("worker-crashed"));
  EXPECT_THAT(run.formatsWithout(stepOf(run), "the package is to blame"), IsEmpty());
}

TEST_F(CrashFromOutside, that_does_not_come_back_is_a_warning) {
  const ReportedRun run =
      runCrashing(SIGFPE, [](int number, const std::string&) { return number == 1; });
  EXPECT_EQ(run.exitCode(), kPassed) << run.outcome().out;
  EXPECT_THAT(run.verdictsOf(stepOf(run)), ElementsAre("WARNING"));
  EXPECT_THAT(run.formatsWithout(stepOf(run), "not when it was repeated"), IsEmpty());
}

TEST(PoisonFromOutside, under_a_test_of_something_else_is_a_failure_of_the_memory) {
  Workplace place;
  place.useMisbehavingPackage();
  const ReportedRun run = reportedRun({"--config", place.controlFile(), "--allow-insecure", "run",
                                       "-t", "Poisoned memory", "-d", "Unit 0"});
  const std::string test = "Misbehaving package: Poisoned memory on Unit 0";
  const std::string watch = "diagctl: Machine watch on this machine";
  EXPECT_EQ(run.exitCode(), kHardwareFailure) << run.outcome().out;
  EXPECT_THAT(run.steps(), UnorderedElementsAre(test, watch));
  EXPECT_THAT(run.verdictsOf(test), ElementsAre("ERROR"));
  EXPECT_THAT(run.verdictsOf(watch), ElementsAre("FAILED"));
  EXPECT_THAT(run.symptomsOf(watch), ElementsAre("memory-poisoned"));
  EXPECT_THAT(run.formatsWithout(watch, "Replace the memory module"), IsEmpty());
  EXPECT_THAT(run.faultsOfLog(), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::DiagctlTest
