// Faults of a core, made from outside while the program tests it: from the fault to the exit code
// and to what each format tells.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "packages/common/CpuList.h"
#include "tests/diagctl/Diagctl.h"
#include "tests/diagctl/ReportedRun.h"
#include "tests/inject/processor/ProgramText.h"
#include "tests/inject/processor/WorkerUnderTest.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::Tests {
namespace {

using DiagctlTest::kHardwareFailure;
using DiagctlTest::kNoVerdict;
using DiagctlTest::ReportedProgram;
using DiagctlTest::ReportedRun;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::eventually;

constexpr const char* kLibrary = "libprocessor.so";

/// A run of one test on the last core, and the worker that does it.
class ProcessorFaults : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_THAT(cpus, SizeIs(::testing::Ge(2U))) << "one core alone"; }

  void begin(const std::string& test, const std::string& language = "en") {
    program = std::make_unique<ReportedProgram>(std::vector<std::string>{
        "--allow-insecure", "--lang", language, "run", "-p", "processor", "-t", test, "-d",
        "host/cpu" + std::to_string(core), "--halt-on-error", "--seed", "7"});
    // One that looks for devices comes first, and is held on no core.
    ASSERT_TRUE(eventually([&] {
      worker = findWorker(kLibrary);
      return worker > 0 && threadHeldOn(worker, core) > 0;
    }));
  }

  /// Waits until the worker's thread is on a core. @return the thread
  pid_t threadOn(int cpu) {
    pid_t thread = -1;
    EXPECT_TRUE(eventually([&] { return (thread = threadHeldOn(worker, cpu)) > 0; }));
    return thread;
  }

  ReportedRun end() {
    ReportedRun run = program->finish();
    EXPECT_THAT(run.steps(), SizeIs(1));
    step = run.steps().empty() ? "" : *run.steps().begin();
    EXPECT_THAT(run.faultsOfLog(), IsEmpty());
    return run;
  }

  const std::vector<int> cpus = Common::allowedCpus();
  const int core = cpus.back();
  const int other = cpus.front();
  pid_t worker = -1;
  std::unique_ptr<ReportedProgram> program;
  std::string step;
};

TEST_F(ProcessorFaults, core_that_is_forbidden_under_its_test_has_no_verdict) {
  begin("Integer arithmetic");
  ASSERT_TRUE(moveThread(threadOn(core), other));
  const ReportedRun run = end();
  EXPECT_EQ(run.exitCode(), kNoVerdict);
  EXPECT_THAT(run.verdictsOf(step), ElementsAre("ERROR"));
  EXPECT_THAT(run.formatsWithout(step, "the core was taken away"), IsEmpty());
}

TEST_F(ProcessorFaults, core_that_is_forbidden_is_told_in_the_language_of_the_reader) {
  begin("Integer arithmetic", "de");
  ASSERT_TRUE(moveThread(threadOn(core), other));
  const ReportedRun run = end();
  // The text's lines are found by their English verdicts.
  EXPECT_THAT(run.formatsWithout(step, "hat kein Urteil: der Kern wurde weggenommen."),
              ElementsAre("text"));
  EXPECT_THAT(run.outcome().out, HasSubstr("der Kern wurde weggenommen."));
}

TEST_F(ProcessorFaults, partner_core_that_is_forbidden_leaves_no_verdict_either) {
  begin("Atomic operations");
  const pid_t partner = threadOn(other);
  ASSERT_TRUE(moveThread(partner, core));
  const ReportedRun run = end();
  EXPECT_EQ(run.exitCode(), kNoVerdict);
  EXPECT_THAT(run.verdictsOf(step), ElementsAre("ERROR"));
  EXPECT_THAT(
      run.formatsWithout(step, "the partner core " + std::to_string(other) + " was taken away"),
      IsEmpty());
}

/// Elsewhere the registers hold pointers as well, and the worker would crash.
bool isVectorKernel(const ProgramText& text, std::uintptr_t place) {
  const auto next = text.upper_bound(place);
  return next != text.begin() &&
         std::prev(next)->second.symbol.find("VectorBatch") != std::string::npos;
}

TEST_F(ProcessorFaults, registers_that_flip_fail_the_core) {
  const ProgramText text = disassembled(TARVEX_PROCESSOR_PACKAGE);
  begin("Vectors");
  const pid_t tester = threadOn(core);
  const std::uintptr_t base = mappedAt(worker, kLibrary);
  unsigned int flips = 0;
  EXPECT_TRUE(eventually([&] {
    const StoppedThread thread(tester);
    if (isVectorKernel(text, thread.place() - base)) {
      thread.flipVectorRegisters(5 + 37 * flips++);
    }
    return hasEnded(worker, tester);
  })) << flips
      << " times flipped, and it went on";
  const ReportedRun run = end();
  EXPECT_EQ(run.exitCode(), kHardwareFailure);
  EXPECT_THAT(run.verdictsOf(step), ElementsAre("FAILED"));
  EXPECT_THAT(run.symptomsOf(step), ElementsAre(AnyOf("wrong-result", "cores-disagree")));
  EXPECT_THAT(run.formatsWithout(step, "core " + std::to_string(core)), IsEmpty());
}

/// An instruction that does nothing on the core, and what it is known by.
struct WrongInstruction {
  const char* test;
  const char* mnemonic;
  /// The check of it, or another that happened to be under way.
  std::vector<std::string> classes;
};

std::ostream& operator<<(std::ostream& stream, const WrongInstruction& wrong) {
  return stream << wrong.mnemonic << " in " << wrong.test;
}

class WrongInstructions : public ProcessorFaults,
                          public ::testing::WithParamInterface<WrongInstruction> {
 protected:
  /// Puts nothing in the place of all such instructions in the worker, or of as many as it lives to
  /// see: it may end at the first. @return how many
  int spoil(const std::string& mnemonic) const {
    std::uintptr_t base = 0;
    EXPECT_TRUE(eventually([&] { return (base = mappedAt(worker, kLibrary)) != 0; }));
    int count = 0;
    for (const auto& [start, function] : text()) {
      for (const Instruction& instruction : function.instructions) {
        if (instruction.text.starts_with(mnemonic)) {
          const auto place = base + instruction.address;
          count += writeText(worker, place, nothing(instruction.bytes.size())) ? 1 : 0;
        }
      }
    }
    return count;
  }

  static const ProgramText& text() {
    static const ProgramText all = disassembled(TARVEX_PROCESSOR_PACKAGE);
    return all;
  }
};

TEST_P(WrongInstructions, fail_the_core_soon_and_are_named) {
  const WrongInstruction& wrong = GetParam();
  text();
  begin(wrong.test);
  threadOn(core);
  ASSERT_GT(spoil(wrong.mnemonic), 0);
  const auto start = std::chrono::steady_clock::now();
  const ReportedRun run = end();
  // The front end's own end included; the checks alone are held to two seconds elsewhere.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(run.exitCode(), kHardwareFailure);
  EXPECT_THAT(run.verdictsOf(step), ElementsAre("FAILED"));
  EXPECT_THAT(run.symptomsOf(step), ElementsAre(AnyOf("wrong-result", "cores-disagree")));
  EXPECT_TRUE(std::any_of(wrong.classes.begin(), wrong.classes.end(), [&](const std::string& name) {
    return run.formatsWithout(step, name).empty();
  })) << run.accountOf(step, "text");
}

INSTANTIATE_TEST_SUITE_P(
    EachTest, WrongInstructions,
    ::testing::Values(WrongInstruction{"Integer arithmetic", "popcnt", {"POPCNT"}},
                      WrongInstruction{"Floating point", "divsd", {"IEEE 754", "double divide"}},
                      WrongInstruction{"Vectors", "pavgb", {"128-bit average 8-bit"}},
                      WrongInstruction{"Vectors", "vpavgb", {"average 8-bit"}},
                      WrongInstruction{"Cryptography", "aesenc ", {"AESENC"}},
                      WrongInstruction{"Transcendental functions", "f2xm1", {"F2XM1", "all bits"}},
                      WrongInstruction{"Block copy and fill", "rep movsb", {"REP MOVSB"}},
                      WrongInstruction{"Chain over cores", "aesdec ", {"chain"}},
                      WrongInstruction{"Matrices", "mulpd", {"matri"}}),
    [](const auto& each) {
      std::string name = each.param.mnemonic;
      std::erase(name, ' ');
      return name;
    });

}  // namespace
}  // namespace TarvexDiags::Tests
