// What becomes of selected pairs, and with which settings.

#include <gtest/gtest.h>

#include <string>

#include "diagctl/run/RunPlan.h"
#include "diagctl/session/Selection.h"
#include "tests/diagctl/Samples.h"

namespace TarvexDiags::FrontEnd {
namespace {

TEST(Plan, only_enabled_pairs_are_requests) {
  const Catalogue catalogue = oneDeviceCatalogue();
  const RunPlan plan = makePlan(select(catalogue, {}), {});
  EXPECT_EQ(plan.requests.size(), 1U);
  EXPECT_EQ(plan.skipped.size(), 1U);
}

TEST(Plan, requests_begin_at_pass_1_and_carry_the_seed) {
  RunOptions options;
  options.passes = 5;
  options.seed = 42;
  const Catalogue catalogue = oneDeviceCatalogue();
  const RunPlan plan = makePlan(select(catalogue, {}), options);
  const std::string parameters = parametersOf(options);
  const Diag::DiagnosticSettings settings = settingsOf(plan.requests[0], options, parameters);
  EXPECT_EQ(settings.getPassCount(), 1);
  EXPECT_EQ(settings.getRequestedPassCount(), 5);
  EXPECT_STREQ(static_cast<const char*>(settings.getParameterPointer()),
               "Seed=42\nTellTime=TRUE\n");
  options.debugsWorkers = true;
  EXPECT_EQ(parametersOf(options), "Seed=42\nDebugWorker=TRUE\nTellTime=TRUE\n");
  options.tellsLog = true;
  EXPECT_EQ(parametersOf(options), "Seed=42\nDebugWorker=TRUE\nTellLog=TRUE\nTellTime=TRUE\n");
  options.tellsThroughput = true;
  EXPECT_EQ(parametersOf(options),
            "Seed=42\nDebugWorker=TRUE\nTellLog=TRUE\nTellTime=TRUE\nTellThroughput=TRUE\n");
}

}  // namespace
}  // namespace TarvexDiags::FrontEnd
