// Registrations that end with their scope, and waits that end with their limit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DiagCtrl/Client.h"
#include "tests/controller/client/ClientFixture.h"

namespace TarvexDiags::ClientTests {
namespace {

using Diag::DiagnosticResult;
using DiagCtrl::DiagCtrlEvent;
using DiagCtrl::DiagnosticController;
using DiagCtrl::settingsFor;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using enum DiagnosticController::errorCode;

class ClientMessagesTest : public ClientTest {
 protected:
  ClientMessagesTest() : alpha(harness.addPackage("ALPHA")) {
    alpha.everyPass({.events = {{.code = 7, .parameters = {"hot"}}}});
  }

  /// Runs the test of the package once, to its end.
  unsigned long runOnce() {
    const unsigned long request = client->queue(1, 1, settingsFor(1, 1h));
    EXPECT_TRUE(client->waitUntilEnded({request}, kLong));
    return request;
  }

  /// The numbers of registrations that the controller knows.
  std::vector<unsigned int> registrations() {
    unsigned int events = 0;
    unsigned int results = 0;
    unsigned int ctrlEvents = 0;
    EXPECT_EQ(client->controller().getNumberOfRegistrations(events, results, ctrlEvents), SUCCESS);
    return {events, results, ctrlEvents};
  }

  Scripted::Script& alpha;
};

TEST_F(ClientMessagesTest, delivers_each_kind_as_values) {
  auto events = start().events();
  auto results = client->results();
  auto ctrlEvents = client->ctrlEvents();
  client->enumerate();
  const unsigned long request = runOnce();

  const std::vector<Diag::DiagnosticEvent> raised = events.take();
  ASSERT_EQ(raised.size(), 1U);
  EXPECT_EQ(raised[0].getEventCode(), 7U);
  EXPECT_EQ(raised[0].getTestRequestId(), request);
  EXPECT_THAT(raised[0].getParamVector(), ElementsAre("hot"));
  const std::vector<DiagnosticResult> given = results.take();
  ASSERT_EQ(given.size(), 1U);
  EXPECT_EQ(given[0].getTestResult(), DiagnosticResult::PASSED);
  const std::vector<DiagCtrlEvent> told = ctrlEvents.take();
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].getEventCode(), DiagCtrlEvent::DROP_REQUEST_ON_COMPLETION);

  EXPECT_THAT(events.take(), IsEmpty());
  EXPECT_THAT(results.take(), IsEmpty());
  EXPECT_THAT(ctrlEvents.take(), IsEmpty());
}

TEST_F(ClientMessagesTest, delivers_to_each_registration_by_itself) {
  auto one = startAndEnumerate().results();
  auto other = client->results();
  runOnce();
  EXPECT_EQ(one.take().size(), 1U);
  EXPECT_EQ(other.take().size(), 1U);
}

TEST_F(ClientMessagesTest, ends_a_registration_with_its_scope_and_uses_its_queue_again) {
  startAndEnumerate();
  { const auto ended = client->results(); }
  runOnce();
  auto next = client->results();
  EXPECT_THAT(next.take(), IsEmpty()) << "what came in between belongs to nobody";
  runOnce();
  EXPECT_EQ(next.take().size(), 1U);
  EXPECT_THAT(registrations(), ElementsAre(0, 1, 0));
  const auto beside = client->results();
  EXPECT_THAT(registrations(), ElementsAre(0, 2, 0)) << "the first one is in use";
}

TEST_F(ClientMessagesTest, empties_the_queues_of_ended_registrations_when_it_waits) {
  startAndEnumerate();
  // Of the three kinds the first id is 1.
  { const auto events = client->events(); }
  { const auto results = client->results(); }
  { const auto ctrlEvents = client->ctrlEvents(); }
  runOnce();
  client->wait(0ms);
  DiagCtrl::EventVector* events = nullptr;
  ASSERT_EQ(client->controller().getDiagnosticEvents(1, events), SUCCESS);
  EXPECT_THAT(DiagCtrl::ClientParts::ownedMessages(events), IsEmpty());
  DiagCtrl::ResultVector* results = nullptr;
  ASSERT_EQ(client->controller().getDiagnosticResults(1, results), SUCCESS);
  EXPECT_THAT(DiagCtrl::ClientParts::ownedMessages(results), IsEmpty());
  DiagCtrl::CtrlEventVector* ctrlEvents = nullptr;
  ASSERT_EQ(client->controller().getDiagnosticCtrlEvents(1, ctrlEvents), SUCCESS);
  EXPECT_THAT(DiagCtrl::ClientParts::ownedMessages(ctrlEvents), IsEmpty());
}

TEST_F(ClientMessagesTest, moves_a_registration_with_what_came_for_it) {
  std::optional<DiagCtrl::ResultRegistration> kept;
  {
    auto results = startAndEnumerate().results();
    runOnce();
    kept.emplace(std::move(results));
  }
  EXPECT_EQ(kept->take().size(), 1U);
}

TEST_F(ClientMessagesTest, tells_a_registration_that_outlives_its_client) {
  auto results = startAndEnumerate().results();
  client.reset();
  EXPECT_EQ(codeOf([&] { results.take(); }), INCORRECT_PHASE);
  startAndEnumerate();
  auto others = client->results();
  runOnce();
  EXPECT_EQ(codeOf([&] { results.take(); }), INCORRECT_PHASE) << "the id is another's now";
  EXPECT_EQ(others.take().size(), 1U);
}

TEST_F(ClientMessagesTest, delivers_controller_events_before_the_enumeration_and_no_others) {
  auto events = start().events();
  auto ctrlEvents = client->ctrlEvents();
  EXPECT_THAT(ctrlEvents.take(), IsEmpty());
  EXPECT_EQ(codeOf([&] { events.take(); }), INCORRECT_PHASE);
  EXPECT_EQ(ctrlEvents.take().size(), 1U) << "the refusal";
}

// ---- Waiting
// ---------------------------------------------------------------------------------------

TEST_F(ClientMessagesTest, waits_no_longer_than_the_limit) {
  startAndEnumerate();
  const auto results = client->results();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(client->wait(20ms));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
  EXPECT_FALSE(client->wait(0ms));
  EXPECT_FALSE(client->wait(-5ms));
}

TEST_F(ClientMessagesTest, does_not_wait_where_there_is_something_to_take) {
  auto results = startAndEnumerate().results();
  runOnce();
  EXPECT_TRUE(client->wait(0ms));
  EXPECT_TRUE(client->wait(0ms)) << "nobody took it";
  EXPECT_EQ(results.take().size(), 1U);
  EXPECT_FALSE(client->wait(0ms));
}

TEST_F(ClientMessagesTest, waits_for_controller_events_before_the_enumeration) {
  auto ctrlEvents = start().ctrlEvents();
  const auto events = client->events();
  EXPECT_FALSE(client->wait(0ms)) << "and asks for nothing that would raise one";
  EXPECT_EQ(codeOf([&] { client->packages(); }), INCORRECT_PHASE);
  EXPECT_TRUE(client->wait(0ms));
  EXPECT_EQ(ctrlEvents.take().size(), 1U);
}

TEST_F(ClientMessagesTest, wakes_every_thread_that_waits) {
  alpha.holdRuns();
  const auto results = startAndEnumerate().results();
  client->queue(1, 1, settingsFor(1, 1h));
  ASSERT_TRUE(alpha.awaitRunning(1));
  std::atomic<int> woken{0};
  const auto waitForAges = [&] { woken += client->wait(std::chrono::hours(24 * 10'000)) ? 1 : 0; };
  std::thread one(waitForAges);
  std::thread other(waitForAges);
  alpha.releaseRuns();
  one.join();
  other.join();
  EXPECT_EQ(woken, 2);
}

TEST_F(ClientMessagesTest, keeps_what_a_wait_has_fetched_in_its_order) {
  auto events = startAndEnumerate().events();
  runOnce();
  EXPECT_TRUE(client->wait(0ms));
  const unsigned long second = runOnce();
  const auto taken = events.take();
  ASSERT_EQ(taken.size(), 2U);
  EXPECT_LT(taken[0].getTestRequestId(), second);
  EXPECT_EQ(taken[1].getTestRequestId(), second);
}

TEST_F(ClientMessagesTest, waits_for_requests_no_longer_than_the_limit) {
  alpha.holdRuns();
  const unsigned long request = startAndEnumerate().queue(1, 1, settingsFor(1, 1h));
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_FALSE(client->waitUntilEnded({request}, 20ms));
  EXPECT_FALSE(client->waitUntilEnded({request}, 0ms));
  EXPECT_TRUE(client->waitUntilEnded({}, 0ms)) << "nothing to wait for";
  EXPECT_TRUE(client->waitUntilEnded({request + 1}, 0ms)) << "nobody knows it";
  alpha.releaseRuns();
  EXPECT_TRUE(client->waitUntilEnded({request}, kLong));
}

TEST_F(ClientMessagesTest, finds_all_messages_of_a_request_that_has_ended) {
  auto results = startAndEnumerate().results();
  for (int time = 0; time < 20; ++time) {
    const unsigned long request = runOnce();
    const auto taken = results.take();
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(taken.front().getTestRequestId(), request);
  }
}

TEST_F(ClientMessagesTest, can_end_as_soon_as_it_has_waited) {
  for (int life = 0; life < 20; ++life) {
    const auto results = startAndEnumerate().results();
    client->wait(0ms);
    client.reset();
  }
}

}  // namespace
}  // namespace TarvexDiags::ClientTests
