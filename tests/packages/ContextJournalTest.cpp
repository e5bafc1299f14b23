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

constexpr unsigned int kSomeError = ContextJournal::kFailedCode + 1;

TEST(ContextJournal, trouble_behind_a_fault_goes_on_to_the_kit) {
  RecordingContext context{{}};
  const auto breakDown = [](RunJournal& journal) {
    journal.report(kSomeError, {});
    throw std::system_error(ENODEV, std::generic_category());
  };
  EXPECT_THROW(static_cast<void>(judged(context, "sdz", breakDown)), std::system_error);
  EXPECT_EQ(context.events().size(), 1U);
}

TEST(ContextJournal, fault_stands_when_the_rest_is_not_possible) {
  RecordingContext context{{}};
  const Verdict verdict = judged(context, "sdz", [](RunJournal& journal) {
    journal.report(kSomeError, {});
    throw NotSupported(Reason{"NO_MORE"});
  });
  EXPECT_EQ(verdict.kind(), Verdict::Kind::Failed);
}

TEST(ContextJournal, nothing_but_the_impossible_is_not_possible) {
  RecordingContext context{{}};
  const Verdict verdict =
      judged(context, "sdz", [](RunJournal&) { throw NotSupported(Reason{"NONE"}, "/none"); });
  EXPECT_EQ(verdict.kind(), Verdict::Kind::NotSupported);
  EXPECT_THAT(verdict.parameters(), testing::ElementsAre("NONE", " (/none)"));
}

}  // namespace
}  // namespace TarvexDiags::Common
