// How long a set of tests will take.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/EventManager.h"
#include "tests/support/ControllerTest.h"

namespace TarvexDiags::DiagCtrl {
namespace {

using Diag::DiagnosticResult;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Pass;
using Scripted::Script;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::PackageConfig;
using enum DiagnosticController::errorCode;

class EstimationTest : public ControllerTest {
 protected:
  void start() {
    harness.trace();
    harness.start();
  }

  /// Estimates tests of ALPHA on its first device.
  Code estimate(const std::vector<int>& tests) {
    const std::vector<int> ones(tests.size(), 1);
    return controller().runEstimation(ones, ones, tests, ids, settings);
  }

  /// A result in every client's queue, as if a request had just given it.
  void deliver(unsigned int request, int estimatedTime) {
    auto result = std::make_unique<DiagnosticResult>();
    result->setTestRequestId(request);
    result->setEstimatedTime(estimatedTime);
    EventManager::getInstance()->pushResultInAllResultQueue({result.release()});
  }

  struct Answer {
    bool served;
    int total;
    std::vector<int> times;
  };
  Answer ask(const std::vector<int>& requests, std::vector<int> times = {}) {
    Answer answer{true, 77, std::move(times)};
    answer.served = controller().getEstimatedTime(requests, answer.times, answer.total);
    return answer;
  }
  void expectNoEstimate(const Answer& answer, const std::vector<int>& times) {
    EXPECT_TRUE(answer.served);
    EXPECT_EQ(answer.total, -1);
    EXPECT_EQ(answer.times, times);
  }

  Script& alpha = harness.addPackage("ALPHA", PackageConfig(3).estimatedTime(3, -1));
  std::vector<int> ids;
  Diag::DiagnosticSettings settings = ControllerHarness::settings(7);
};

// ---- Queueing for an estimate ----------------------------------------------------------------

TEST_F(EstimationTest, each_test_is_queued_for_one_pass_with_the_clients_own_settings_changed) {
  start();
  alpha.holdRuns();
  ids = {42};
  EXPECT_EQ(estimate({2, 1}), SUCCESS);
  EXPECT_THAT(ids, ElementsAre(42, 1, 2)) << "appended";
  EXPECT_EQ(harness.phase(), DiagControllerStatus::ACTIVE);
  alpha.releaseRuns();
  EXPECT_EQ(settings.getHaltOnError(), 1);
  EXPECT_EQ(settings.getRequestedPassCount(), 1);
  EXPECT_EQ(settings.getPassCount(), 1);
  ASSERT_TRUE(harness.awaitEnd(1) && harness.awaitEnd(2));
  const auto runs = alpha.calls(Call::RunEnter);
  ASSERT_THAT(runs, SizeIs(2));
  EXPECT_THAT(runs[0].tests, ElementsAre(2));
  EXPECT_THAT(runs[1].tests, ElementsAre(1));
  EXPECT_FALSE(runs[0].estimation) << "no mode of the settings is set";
}

TEST_F(EstimationTest, a_pass_count_of_nothing_is_left_alone_so_that_there_are_two_runs) {
  start();
  settings.setPassCount(0);
  settings.setEstimationMode(true);
  EXPECT_EQ(estimate({1}), SUCCESS);
  ASSERT_TRUE(harness.awaitEnd(1));
  ASSERT_THAT(alpha.calls(Call::RunEnter), SizeIs(2));
  EXPECT_TRUE(alpha.calls(Call::RunEnter)[0].estimation) << "what the client sets passes through";
}

TEST_F(EstimationTest, nothing_to_estimate_is_a_success_that_changes_nothing) {
  start();
  EXPECT_EQ(estimate({}), SUCCESS);
  EXPECT_THAT(ids, IsEmpty());
  EXPECT_EQ(settings.getRequestedPassCount(), 7);
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
}

TEST_F(EstimationTest, shorter_vectors_throw_and_what_was_queued_stays) {
  start();
  EXPECT_THROW(controller().runEstimation({1, 1}, {1, 1}, {1}, ids, settings), std::out_of_range);
  EXPECT_THAT(ids, ElementsAre(1));
  EXPECT_TRUE(harness.awaitEnd(1));
}

TEST_F(EstimationTest, a_shorter_vector_of_devices_throws_as_well) {
  start();
  EXPECT_THROW(controller().runEstimation({1}, {}, {1}, ids, settings), std::out_of_range);
  EXPECT_THAT(ids, IsEmpty());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
}

TEST_F(EstimationTest, a_first_test_that_fails_finds_nothing_to_abort) {
  start();
  EXPECT_EQ(controller().runEstimation({9, 1}, {1, 1}, {1, 1}, ids, settings), OBJECT_NOT_FOUND);
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("OBJECT_NOT_FOUND E 0", "INCORRECT_PHASE E 0",
                                                "UNABLE_TO_ABORT_TESTS E 0"));
  EXPECT_TRUE(trace().contains("UNABLE_TO_ABORT_TESTS: "));
  EXPECT_THAT(ids, IsEmpty());
  EXPECT_EQ(harness.phase(), DiagControllerStatus::IDLE);
}

TEST_F(EstimationTest, a_later_test_that_fails_aborts_the_earlier_ones_and_their_ids_stay) {
  start();
  alpha.holdRuns();
  EXPECT_EQ(controller().runEstimation({1, 1, 1}, {1, 9, 1}, {1, 1, 1}, ids, settings),
            DEVICE_OBJECT_NOT_FOUND);
  EXPECT_THAT(ids, ElementsAre(1));
  EXPECT_TRUE(harness.awaitCtrlEvent("TEST_REQUEST_ABORTED W 1") ||
              harness.awaitCtrlEvent("TEST_REQUEST_ABORTED I 1"));
  EXPECT_THAT(harness.ctrlEvents(), ::testing::Contains("DEVICE_OBJECT_NOT_FOUND E 0"));
  EXPECT_THAT(harness.ctrlEvents(),
              ::testing::Not(::testing::Contains("UNABLE_TO_ABORT_TESTS E 0")));
}

TEST_F(EstimationTest, bad_settings_fail_at_the_first_test_though_passes_are_overwritten) {
  start();
  settings.setRequestedPassCount(0);
  settings.setRunTime(0);
  EXPECT_EQ(estimate({1}), INVALID_RUN_TIME);
}

TEST_F(EstimationTest, an_active_controller_estimates_nothing) {
  start();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  EXPECT_EQ(estimate({1}), INCORRECT_PHASE);
  EXPECT_TRUE(trace().contains("INCORRECT_PHASE: "));
  EXPECT_THAT(harness.requestIds(), ElementsAre(1U));
  EXPECT_EQ(settings.getRequestedPassCount(), 7);
}

// ---- Collecting -----------------------------------------------------------------------------

TEST_F(EstimationTest, figures_of_the_package_count_and_the_configured_one_stands_in_for_none) {
  alpha.planPasses([](const CallRecord& run) {
    Pass pass;
    pass.results[0].estimatedTime = run.tests[0] == 1 ? 12 : 0;
    return pass;
  });
  start();
  alpha.holdRuns();
  ASSERT_EQ(estimate({1, 2}), SUCCESS);
  EXPECT_FALSE(ask(ids).served) << "while the tests run";
  EXPECT_THAT(harness.ctrlEvents(), ::testing::Contains("INCORRECT_PHASE E 0"));
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitIdle());
  const Answer answer = ask(ids, {5});
  EXPECT_TRUE(answer.served);
  EXPECT_THAT(answer.times, ElementsAre(5, 12, 20)) << "appended, in the order of the results";
  EXPECT_EQ(answer.total, 37) << "the sum of all that the vector holds";
  EXPECT_THAT(harness.results(), IsEmpty()) << "the client's queue was emptied";
}

TEST_F(EstimationTest, a_configured_figure_of_no_estimate_ends_the_collection) {
  start();
  ASSERT_EQ(estimate({3}), SUCCESS);
  ASSERT_TRUE(harness.awaitIdle());
  deliver(1, 4);
  expectNoEstimate(ask(ids), {-1});
}

TEST_F(EstimationTest, a_request_without_a_list_of_tests_has_no_configured_figure) {
  start();
  harness.queueAllTests("ALPHA", 1);
  ASSERT_TRUE(harness.awaitIdle());
  expectNoEstimate(ask({1}), {});
  EXPECT_TRUE(trace().contains("DiagnosticController::getEstimatedTime- Unknown Exception"));
  EXPECT_THAT(harness.ctrlEventsOf(0), IsEmpty());
}

TEST_F(EstimationTest, a_test_that_is_not_on_offer_has_no_configured_figure) {
  start();
  const unsigned long id = harness.queue("ALPHA", 1, {99, 1});
  ASSERT_TRUE(harness.awaitEnd(id) && harness.awaitIdle());
  expectNoEstimate(ask({1}), {});
  EXPECT_THAT(harness.ctrlEventsOf(0), ElementsAre("TEST_OBJECT_NOT_FOUND E"));
}

TEST_F(EstimationTest, a_request_that_is_unknown_has_no_configured_figure) {
  start();
  deliver(55, 3);
  deliver(77, 0);
  deliver(78, 4);
  expectNoEstimate(ask({1, 2, 3}), {3});
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("REQUEST_OBJECT_NOT_FOUND E 0"));
}

TEST_F(EstimationTest, no_ids_at_all_is_told_in_the_trace_alone_in_any_phase) {
  expectNoEstimate(ask({}), {});
  start();
  alpha.holdRuns();
  harness.queue("ALPHA", 1, {1});
  expectNoEstimate(ask({}), {});
  EXPECT_EQ(
      trace().count("DiagnosticController::getEstimatedTime- invalid size for apTestRequestIdVec"),
      1U);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST_F(EstimationTest, with_too_few_results_there_is_no_estimate_and_they_are_gone) {
  start();
  deliver(1, 10);
  expectNoEstimate(ask({1, 2}), {});
  EXPECT_THAT(harness.results(), IsEmpty());
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST_F(EstimationTest, more_results_than_ids_all_count_and_ids_are_not_looked_at) {
  start();
  for (const int figure : {30, 20, 10}) {
    deliver(99, figure);
  }
  const Answer answer = ask({-5});
  EXPECT_THAT(answer.times, ElementsAre(30, 20, 10));
  EXPECT_EQ(answer.total, 60);
}

TEST_F(EstimationTest, a_figure_of_no_estimate_is_appended_and_ends_the_collection) {
  start();
  for (const int figure : {30, -1, 10}) {
    deliver(99, figure);
  }
  expectNoEstimate(ask({1}), {30, -1});
}

TEST_F(EstimationTest, results_are_taken_from_the_first_registration_whoever_made_it) {
  harness.initialize();
  CallBackObject& other = harness.callBack();
  unsigned long firstId = 0;
  ASSERT_EQ(controller().registerForDiagResults(&other, firstId), SUCCESS);
  harness.registerForAll();
  harness.enumerate();
  deliver(99, 8);
  EXPECT_EQ(ask({1}).total, 8);
  EXPECT_THAT(harness.results(), SizeIs(1)) << "the later registration keeps its copy";
  ResultVector* left = nullptr;
  ASSERT_EQ(controller().getDiagnosticResults(static_cast<long>(firstId), left), SUCCESS);
  EXPECT_THAT(*std::unique_ptr<ResultVector>(left), IsEmpty());
}

TEST_F(EstimationTest, without_a_registration_there_is_no_estimate_and_nothing_is_told) {
  harness.trace();
  harness.initialize();
  unsigned long id = 0;
  ASSERT_EQ(controller().registerForDiagCtrlEvents(&harness.callBack(), id), SUCCESS);
  harness.enumerate();
  expectNoEstimate(ask({1}), {});
  EXPECT_FALSE(trace().contains("Unknown Exception"));
  CtrlEventVector* events = nullptr;
  ASSERT_EQ(controller().getDiagnosticCtrlEvents(static_cast<long>(id), events), SUCCESS);
  EXPECT_THAT(*std::unique_ptr<CtrlEventVector>(events), IsEmpty());
}

// ---- Sums -----------------------------------------------------------------------------------

TEST_F(EstimationTest, a_total_is_a_plain_sum) {
  start();
  EXPECT_EQ(controller().getToTalTimeRemaining({}, {}), 0);
  EXPECT_EQ(controller().getToTalTimeRemaining({1}, {5, -1, 7}), 11);
  constexpr int largest = std::numeric_limits<int>::max();
  EXPECT_EQ(controller().getToTalTimeRemaining({}, {largest, 1}), std::numeric_limits<int>::min());
}

TEST_F(EstimationTest, the_remaining_time_is_never_told) {
  std::vector<int> times{1};
  int total = 77;
  EXPECT_FALSE(controller().getTimeRemaining({1}, times, total));
  start();
  EXPECT_FALSE(controller().getTimeRemaining({1}, times, total));
  EXPECT_THAT(times, ElementsAre(1));
  EXPECT_EQ(total, 77);
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
  EXPECT_FALSE(trace().contains("getTimeRemaining")) << "not even the trace is touched";
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
