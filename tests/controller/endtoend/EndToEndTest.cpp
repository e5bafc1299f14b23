// Whole runs of several packages in each run mode, with every controller event that they raise.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/TestRequestManager.h"
#include "tests/support/Barrier.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ThreadState.h"

TARVEX_PRIVATE_MEMBER(DispatcherTag, DiagCtrl::DiagnosticController::mpExecMgrThread);
TARVEX_PRIVATE_MEMBER(WorkersLockTag, DiagCtrl::ExecutionManagerThread::mmtxExecThreadMapCtrlLock);

namespace TarvexDiags::EndToEnd {
namespace {

using Diag::DiagnosticResult;
using Diag::DiagnosticSettings;
using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagnosticController;
using DiagCtrl::TestRequest;
using Scripted::Call;
using Scripted::CallRecord;
using Scripted::Living;
using Scripted::Pass;
using Scripted::Script;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using TestSupport::Barrier;
using TestSupport::Companion;
using TestSupport::ControllerHarness;
using TestSupport::ControllerTest;
using TestSupport::eventually;
using TestSupport::PackageConfig;
using TestSupport::privateMember;
using enum DiagnosticController::errorCode;
typedef std::vector<std::string> Lines;

/// What each pass tells: its number as an event, and a verdict that is bad where told.
Scripted::Plan planThatFailsAt(const std::string& device, unsigned int badRun) {
  return [device, badRun](const CallRecord& run) {
    const bool isBad = run.device == device && run.run == badRun;
    Pass pass;
    pass.events = {{.code = run.run}};
    pass.results[0].verdict = isBad ? DiagnosticResult::FAILED : DiagnosticResult::PASSED;
    return pass;
  };
}

/// ALPHA has two devices, and what runs on "ALPHA-2" fails in its second pass. BETA has one device,
/// on which its second test is disabled. GAMMA takes the whole machine.
class EndToEndTest : public ControllerTest {
 protected:
  void start() {
    alpha.setDevices(2).planPasses(planThatFailsAt("ALPHA-2", 2));
    beta.planPasses(planThatFailsAt("", 0));
    gamma.planPasses(planThatFailsAt("", 0));
    harness.start();
  }

  unsigned long queueHalting(const std::string& package, unsigned int device,
                             std::vector<int> tests, int passes) {
    auto settings = ControllerHarness::settings(passes);
    unsigned long id = 0;
    EXPECT_EQ(controller().queueTest(harness.indexOf(package), device, tests, settings, true, id),
              SUCCESS);
    return id;
  }
  static DiagnosticSettings stressSettings() {
    auto settings = ControllerHarness::settings(9);
    settings.setStressMode(true);
    return settings;
  }

  /// The messages of one kind for each request, in the order in which they came.
  static std::map<std::string, Lines> byRequest(const Lines& messages) {
    std::map<std::string, Lines> sorted;
    for (const std::string& message : messages) {
      const std::size_t space = message.rfind(' ');
      sorted[message.substr(space + 1)].push_back(message.substr(0, space));
    }
    return sorted;
  }

  /// For a pass thread: the monitor has taken the request over, which the dispatcher hands on under
  /// the hold of a lock in which it starts the pass thread. Were it still on its way when the pass
  /// ends, a request for the machine behind it would be refused.
  void awaitHandOver() {
    DiagCtrl::DiagCtrlLock& handOver =
        privateMember<WorkersLockTag>(*privateMember<DispatcherTag>(controller()));
    handOver.lock(-1);
    handOver.unlock();
    EXPECT_TRUE(eventually(
        [this] { return controller().getTestRequestMgrPtr()->getTestReqExecQueueSize() == 0; }));
  }

  bool awaitCtrlEvents(std::size_t number) {
    return eventually([&] { return harness.ctrlEvents().size() >= number; });
  }

  void expectNothingLeft() {
    EXPECT_EQ(harness.shutDown(), SUCCESS);
    for (Script* script : {&alpha, &beta, &gamma}) {
      EXPECT_EQ(script->living(), Living{});
    }
  }

  Script& alpha = harness.addPackage("ALPHA", PackageConfig(2));
  Script& beta = harness.addPackage("BETA", PackageConfig(2).disableDevices(2, {"BETA-device"}));
  Script& gamma = harness.addPackage("GAMMA", PackageConfig(1).systemLock());
};

TEST_F(EndToEndTest, one_by_one_requests_take_turns_pass_by_pass) {
  start();
  alpha.on(Call::RunEnter, [this](const CallRecord&) { awaitHandOver(); });
  alpha.holdRunsOn("ALPHA-1");
  beta.holdRuns();
  const unsigned long passes = harness.queue("ALPHA", 1, {1, 2}, ControllerHarness::settings(3));
  ASSERT_TRUE(alpha.awaitRunning(1));
  // All of these wait behind the first pass.
  const unsigned long halts = queueHalting("ALPHA", 2, {1}, 5);
  const unsigned long abortedInQueue = harness.queue("ALPHA", 1, {1});
  const unsigned long machine = harness.queue("GAMMA", 1, {1}, ControllerHarness::settings(2));
  const unsigned long stress = harness.queue("ALPHA", 2, {2}, stressSettings());
  const unsigned long disabled = harness.queue("BETA", 1, {2});
  const unsigned long abortedInside = harness.queue("BETA", 1, {2, 1});
  const unsigned long unknown = harness.queue("ALPHA", 2, {7, 1});
  EXPECT_EQ(controller().abortTest(abortedInQueue), SUCCESS);
  alpha.releaseRuns();
  ASSERT_TRUE(beta.awaitRunning(1));
  EXPECT_EQ(controller().abortTest(abortedInside), SUCCESS);
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_THAT(harness.ctrlEvents(),
              ElementsAre("TEST_REQUEST_ABORTED I 3",           // at once, on the client's thread
                          "TEST_REQUEST_ABORTED W 3",           // when its turn comes
                          "DROP_REQUEST_ON_COMPLETION I 5",     // stress is one pass
                          "DISABLE_TEST W 6",                   // the first turn goes on to 6:
                          "NO_TEST_ENABLE_TO_EXECUTE W 6",      //   nothing is left of it,
                          "TEST_REQUEST_ABORTED W 6",           //   so it is dropped as aborted
                          "DISABLE_TEST W 7",                   // 7 runs with what is left,
                          "TEST_REQUEST_ABORTED W 7",           //   ends by the abort,
                          "TEST_REQUEST_ABORTED W 7",           //   and is judged
                          "DISABLE_TEST W 8",                   // an unknown test is skipped
                          "DROP_REQUEST_ON_COMPLETION I 8",     //
                          "ERROR_RECVD_AND_HALT_ON_ERROR E 2",  // second turn: 2 fails and halts
                          "DROP_REQUEST_ON_COMPLETION I 2",     //
                          "DROP_REQUEST_ON_COMPLETION I 4",     // the machine's second pass
                          "DROP_REQUEST_ON_COMPLETION I 1"));   // third turn: its third pass
  EXPECT_EQ((std::vector<unsigned long>{passes, halts, abortedInQueue, machine, stress, disabled,
                                        abortedInside, unknown}),
            (std::vector<unsigned long>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_THAT(harness.results(),
              ElementsAre("PASSED 1", "PASSED 2", "PASSED 4", "PASSED 5", "UNUSUAL_STATUS 7",
                          "PASSED 8", "PASSED 1", "FAILED 2", "PASSED 4", "PASSED 1"));
  EXPECT_THAT(harness.events(), ElementsAre("1 I 1", "1 I 2", "1 I 4", "1 I 5", "1 I 7", "1 I 8",
                                            "2 I 1", "2 I 2", "2 I 4", "3 I 1"));
  EXPECT_EQ(alpha.mostRunning(), 1);
  EXPECT_EQ(harness.statusOf(passes), TestRequest::COMPLETED);
  EXPECT_EQ(harness.statusOf(abortedInside), TestRequest::ABORTED);
  EXPECT_THAT(harness.requestIds(), IsEmpty());
  expectNothingLeft();
}

TEST_F(EndToEndTest, side_by_side_requests_share_the_machine_by_their_devices) {
  harness.control().parallel();
  start();
  alpha.holdRunsOn("ALPHA-1").holdRunsOn("ALPHA-2");
  beta.holdRuns();
  const unsigned long passes = harness.queue("ALPHA", 1, {1, 2}, ControllerHarness::settings(3));
  const unsigned long halts = queueHalting("ALPHA", 2, {1}, 5);
  const unsigned long abortedInside = harness.queue("BETA", 1, {1}, ControllerHarness::settings(4));
  ASSERT_TRUE(alpha.awaitRunning(2) && beta.awaitRunning(1));
  const unsigned long abortedInQueue = harness.queue("BETA", 1, {1});  // its device is taken
  EXPECT_EQ(controller().abortTest(abortedInQueue), SUCCESS);
  ASSERT_TRUE(awaitCtrlEvents(2));
  EXPECT_EQ(controller().abortTest(abortedInside), SUCCESS);
  ASSERT_TRUE(awaitCtrlEvents(4));
  alpha.releaseRunsOn("ALPHA-2");
  ASSERT_TRUE(harness.awaitEnd(halts));
  const unsigned long stress = harness.queue("BETA", 1, {1}, stressSettings());
  beta.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(stress));
  alpha.releaseRunsOn("ALPHA-1");
  ASSERT_TRUE(harness.awaitEnd(passes));
  ASSERT_TRUE(harness.awaitIdle());
  Lines told = harness.ctrlEvents();
  ASSERT_GE(told.size(), 2U);
  // The client's thread and the dispatcher each tell of it, in no fixed order.
  EXPECT_THAT(Lines(told.begin(), told.begin() + 2),
              UnorderedElementsAre("TEST_REQUEST_ABORTED I 4", "TEST_REQUEST_ABORTED W 4"));
  told.erase(told.begin(), told.begin() + 2);
  EXPECT_THAT(told,
              ElementsAre("TEST_REQUEST_ABORTED W 3", "TEST_REQUEST_ABORTED W 3",
                          "ERROR_RECVD_AND_HALT_ON_ERROR E 2", "DROP_REQUEST_ON_COMPLETION I 2",
                          "DROP_REQUEST_ON_COMPLETION I 5", "DROP_REQUEST_ON_COMPLETION I 1"));
  const auto results = byRequest(harness.results());
  EXPECT_THAT(results.at("1"), ElementsAre("PASSED", "PASSED", "PASSED"));
  EXPECT_THAT(results.at("2"), ElementsAre("PASSED", "FAILED"));
  EXPECT_THAT(results.at("3"), ElementsAre("UNUSUAL_STATUS"));
  EXPECT_THAT(results.at("5"), ElementsAre("PASSED"));
  EXPECT_EQ(results.size(), 4U);
  EXPECT_EQ(alpha.mostRunning(), 2);
  expectNothingLeft();
}

TEST_F(EndToEndTest, a_request_for_the_whole_machine_is_refused_until_it_is_alone) {
  harness.control().parallel();
  start();
  alpha.holdRunsOn("ALPHA-1").holdRunsOn("ALPHA-2");
  harness.queue("ALPHA", 1, {1});
  harness.queue("ALPHA", 2, {1});
  ASSERT_TRUE(alpha.awaitRunning(2));
  std::vector<int> besides;
  gamma.on(Call::RunEnter,
           [&](const CallRecord&) { besides.push_back(alpha.running() + beta.running()); });
  harness.queue("GAMMA", 1, {1});
  ASSERT_TRUE(harness.awaitCtrlEvent("UNABLE_TO_PROCESS_TEST_REQUEST E 3"));
  EXPECT_EQ(gamma.count(Call::RunEnter), 0U);
  alpha.releaseRunsOn("ALPHA-1");
  ASSERT_TRUE(harness.awaitEnd(1));
  EXPECT_EQ(gamma.count(Call::RunEnter), 0U);
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitEnd(2) && harness.awaitEnd(3));
  Lines events = byRequest(harness.ctrlEvents()).at("3");
  events.erase(std::unique(events.begin(), events.end()), events.end());  // as often as refused
  EXPECT_THAT(events,
              ElementsAre("UNABLE_TO_PROCESS_TEST_REQUEST E", "DROP_REQUEST_ON_COMPLETION I"));
  EXPECT_THAT(besides, ElementsAre(0));
  expectNothingLeft();
}

TEST_F(EndToEndTest, an_abort_of_all_ends_what_runs_and_what_waits) {
  harness.control().parallel();
  start();
  alpha.holdRuns();
  beta.holdRuns();
  Barrier end;  // keeps the device of the request that waits
  beta.on(Call::RunEnd, [&](const CallRecord&) { end.pass(); });
  harness.queuePackage("ALPHA", ControllerHarness::settings(100));
  harness.queuePackage("BETA", ControllerHarness::settings(100));
  ASSERT_TRUE(alpha.awaitRunning(2) && beta.awaitRunning(1));
  harness.queue("BETA", 1, {1});
  EXPECT_EQ(controller().abortAllTest(), SUCCESS);
  end.open();
  ASSERT_TRUE(awaitCtrlEvents(2 * 3 + 2));
  ASSERT_TRUE(harness.awaitIdle());
  const auto events = byRequest(harness.ctrlEvents());
  for (const char* running : {"1", "2", "3"}) {
    EXPECT_THAT(events.at(running),
                ElementsAre("TEST_REQUEST_ABORTED W", "TEST_REQUEST_ABORTED W"));
  }
  // The dispatcher, which the other aborts wake, may drop it before the client has told.
  EXPECT_THAT(events.at("4"),
              UnorderedElementsAre("TEST_REQUEST_ABORTED I", "TEST_REQUEST_ABORTED W"));
  EXPECT_EQ(events.size(), 4U);
  EXPECT_EQ(byRequest(harness.results()).size(), 3U) << "what ran has a result";
  const unsigned long again = harness.queue("ALPHA", 1, {1});
  alpha.releaseRuns();
  EXPECT_TRUE(harness.awaitEnd(again)) << "nothing of it sticks to the controller";
  expectNothingLeft();
}

TEST_F(EndToEndTest, a_suspended_test_rests_until_it_is_resumed) {
  start();
  alpha.everyPass({.duration = std::chrono::milliseconds(50)});
  alpha.holdRuns();
  const unsigned long id = harness.queue("ALPHA", 1, {1});
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_EQ(controller().suspendTest(id), SUCCESS);
  alpha.releaseRuns();
  auto status = Diag::DiagnosticStatus::UNKNOWN;
  EXPECT_EQ(controller().getDiagnosticStatus(id, status), SUCCESS);
  EXPECT_EQ(status, Diag::DiagnosticStatus::SUSPENDED);
  EXPECT_TRUE(TestSupport::neverWithin(std::chrono::milliseconds(150),
                                       [&] { return alpha.running() == 0; }));
  EXPECT_EQ(controller().resumeTest(id), SUCCESS);
  EXPECT_TRUE(harness.awaitEnd(id));
  EXPECT_THAT(harness.ctrlEvents(), ElementsAre("DROP_REQUEST_ON_COMPLETION I 1"));
  expectNothingLeft();
}

/// A client with a thread that waits on an object of its own and drains after each wake-up.
class Listener {
 public:
  explicit Listener(DiagnosticController& controller) : m_controller(controller) {
    EXPECT_EQ(controller.registerForDiagResults(&m_wake, m_resultId), SUCCESS);
    EXPECT_EQ(controller.registerForDiagCtrlEvents(&m_wake, m_ctrlEventId), SUCCESS);
  }
  /// From now on messages are collected.
  void listen() {
    m_thread = std::thread([this] {
      while (!m_ended) {
        drain();
        m_wake.wait();
      }
    });
  }
  void end() {
    m_ended = true;
    Companion waker([this] {
      while (!m_joined) {
        m_wake.notify();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
    m_thread.join();
    m_joined = true;
    drain();
  }

  Lines results;
  Lines ctrlEvents;

 private:
  template <class Message>
  static void collect(std::vector<Message*>* messages, Lines& lines) {
    const std::unique_ptr<std::vector<Message*>> vector(messages);
    for (Message* const message : *vector) {
      lines.push_back(TestSupport::describe(*std::unique_ptr<Message>(message)));
    }
  }
  void drain() {
    DiagCtrl::ResultVector* newResults = nullptr;
    EXPECT_EQ(m_controller.getDiagnosticResults(static_cast<long>(m_resultId), newResults),
              SUCCESS);
    collect(newResults, results);
    DiagCtrl::CtrlEventVector* newEvents = nullptr;
    EXPECT_EQ(m_controller.getDiagnosticCtrlEvents(static_cast<long>(m_ctrlEventId), newEvents),
              SUCCESS);
    collect(newEvents, ctrlEvents);
  }

  DiagnosticController& m_controller;
  DiagCtrl::CallBackObject m_wake;
  unsigned long m_resultId = 0;
  unsigned long m_ctrlEventId = 0;
  std::atomic<bool> m_ended{false};
  std::atomic<bool> m_joined{false};
  std::thread m_thread;
};

TEST_F(EndToEndTest, every_registration_hears_of_everything_in_one_order) {
  harness.control().parallel();
  start();
  Listener listeners[] = {Listener(controller()), Listener(controller()), Listener(controller())};
  for (Listener& listener : listeners) {
    listener.listen();
  }
  std::vector<unsigned long> ids = harness.queuePackage("ALPHA", ControllerHarness::settings(10));
  ids.push_back(harness.queue("BETA", 1, {1}, ControllerHarness::settings(10)));
  for (const unsigned long id : ids) {
    ASSERT_TRUE(harness.awaitEnd(id));
  }
  for (Listener& listener : listeners) {
    listener.end();
    EXPECT_EQ(listener.results, listeners[0].results);
    EXPECT_EQ(listener.ctrlEvents, listeners[0].ctrlEvents);
  }
  EXPECT_EQ(listeners[0].results.size(), 30U);
  EXPECT_THAT(listeners[0].ctrlEvents,
              ::testing::UnorderedElementsAre("DROP_REQUEST_ON_COMPLETION I 1",
                                              "DROP_REQUEST_ON_COMPLETION I 2",
                                              "DROP_REQUEST_ON_COMPLETION I 3"));
  expectNothingLeft();
}

TEST_F(EndToEndTest, a_changed_run_mode_holds_from_the_next_request_on) {
  start();
  EXPECT_EQ(controller().setRunMode(DiagCtrl::GlobalSettings::PARALLEL), SUCCESS);
  alpha.holdRuns();
  harness.queuePackage("ALPHA");
  EXPECT_TRUE(alpha.awaitRunning(2));
  EXPECT_EQ(controller().setRunMode(DiagCtrl::GlobalSettings::SERIAL), INCORRECT_PHASE);
  alpha.releaseRuns();
  ASSERT_TRUE(harness.awaitIdle());
  EXPECT_EQ(controller().setRunMode(DiagCtrl::GlobalSettings::SERIAL), SUCCESS);
  EXPECT_EQ(controller().clearRequestIdList(), SUCCESS);
  alpha.holdRuns();
  EXPECT_THAT(harness.queuePackage("ALPHA"), ElementsAre(3U, 4U)) << "ids go on";
  ASSERT_TRUE(alpha.awaitRunning(1));
  EXPECT_TRUE(TestSupport::neverWithin(std::chrono::milliseconds(100),
                                       [&] { return alpha.running() > 1; }));
  expectNothingLeft();
}

}  // namespace
}  // namespace TarvexDiags::EndToEnd
