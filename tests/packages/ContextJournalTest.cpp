// What becomes of a test when its engine throws.

#include <cerrno>
#include <system_error>

#include "packagekit/testing/RecordingContext.h"
#include "packages/common/ContextJournal.h"
#include "tests/support/TestPrecompiled.h"

namespace TarvexDiags::Common {
namespace {

using PackageKit::Verdict;
using PackageKit::Testing::RecordingContext;

constexpr unsigned int kSomeWarning = 101;
constexpr unsigned int kSomeError = 201;

TEST(ContextJournal, trouble_behind_a_fault_goes_on_to_the_kit) {
  RecordingContext context{{}};
  const auto breakDown = [](RunJournal& journal) {
    journal.report(kSomeError, {});
    throw std::system_error(ENODEV, std::generic_category());
  };
  EXPECT_THROW(static_cast<void>(judged(context, breakDown)), std::system_error);
  EXPECT_EQ(context.events().size(), 1U);
}

TEST(ContextJournal, fault_stands_when_the_rest_is_not_possible) {
  RecordingContext context{{}};
  const Verdict verdict = judged(context, [](RunJournal& journal) {
    journal.report(kSomeError, {});
    throw NotSupported(Reason{"NO_MORE"});
  });
  EXPECT_EQ(verdict.kind(), Verdict::Kind::Failed);
}

TEST(ContextJournal, verdict_names_the_first_finding_of_the_weightiest_kind) {
  RecordingContext context{{}};
  const Verdict verdict = judged(context, [](RunJournal& journal) {
    journal.report(kSomeWarning, {"slow"});
    journal.report(kSomeError, {"block 3"});
    journal.report(kSomeError + 1, {"block 4"});
  });
  EXPECT_EQ(verdict.kind(), Verdict::Kind::Failed);
  EXPECT_EQ(verdict.code(), kSomeError);
  EXPECT_THAT(verdict.parameters(), testing::ElementsAre("block 3"));
  const Verdict warned = judged(context, [](RunJournal& journal) {
    journal.report(kSomeWarning, {"slow"});
    journal.report(kSomeWarning, {"slower"});
  });
  EXPECT_EQ(warned.kind(), Verdict::Kind::Unusual);
  EXPECT_THAT(warned.parameters(), testing::ElementsAre("slow"));
}

TEST(ContextJournal, nothing_but_the_impossible_is_not_possible) {
  RecordingContext context{{}};
  const Verdict verdict =
      judged(context, [](RunJournal&) { throw NotSupported(Reason{"NONE"}, "/none"); });
  EXPECT_EQ(verdict.kind(), Verdict::Kind::NotSupported);
  EXPECT_THAT(verdict.parameters(), testing::ElementsAre("NONE", " (/none)"));
}

}  // namespace
}  // namespace TarvexDiags::Common
