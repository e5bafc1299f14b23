// Every check of every test: good on a good core, and each wrong result found and named.

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ostream>
#include <set>
#include <string>
#include <thread>

#include "packages/common/RandomSequence.h"
#include "packages/common/RunJournal.h"
#include "packages/processor/Agreement.h"
#include "packages/processor/CoreHold.h"
#include "packages/processor/Operands.h"
#include "tests/packages/processor/ProcessorFixture.h"

namespace TarvexDiags::Processor {
namespace {

using std::chrono::milliseconds;

/// What to make of a result so that it is wrong: most are when any bit is flipped.
SpoilingSeam::Spoil spoilFor(const std::string& instructionClass) {
  struct Special {
    const char* part;
    std::uint64_t value;
  };
  // Results that are wrong only when the memory model, or chance, forbids them.
  static constexpr Special kSpecials[] = {
      {"store buffering", 0},
      {"message passing", std::uint64_t{1} << 32},
      {"load buffering", (std::uint64_t{1} << 32) | 1},
      {"coherent reads", (std::uint64_t{3} << 32) | 2},
      {"bytes", 100000},
      {"bias of bits", 4096},
      {"stuck", 4096},
  };
  for (const Special& special : kSpecials) {
    if (instructionClass.find(special.part) != std::string::npos) {
      return [value = special.value](std::span<std::uint64_t> results) {
        results[results.size() / 2] = value;
      };
    }
  }
  return [](std::span<std::uint64_t> results) { results[results.size() / 2] ^= 0x100; };
}

class ProcessorTestsTest : public ::testing::TestWithParam<int> {
 protected:
  static const ProcessorTest& test() { return processorTest(GetParam()); }
};

TEST_P(ProcessorTestsTest, good_core_passes_each_check_at_least_once) {
  RecordingObserver observer;
  Verifier verifier(kTestedCore, anyPartner(), 1, observer);
  const TestReport report = runTest(test(), verifier, milliseconds(100));
  EXPECT_TRUE(report.completed);
  EXPECT_GE(report.checkedResults, availableChecks(test()).size());
  EXPECT_EQ(observer.resultsChecked, report.checkedResults);
  EXPECT_DOUBLE_EQ(observer.lastProgress, 1.0);
  EXPECT_EQ(report.wrongResults, 0U);
  for (const WrongResult& wrong : observer.results) {
    ADD_FAILURE() << wrong.instructionClass << ": " << wrong.operands << ": expected "
                  << wrong.expected << ", found " << wrong.found;
  }
}

TEST_P(ProcessorTestsTest, wrong_result_of_each_instruction_class_is_found_and_named) {
  for (const Check& check : availableChecks(test())) {
    SCOPED_TRACE(check.instructionClass);
    RecordingObserver observer;
    SpoilingSeam seam(check.instructionClass, spoilFor(check.instructionClass));
    Verifier verifier(kTestedCore, anyPartner(), 1, observer, &seam);
    verifier.begin(check.instructionClass);
    check.run(verifier);
    ASSERT_TRUE(seam.spoiled);
    ASSERT_EQ(observer.results.size(), 1U);
    const WrongResult& wrong = observer.results[0];
    EXPECT_EQ(wrong.core, kTestedCore);
    EXPECT_EQ(wrong.instructionClass, check.instructionClass);
    EXPECT_FALSE(wrong.operands.empty());
    EXPECT_FALSE(wrong.expected.empty());
    EXPECT_NE(wrong.found, wrong.expected);
    EXPECT_EQ(verifier.wrongResults(), 1U);
  }
}

TEST_P(ProcessorTestsTest, same_seed_gives_the_same_results) {
  class Digest : public ResultSeam {
   public:
    void computed(const std::string& instructionClass, std::span<std::uint64_t> results) override {
      if (instructionClass.find("random") != 0 && instructionClass.find("store vis") != 0) {
        for (const std::uint64_t result : results) {
          digest = Common::mixed(digest ^ result);
        }
      }
    }
    std::uint64_t digest = 0;
  };
  const auto digestOf = [&](std::uint64_t seed) {
    RecordingObserver observer;
    Digest seam;
    Verifier verifier(kTestedCore, anyPartner(), seed, observer, &seam);
    runTest(test(), verifier, milliseconds(0));
    return seam.digest;
  };
  EXPECT_EQ(digestOf(3), digestOf(3));
}

TEST_P(ProcessorTestsTest, request_to_stop_is_obeyed) {
  RecordingObserver observer;
  observer.stop = true;
  Verifier verifier(kTestedCore, anyPartner(), 1, observer);
  EXPECT_FALSE(runTest(test(), verifier, std::chrono::hours(1)).completed);
}

TEST_P(ProcessorTestsTest, instruction_classes_are_named_once) {
  std::set<std::string> names;
  for (const Check& check : availableChecks(test())) {
    EXPECT_TRUE(names.insert(check.instructionClass).second) << check.instructionClass;
  }
  for (const std::string& name : missingChecks(test())) {
    EXPECT_TRUE(names.insert(name).second) << name;
  }
  EXPECT_FALSE(names.empty());
}

TEST_P(ProcessorTestsTest, checks_do_work_of_their_own) {
  std::set<void (*)(Verifier&)> works;
  for (const Check& check : test().checks()) {
    EXPECT_TRUE(works.insert(check.run).second) << check.instructionClass;
  }
}

INSTANTIATE_TEST_SUITE_P(AllTests, ProcessorTestsTest, ::testing::ValuesIn(testNumbers()));

TEST(VerifierTest, wrong_results_beyond_the_limit_are_counted_but_not_told) {
  RecordingObserver observer;
  SpoilingSeam seam("integer add", [](std::span<std::uint64_t> results) {
    for (std::uint64_t& result : results) {
      result ^= 1;
    }
  });
  Verifier verifier(kTestedCore, anyPartner(), 1, observer, &seam);
  const TestReport report = runTest(processorTest(Integer), verifier, milliseconds(0));
  EXPECT_GT(report.wrongResults, Verifier::kMaximumReported);
  EXPECT_EQ(observer.results.size(), Verifier::kMaximumReported);
}

TEST(VerifierTest, generator_that_repeats_itself_is_found) {
  for (const Check& check : availableChecks(processorTest(RandomGenerator))) {
    if (check.instructionClass.find("stuck") == std::string::npos) {
      continue;
    }
    class Stuck : public ResultSeam {
     public:
      void computed(const std::string&, std::span<std::uint64_t> results) override {
        if (results.size() > 1) {
          results[101] = results[100];
          results[200] = ~std::uint64_t{0};
        }
      }
    } seam;
    RecordingObserver observer;
    Verifier verifier(kTestedCore, -1, 1, observer, &seam);
    verifier.begin(check.instructionClass);
    check.run(verifier);
    ASSERT_EQ(observer.results.size(), 2U);
    EXPECT_EQ(observer.results[0].expected, "not the number drawn before");
    EXPECT_EQ(observer.results[1].expected, "neither all zeros nor all ones");
  }
}

TEST(PartnerTest, both_sides_run_at_the_same_time_again_and_again) {
  Partner partner(anyPartner());
  std::atomic<int> here{0};
  std::atomic<int> there{0};
  for (int round = 0; round < 200; ++round) {
    partner.together([&] { ++here; }, [&] { ++there; });
    ASSERT_EQ(here, round + 1);
    ASSERT_EQ(there, round + 1);
  }
}

template <class Kind>
void expectBothWaysToMake() {
  std::array<std::uint64_t, 4096> direct{};
  std::array<std::uint64_t, 4096> roundabout{};
  makeOperands<Kind, Direct>(Common::mixed(5), direct);
  makeOperands<Kind, Roundabout>(Common::mixed(5), roundabout);
  EXPECT_EQ(direct, roundabout);
  std::sort(direct.begin(), direct.end());
  EXPECT_GT(std::unique(direct.begin(), direct.end()) - direct.begin(), 2000) << "they vary";
}

TEST(OperandsTest, both_ways_to_make_operands_give_the_same) {
  expectBothWaysToMake<Operand::Random>();
  expectBothWaysToMake<Operand::Integer>();
  expectBothWaysToMake<Operand::Real<SoftDouble>>();
  expectBothWaysToMake<Operand::Real<SoftSingle>>();
  expectBothWaysToMake<Operand::Finite<std::uint64_t, true>>();
  expectBothWaysToMake<Operand::Finite<std::uint64_t, false>>();
  expectBothWaysToMake<Operand::Finite<std::uint32_t, false>>();
}

TEST(OperandsTest, words_are_mixed_as_everywhere_else) {
  EXPECT_EQ(mixedBy<Direct>(7), Common::mixed(7));
  EXPECT_EQ(mixedBy<Roundabout>(7), Common::mixed(7));
}

TEST(OperandsTest, batches_differ_from_one_another) {
  RecordingObserver observer;
  Verifier verifier(kTestedCore, -1, 1, observer);
  EXPECT_NE(drawWord(verifier), drawWord(verifier));
}

TEST(OperandsTest, wrong_operand_is_found_and_named) {
  RecordingObserver observer;
  SpoilingSeam seam(Verifier::kOperandMaking,
                    [](std::span<std::uint64_t> operands) { operands[3] ^= 1; });
  Verifier verifier(kTestedCore, -1, 1, observer, &seam);
  std::array<std::uint64_t, kBatchSize> operands{};
  drawOperands<Operand::Integer>(verifier, operands);
  ASSERT_EQ(observer.results.size(), 1U);
  EXPECT_EQ(observer.results[0].instructionClass, "operand making");
}

TEST(OperandsTest, counter_that_stands_still_is_found) {
  RecordingObserver observer;
  Verifier verifier(kTestedCore, -1, 1, observer);
  std::array<std::uint64_t, 2> operands = {1, 2};
  const std::array<std::uint64_t, 2> again = operands;
  const std::uint64_t counter = verifier.takeCounter(0);
  verifier.verifyOperands(operands, again, counter);
  ASSERT_EQ(observer.results.size(), 1U);
  EXPECT_EQ(observer.results[0].operands, "counter");
}

/// What cores make of the same work: the first is that of the caller, and each works twice.
struct Election {
  std::vector<std::uint64_t> results;
  std::uint64_t winner;
  std::size_t undecided;  ///< how many cores are told to disagree
};

std::ostream& operator<<(std::ostream& stream, const Election& election) {
  for (const std::uint64_t result : election.results) {
    stream << result << ' ';
  }
  return stream << "make " << election.winner;
}

class AgreementTest : public ::testing::TestWithParam<Election> {
 protected:
  void SetUp() override {
    calls = 0;
    results.assign(GetParam().results.begin() + 1, GetParam().results.end());
  }

  static std::uint64_t work(std::uint64_t) { return results.at(calls++ / 2); }

  static inline std::size_t calls = 0;
  static inline std::vector<std::uint64_t> results;
};

TEST_P(AgreementTest, is_what_more_than_half_of_the_cores_compute) {
  // Anybody may vote twice here: the work tells them apart by their turns.
  Agreement agreement(kTestedCore, std::vector<int>(results.size(), anyPartner()));
  const std::uint64_t own = GetParam().results.front();
  const std::vector<Agreement::Vote> votes = agreement.vote(work, 5, {own, own});
  EXPECT_EQ(agreement.resultOf(work, 5), GetParam().winner);
  EXPECT_EQ(votes.size(), GetParam().undecided);
  EXPECT_TRUE(votes.empty() || (votes[0].core == kTestedCore && votes[0].result == own));
}

INSTANTIATE_TEST_SUITE_P(Votes, AgreementTest,
                         ::testing::Values(Election{{1}, 1, 0}, Election{{1, 1}, 1, 0},
                                           Election{{1, 2}, 1, 2}, Election{{1, 2, 2}, 2, 0},
                                           Election{{2, 1, 2}, 2, 0}, Election{{1, 2, 3}, 1, 3},
                                           Election{{1, 1, 2, 2}, 1, 4},
                                           Election{{1, 2, 2, 2}, 2, 0},
                                           Election{{1, 1, 2, 2, 3}, 1, 5}));

TEST(AgreementVoteTest, core_that_contradicts_itself_or_is_gone_has_none) {
  static std::uint64_t runs = 0;
  runs = 0;
  Agreement agreement(kTestedCore, {Common::allowedCpus().back(), 60000});
  const Agreement::Work work = [](std::uint64_t seed) { return seed + runs++; };
  EXPECT_TRUE(agreement.vote(work, 5, {8, 8}).empty());
  EXPECT_EQ(agreement.resultOf(work, 5), 8U);
}

TEST(AgreementVoteTest, is_not_the_callers_own_that_contradicts_itself) {
  Agreement agreement(kTestedCore, {anyPartner()});
  const Agreement::Work work = [](std::uint64_t seed) { return seed; };
  EXPECT_TRUE(agreement.vote(work, 5, {5, 8}).empty());
  EXPECT_EQ(agreement.resultOf(work, 5), 5U);
}

TEST(AgreedResultTest, two_cores_that_differ_are_both_named_and_neither_fails) {
  const std::vector<int> allowed = Common::allowedCpus();
  if (allowed.size() < 2) {
    GTEST_SKIP() << "one CPU alone";
  }
  static int odd = 0;
  odd = allowed.front();
  const Agreement::Work work = [](std::uint64_t seed) {
    return sched_getcpu() == odd ? seed + 1 : seed;
  };
  for (const auto& [own, other] :
       {std::pair(allowed.front(), allowed.back()), std::pair(allowed.back(), allowed.front())}) {
    RecordingObserver observer;
    Verifier verifier(own, -1, 1, observer);
    verifier.setVoters({other});
    const CoreHold hold(own);
    verifier.begin("agreed");
    verifier.verifyAgreed(work, 5);
    verifier.verifyAgreed(work, 5);
    EXPECT_TRUE(observer.results.empty());
    ASSERT_EQ(observer.disagreements.size(), 1U) << "told once";
    EXPECT_EQ(observer.disagreements[0].instructionClass, "agreed");
    EXPECT_EQ(observer.disagreements[0].seed, 5U);
    ASSERT_EQ(observer.disagreements[0].votes.size(), 2U);
    EXPECT_EQ(observer.disagreements[0].votes[0].core, own);
    EXPECT_EQ(observer.disagreements[0].votes[0].result, own == odd ? 6U : 5U);
    EXPECT_EQ(observer.disagreements[0].votes[1].core, other);
    EXPECT_EQ(observer.disagreements[0].votes[1].result, own == odd ? 5U : 6U);
  }
}

TEST(AgreedResultTest, core_that_contradicts_itself_is_wrong_whatever_others_say) {
  static std::uint64_t runs = 0;
  const Agreement::Work work = [](std::uint64_t seed) { return seed + (runs++ == 0 ? 1 : 0); };
  for (const std::vector<int>& voters : {std::vector<int>(), std::vector<int>{anyPartner()}}) {
    runs = 0;
    RecordingObserver observer;
    Verifier verifier(kTestedCore, -1, 1, observer);
    verifier.setVoters(voters);
    verifier.begin("agreed");
    verifier.verifyAgreed(work, 5);
    EXPECT_EQ(observer.results.size(), 1U);
    EXPECT_TRUE(observer.disagreements.empty());
  }
}

TEST(AgreedResultTest, is_looked_for_once) {
  static int runs = 0;
  runs = 0;
  RecordingObserver observer;
  Verifier verifier(kTestedCore, -1, 1, observer);
  verifier.setVoters({anyPartner()});
  const Agreement::Work work = [](std::uint64_t seed) {
    ++runs;
    return seed * 3;
  };
  verifier.verifyAgreed(work, 2);
  EXPECT_EQ(runs, 4) << "twice here and twice there";
  verifier.verifyAgreed(work, 2);
  EXPECT_EQ(runs, 5);
  EXPECT_TRUE(observer.results.empty());
}

/// A CPU of this process that is not the given one; -1 when there is none.
int otherThan(int cpu) {
  for (const int other : Common::allowedCpus()) {
    if (other != cpu) {
      return other;
    }
  }
  return -1;
}

TEST(CoreHoldTest, thread_that_is_moved_to_another_core_has_lost_its_own) {
  const int core = Common::allowedCpus().front();
  const int other = otherThan(core);
  if (other < 0) {
    GTEST_SKIP() << "one CPU alone";
  }
  const CoreHold hold(core);
  hold.require();
  hold.requireAlone();
  ASSERT_TRUE(Common::allowThisThread({core, other}));
  EXPECT_THROW(hold.requireAlone(), CoreTakenAway) << "it might have been elsewhere";
  ASSERT_TRUE(Common::pinThisThread(other));
  EXPECT_THROW(hold.require(), CoreTakenAway);
}

TEST(CoreHoldTest, core_that_may_not_be_used_is_not_held) {
  EXPECT_THROW(CoreHold(60000), Common::NotSupported);
}

TEST(PartnerTest, partner_that_lost_its_core_is_told_once_both_are_done) {
  const int core = Common::allowedCpus().front();
  const int other = otherThan(core);
  if (other < 0) {
    GTEST_SKIP() << "one CPU alone";
  }
  Partner partner(core);
  partner.together([] {}, [] {});
  bool done = false;
  EXPECT_THROW(partner.together([&] { done = true; }, [&] { Common::pinThisThread(other); }),
               CoreTakenAway);
  EXPECT_TRUE(done);
}

TEST(PartnerTest, partner_on_a_core_that_is_gone_is_told_with_the_first_work) {
  Partner partner(60000);
  EXPECT_THROW(partner.together([] {}, [] {}), CoreTakenAway);
}

TEST(VerifierTest, results_that_another_core_computed_are_not_counted) {
  const int core = Common::allowedCpus().front();
  const int other = otherThan(core);
  if (other < 0) {
    GTEST_SKIP() << "one CPU alone";
  }
  RecordingObserver observer;
  Verifier verifier(core, -1, 1, observer);
  const CoreHold hold(core);
  verifier.requireHold(hold);
  std::array<std::uint64_t, 1> found = {1};
  const std::array<std::uint64_t, 1> expected = {2};
  ASSERT_TRUE(Common::pinThisThread(other));
  const auto noOperands = [](std::size_t) { return std::string(); };
  EXPECT_THROW(verifier.verify(found, expected, noOperands), CoreTakenAway);
  EXPECT_TRUE(observer.results.empty());
  EXPECT_EQ(verifier.checkedResults(), 0U);
}

/// Keeps how long each rest was to last, and how long the work before it lasted.
class RestingObserver : public RecordingObserver {
 public:
  void rest(milliseconds duration) override {
    rests.push_back(duration);
    works.push_back(std::chrono::steady_clock::now() - m_begin);
    RecordingObserver::rest(duration);
    m_begin = std::chrono::steady_clock::now();
  }

  std::vector<milliseconds> rests;
  std::vector<std::chrono::nanoseconds> works;

 private:
  std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

TEST(RunTest, test_that_rests_does_so_as_long_as_it_works) {
  RestingObserver observer;
  Verifier verifier(kTestedCore, anyPartner(), 1, observer);
  const TestReport report = runTest(processorTest(LoadAndRest), verifier, milliseconds(300));
  constexpr std::array turns{milliseconds(5), milliseconds(20), milliseconds(80),
                             milliseconds(160)};
  // A busy machine may make a turn longer than it is meant to be.
  ASSERT_FALSE(observer.rests.empty());
  for (std::size_t turn = 0; turn < observer.rests.size(); ++turn) {
    EXPECT_EQ(observer.rests[turn], turns[turn % turns.size()]) << turn;
    EXPECT_GE(observer.works[turn], observer.rests[turn]) << turn;
  }
  const double rested = std::chrono::duration<double>(observer.rested).count();
  EXPECT_LE(report.verifiedSeconds + rested, report.seconds);
}

TEST(RunTest, test_goes_on_until_its_time_is_over_and_tells_how_much_of_it_was_verified_work) {
  RecordingObserver observer;
  Verifier verifier(kTestedCore, anyPartner(), 1, observer);
  const TestReport report = runTest(processorTest(Integer), verifier, milliseconds(300));
  EXPECT_GE(report.seconds, 0.3);
  EXPECT_GT(report.verifiedSeconds, 0);
  EXPECT_LE(report.verifiedSeconds, report.seconds);
}

}  // namespace
}  // namespace TarvexDiags::Processor
