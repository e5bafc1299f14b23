// A test whose process is killed, crashed or hit by poisoned memory from outside: what every reader
// is told of it, and the exit code.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/inject/kit/Poison.h"

namespace TarvexDiags::Injection {
namespace {

using DiagctlTest::kHardwareFailure;
using DiagctlTest::kNoVerdict;
using DiagctlTest::kPassed;
using DiagctlTest::ReportedProgram;
using DiagctlTest::ReportedRun;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kFault = "Fault, then long test";
const std::string kNoFault = "Long test";

class KitInjection : public DiagctlTest::Diagctl {
 protected:
  KitInjection() { place.useMisbehavingPackage(); }

  /// Runs the test until its process is in the midst of it, and breaks that.
  template <class Break>
  ReportedRun breakIn(const std::string& test, Break&& breakProcess) {
    ReportedProgram program(withControlFile({"run", "-q", "-t", test, "-d", "Unit 0"}));
    const std::string begun = test == kFault ? "has a fault" : "has started";
    EXPECT_TRUE(program.waitForLog(begun));
    breakProcess(program.program().awaitWorker());
    m_step = "Misbehaving package: " + test + " on Unit 0";
    return program.finish();
  }

  ReportedRun runTest(const std::string& test, const std::vector<std::string>& options = {}) {
    m_step = "Misbehaving package: " + test + " on Unit 0";
    std::vector<std::string> arguments = {"run", "-q", "-t", test, "-d", "Unit 0"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return DiagctlTest::reportedRun(withControlFile(arguments));
  }

  void expectVerdict(const ReportedRun& run, const std::string& verdict, const std::string& symptom,
                     int exitCode) {
    EXPECT_EQ(run.exitCode(), exitCode) << m_step;
    EXPECT_THAT(run.verdictsOf(m_step), ElementsAre(verdict)) << m_step;
    EXPECT_THAT(run.symptomsOf(m_step), ElementsAre(symptom)) << m_step;
    EXPECT_THAT(run.faultsOfLog(), IsEmpty()) << m_step;
  }

  std::string m_step;
};

auto sending(int signal) {
  return [signal](pid_t process) { EXPECT_EQ(kill(process, signal), 0); };
}

TEST_F(KitInjection, a_kill_from_outside_is_trouble_and_takes_no_fault_back) {
  const ReportedRun faulty = breakIn(kFault, sending(SIGKILL));
  expectVerdict(faulty, "FAILED", "fault-found", kHardwareFailure);
  EXPECT_THAT(faulty.formatsWithout(m_step, "was killed from outside"), IsEmpty());
  expectVerdict(breakIn(kNoFault, sending(SIGKILL)), "ERROR", "worker-killed", kNoVerdict);
}

TEST_F(KitInjection, a_crash_is_trouble_and_takes_no_fault_back) {
  for (const int signal : {SIGSEGV, SIGILL, SIGFPE, SIGBUS, SIGABRT}) {
    const ReportedRun faulty = breakIn(kFault, sending(signal));
    expectVerdict(faulty, "FAILED", "fault-found", kHardwareFailure);
    EXPECT_THAT(faulty.formatsWithout(m_step, std::string("SIG") + sigabbrev_np(signal)),
                IsEmpty());
  }
  expectVerdict(breakIn(kNoFault, sending(SIGSEGV)), "ERROR", "worker-crashed", kNoVerdict);
}

TEST_F(KitInjection, a_fault_and_a_pass_contradict_each_other) {
  const ReportedRun run = runTest("Contradiction");
  expectVerdict(run, "ERROR", "test-contradicted-itself", kNoVerdict);
  EXPECT_THAT(run.formatsWithout(m_step, "has a fault: bit 3"), IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_step, "contradicts itself"), IsEmpty());
}

TEST_F(KitInjection, a_fault_stands_that_the_test_itself_crashed_behind) {
  const ReportedRun run = runTest("Fault, then crash");
  expectVerdict(run, "FAILED", "fault-found", kHardwareFailure);
  EXPECT_THAT(run.formatsWithout(m_step, "has a fault: bit 3"), IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_step, "crashed with signal SIGSEGV"), IsEmpty());
}

TEST_F(KitInjection, a_warning_in_a_pass_is_a_warning_and_no_success_of_a_strict_run) {
  const ReportedRun run = runTest("Warning, then passed");
  EXPECT_EQ(run.exitCode(), kPassed);
  EXPECT_THAT(run.verdictsOf(m_step), ElementsAre("WARNING"));
  EXPECT_THAT(run.formatsWithout(m_step, "The margin is small"), IsEmpty());
  EXPECT_EQ(runTest("Warning, then passed", {"--strict"}).exitCode(), kNoVerdict);
}

TEST_F(KitInjection, poisoned_memory_is_told_with_both_its_addresses) {
  Page page;
  const ReportedRun run = breakIn(kNoFault, [&page](pid_t process) {
    page = stackPageOf(process);
    poison(process, page.address);
  });
  EXPECT_NE(page.address, 0U);
  expectVerdict(run, "ERROR", "memory-poisoned", kHardwareFailure);
  EXPECT_THAT(run.verdictsOf("diagctl: Machine watch on this machine"), ElementsAre("FAILED"))
      << "the memory is at fault, and not the test";
  EXPECT_THAT(run.formatsWithout(m_step, "virtual address " + textOf(page.address)), IsEmpty());
  EXPECT_THAT(run.formatsWithout(m_step, "physical address " + textOf(page.physical)), IsEmpty());
}

TEST_F(KitInjection, poisoned_memory_takes_no_fault_back) {
  const ReportedRun run =
      breakIn(kFault, [](pid_t process) { poison(process, stackPageOf(process).address); });
  expectVerdict(run, "FAILED", "fault-found", kHardwareFailure);
  EXPECT_THAT(run.formatsWithout(m_step, "virtual address 0x"), IsEmpty());
}

}  // namespace
}  // namespace TarvexDiags::Injection
