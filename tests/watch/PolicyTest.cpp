#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <stdexcept>
#include <string>

#include "watch/Policy.h"

namespace TarvexDiags::Watching {
namespace {

using std::chrono::hours;
using ::testing::HasSubstr;

Finding of(Kind kind, std::uint64_t count = 1, const std::string& part = "DIMM_A1",
           const std::string& place = "") {
  Finding finding;
  finding.kind = kind;
  finding.device = "mc:0";
  finding.part = part;
  finding.count = count;
  finding.place = place;
  return finding;
}

std::string reasonFor(Policy& policy, const std::string& key, const std::string& value) {
  try {
    policy.set(key, value);
  } catch (const std::invalid_argument& refusal) {
    return refusal.what();
  }
  return "";
}

TEST(PolicyTest, has_a_rule_and_a_name_for_each_kind) {
  const Policy policy;
  std::set<std::string> names;
  for (const Kind kind : allKinds()) {
    EXPECT_NO_THROW(policy[kind]);
    EXPECT_EQ(kindNamed(nameOf(kind)), kind);
    names.insert(nameOf(kind));
  }
  EXPECT_EQ(names.size(), allKinds().size());
  EXPECT_EQ(policy.lines().size(), 5 * allKinds().size());
}

TEST(PolicyTest, takes_back_what_it_shows) {
  Policy policy;
  policy.set("memory-corrected.failure-count", "3");
  Policy other;
  for (const auto& [key, value] : policy.lines()) {
    EXPECT_EQ(reasonFor(other, key, value), "") << key;
  }
  EXPECT_EQ(other.lines(), policy.lines());
}

TEST(PolicyTest, names_the_key_and_what_it_may_be) {
  Policy policy;
  EXPECT_THAT(reasonFor(policy, "memory", "failure"), HasSubstr("memory is no kind"));
  EXPECT_THAT(reasonFor(policy, "memory-corrected", "bad"),
              HasSubstr("information, warning, failure or trouble, and not \"bad\""));
  EXPECT_THAT(reasonFor(policy, "memory-corrected.failure-count", "-1"), HasSubstr("a number"));
  EXPECT_THAT(reasonFor(policy, "memory-corrected.failure-count", ""), HasSubstr("a number"));
  EXPECT_THAT(reasonFor(policy, "memory-corrected.count", "1"), HasSubstr("failure-places"));
  EXPECT_EQ(policy.lines(), Policy().lines());
}

TEST(JudgeTest, fails_what_nothing_corrected_and_warns_of_the_rest) {
  Judge judge{Policy()};
  for (const Kind kind : {Kind::MemoryUncorrected, Kind::MachineCheckUncorrected, Kind::PcieFatal,
                          Kind::MemoryFailure, Kind::DiskMedium, Kind::NvmeWarning}) {
    EXPECT_EQ(judge.judge(of(kind)), Severity::Failure) << nameOf(kind);
  }
  EXPECT_EQ(judge.judge(of(Kind::Throttled)), Severity::Warning);
  EXPECT_EQ(judge.judge(of(Kind::HungTask)), Severity::Trouble);
  EXPECT_EQ(judge.judge(of(Kind::DiskCommandFailed)), Severity::Information);
}

TEST(JudgeTest, fails_a_module_at_its_tenth_corrected_error) {
  Judge judge{Policy()};
  EXPECT_EQ(judge.judge(of(Kind::MemoryCorrected, 9)), Severity::Warning);
  EXPECT_EQ(judge.judge(of(Kind::MemoryCorrected, 9, "DIMM_A2")), Severity::Warning);
  EXPECT_EQ(judge.judge(of(Kind::MemoryCorrected)), Severity::Failure);
}

TEST(JudgeTest, fails_a_module_at_the_third_address) {
  Judge judge{Policy()};
  EXPECT_EQ(judge.judge(of(Kind::MemoryCorrected, 1, "DIMM_A1", "1000")), Severity::Warning);
  EXPECT_EQ(judge.judge(of(Kind::MemoryCorrected, 1, "DIMM_A1", "1000")), Severity::Warning);
  EXPECT_EQ(judge.judge(of(Kind::MemoryCorrected, 1, "DIMM_A1", "2000")), Severity::Warning);
  EXPECT_EQ(judge.judge(of(Kind::MemoryCorrected, 1, "DIMM_A1", "3000")), Severity::Failure);
}

TEST(JudgeTest, counts_a_watch_without_a_run_by_the_day) {
  Judge judge{Policy(), Judge::Span::Day};
  Finding finding = of(Kind::MemoryCorrected, 40);
  EXPECT_EQ(judge.judge(finding), Severity::Warning);
  finding.time += hours(25);
  EXPECT_EQ(judge.judge(finding), Severity::Warning);
  finding.time += hours(1);
  EXPECT_EQ(judge.judge(finding), Severity::Failure);
}

TEST(JudgeTest, fails_more_than_a_hundred_corrected_errors_of_a_link) {
  Judge judge{Policy()};
  EXPECT_EQ(judge.judge(of(Kind::PcieCorrectable, 100)), Severity::Warning);
  EXPECT_EQ(judge.judge(of(Kind::PcieCorrectable, 1)), Severity::Failure);
}

TEST(JudgeTest, fails_the_codes_that_are_listed) {
  Policy policy;
  Judge shipped(policy);
  EXPECT_EQ(shipped.judge(of(Kind::AcceleratorError, 1, "79")), Severity::Failure);
  EXPECT_EQ(shipped.judge(of(Kind::AcceleratorError, 1, "13")), Severity::Warning);
  policy.set("accelerator-error.failure-parts", "13, 14");
  Judge changed(policy);
  EXPECT_EQ(changed.judge(of(Kind::AcceleratorError, 1, "79")), Severity::Warning);
  EXPECT_EQ(changed.judge(of(Kind::AcceleratorError, 1, "14")), Severity::Failure);
}

}  // namespace
}  // namespace TarvexDiags::Watching
