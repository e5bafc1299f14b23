// Requests: queueing, asking and ending them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "DiagCtrl/Client.h"
#include "tests/controller/client/ClientFixture.h"

namespace TarvexDiags::ClientTests {
namespace {

using Diag::DiagnosticResult;
using DiagCtrl::Client;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagnosticController;
using DiagCtrl::PartlyQueued;
using DiagCtrl::settingsFor;
using DiagCtrl::TestRequest;
using Scripted::Call;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::PackageConfig;
using enum DiagnosticController::errorCode;

class ClientRequestTest : public ClientTest {
 protected:
  ClientRequestTest() : alpha(harness.addPackage("ALPHA", PackageConfig(2))) {
    alpha.setDevices(1).everyPass({}).clearLog();  // a script lives as long as the process
  }

  std::vector<int> testsOfLastRun() const { return alpha.calls(Call::RunEnter).back().tests; }

  Scripted::Script& alpha;
};

TEST_F(ClientRequestTest, fills_settings_from_passes_and_seconds) {
  const Diag::DiagnosticSettings settings = settingsFor(3, 2min);
  EXPECT_EQ(settings.getRequestedPassCount(), 3);
  EXPECT_EQ(settings.getRunTime(), 120U);
  EXPECT_EQ(settingsFor(1, -5s).getRunTime(), 0U);
}

TEST_F(ClientRequestTest, queues_a_package_a_device_or_single_tests) {
  alpha.setDevices(2);
  startAndEnumerate();
  const auto whole = client->queue(1, settingsFor(1, 1h));
  EXPECT_EQ(whole.size(), 2U);
  EXPECT_TRUE(client->waitUntilEnded(whole, kLong));
  EXPECT_THAT(testsOfLastRun(), ElementsAre(1, 2));
  EXPECT_TRUE(client->waitUntilEnded({client->queue(1, 2, settingsFor(1, 1h))}, kLong));
  EXPECT_THAT(testsOfLastRun(), ElementsAre(1, 2));
  EXPECT_TRUE(client->waitUntilEnded({client->queue(1, 2, {2}, settingsFor(1, 1h))}, kLong));
  EXPECT_THAT(testsOfLastRun(), ElementsAre(2));
}

TEST_F(ClientRequestTest, queues_nothing_for_a_package_without_devices) {
  alpha.setDevices(std::vector<Scripted::Device>());
  EXPECT_THAT(startAndEnumerate().queue(1, settingsFor(1, 1h)), IsEmpty());
}

TEST_F(ClientRequestTest, is_told_what_the_controller_refuses) {
  startAndEnumerate();
  EXPECT_EQ(codeOf([&] { client->queue(1, 1, settingsFor(1, 0s)); }), INVALID_RUN_TIME);
  EXPECT_EQ(codeOf([&] { client->queue(1, settingsFor(0, 1h)); }), INVALID_PASS_COUNT);
  EXPECT_EQ(codeOf([&] { client->queue(2, settingsFor(1, 1h)); }), OBJECT_NOT_FOUND);
  EXPECT_EQ(codeOf([&] { client->queue(1, 9, settingsFor(1, 1h)); }), DEVICE_OBJECT_NOT_FOUND);
  EXPECT_EQ(codeOf([&] { client->queue(1, 1, {}, settingsFor(1, 1h)); }), TEST_VECTOR_IS_EMPTY);
  EXPECT_THAT(client->unfinished(), IsEmpty());
}

TEST_F(ClientRequestTest, names_the_requests_of_a_package_that_was_queued_in_part) {
  alpha.setDevices(2);
  startAndEnumerate();
  std::atomic<int> objects{0};
  alpha.on(Call::GetDiagnostics, [&](const Scripted::CallRecord&) {
    if (++objects == 2) {
      alpha.setHabits({.givesNoDiagnostics = true});
    }
  });
  std::vector<unsigned long> queued;
  try {
    client->queue(1, settingsFor(1, 1h));
    FAIL() << "the second device could not be queued";
  } catch (const PartlyQueued& failure) {
    EXPECT_EQ(failure.code(), UNABLE_TO_ADD_TEST_REQUEST);
    queued = failure.requests();
  }
  ASSERT_EQ(queued.size(), 1U);
  EXPECT_THAT(client->unfinished(), ElementsAre(queued.front()));
  alpha.on(Call::GetDiagnostics, {});
  // They are judged when another one was queued.
  alpha.setHabits({});
  queued.push_back(client->queue(1, 2, settingsFor(1, 1h)));
  EXPECT_TRUE(client->waitUntilEnded(queued, kLong));
}

TEST_F(ClientRequestTest, ends_the_passes_at_the_first_bad_one_where_that_is_wanted) {
  alpha.everyPass({.results = {{.verdict = DiagnosticResult::FAILED}}});
  startAndEnumerate();
  const auto passesWith = [&](std::optional<bool> haltOnError) {
    alpha.clearLog();
    const auto request = client->queue(1, 1, {1}, settingsFor(2, 1h), haltOnError);
    EXPECT_TRUE(client->waitUntilEnded({request}, kLong));
    return alpha.calls(Call::RunEnter).size();
  };
  EXPECT_EQ(passesWith(true), 1U);
  EXPECT_EQ(passesWith(false), 2U);
  EXPECT_EQ(passesWith(std::nullopt), 2U) << "as the control file says";
}

TEST_F(ClientRequestTest, tells_state_and_progress_of_what_runs_and_the_state_of_what_has_ended) {
  alpha.holdRuns().setProgress(40);
  const unsigned long request = startAndEnumerate().queue(1, 1, settingsFor(2, 1h));
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(client->state(request).status, TestRequest::RUNNING);
  EXPECT_EQ(client->state(request).pass, 1);
  EXPECT_EQ(client->state(request).passes, 2);
  EXPECT_FALSE(client->state(request).isStress);
  EXPECT_EQ(client->progress(request), 40U);
  EXPECT_THAT(client->unfinished(), ElementsAre(request));
  alpha.releaseRuns();
  ASSERT_TRUE(client->waitUntilEnded({request}, kLong));
  EXPECT_EQ(client->state(request).status, TestRequest::COMPLETED);
  auto ctrlEvents = client->ctrlEvents();
  EXPECT_EQ(client->progress(request), std::nullopt);
  EXPECT_THAT(ctrlEvents.take(), IsEmpty()) << "and no event for having asked";
  EXPECT_EQ(codeOf([&] { client->state(request + 1); }), REQUEST_OBJECT_NOT_FOUND);
}

TEST_F(ClientRequestTest, suspends_and_resumes) {
  alpha.holdRuns();
  const unsigned long request = startAndEnumerate().queue(1, 1, settingsFor(1, 1h));
  ASSERT_TRUE(alpha.awaitRunning(1));
  client->suspend(request);
  EXPECT_TRUE(alpha.awaitCalls(Call::Suspend));
  client->resume(request);
  EXPECT_TRUE(alpha.awaitCalls(Call::Resume));
  alpha.releaseRuns();
  EXPECT_TRUE(client->waitUntilEnded({request}, kLong));
}

TEST_F(ClientRequestTest, aborts_one_or_several) {
  alpha.setDevices(3).holdRuns();
  harness.control().parallel();
  const auto requests = startAndEnumerate().queue(1, settingsFor(1, 1h));
  ASSERT_TRUE(alpha.awaitRunning(3));
  client->abort(requests[0]);
  EXPECT_EQ(client->state(requests[0]).status, TestRequest::ABORTED);
  client->abort({requests[1], requests[2]});
  EXPECT_TRUE(alpha.awaitCalls(Call::Abort, 3));
  EXPECT_EQ(codeOf([&] { client->abort(99UL); }), REQUEST_OBJECT_NOT_FOUND);
  EXPECT_TRUE(harness.awaitIdle());
}

TEST_F(ClientRequestTest, counts_what_an_abort_of_all_met_in_a_queue_as_ended) {
  alpha.setDevices(2).holdRuns();
  const auto requests = startAndEnumerate().queue(1, settingsFor(1, 1h));
  ASSERT_TRUE(alpha.awaitRunning(1));
  client->abortAll();
  EXPECT_TRUE(client->waitUntilEnded(requests, kLong));
  EXPECT_THAT(client->unfinished(), IsEmpty());
  EXPECT_FALSE(harness.requestIds().empty()) << "the controller keeps it on its list";
}

TEST_F(ClientRequestTest, lets_one_thread_at_a_time_abort_all) {
  alpha.holdRuns();
  startAndEnumerate().queue(1, 1, settingsFor(1, 1h));
  ASSERT_TRUE(alpha.awaitRunning(1));
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int time = 0; time < 50; ++time) {
        const auto code = codeOf([&] { client->abortAll(); });
        failures += code == SUCCESS || code == INCORRECT_PHASE ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace TarvexDiags::ClientTests
