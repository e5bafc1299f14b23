// A run in this process, with the judge held while it tells: what others hear meanwhile.

#include <gtest/gtest.h>

#include <filesystem>
#include <variant>

#include "diagctl/run/Runner.h"
#include "tests/diagctl/Workplace.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::FrontEnd {
namespace {

// The package tells a flood and then waits; of the flood the judge tells one event for as long as
// nobody has carried out what a person wants.
TEST(Runner, hears_a_person_while_what_came_before_is_still_told) {
  DiagctlTest::Workplace place;
  place.addPackage(
      "FLOOD",
      {{.name = "Floods", .milliseconds = 60'000, .more = "Raises=warning\nEvent=8\nRepeats=20"}},
      {{"Four", "bus/four"}});
  Session session(place.controlFile(), "en", {});
  RunOptions options;
  options.watch.settings.sources.clear();
  const RunPlan plan = makePlan(select(session.catalogue(), {}), options);
  ASSERT_EQ(plan.requests.size(), 1U);
  RunRequests wishes;
  bool isHeld = false;
  bool isHeard = false;
  const auto tell = [&](const RunEvent& event) {
    const auto* const message = std::get_if<StepMessage>(&event.body);
    if (!isHeld && message != nullptr && message->severity == Severity::Warning) {
      isHeld = true;
      wishes.abortAll = true;
      isHeard = TestSupport::eventually(
          [&] { return std::filesystem::exists(place.packageFile("FLOOD") + ".aborted"); });
      wishes.abortAll = true;  // or nothing would end where it was not heard
    }
  };
  Runner runner(session, plan, tell, wishes);
  const RunRecord& record = runner.run({});
  EXPECT_TRUE(isHeld);
  EXPECT_TRUE(isHeard);
  ASSERT_EQ(record.steps().size(), 1U);
  EXPECT_EQ(record.steps().front()->outcome(), StepRecord::Outcome::Aborted);
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
