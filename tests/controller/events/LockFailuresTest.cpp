// What becomes of a lock that cannot be taken, on each way that settings and messages go: the
// result, the event, the trace, and outputs that stay as they were.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/EventManager.h"
#include "DiagCtrl/GlobalSettings.h"
#include "tests/support/BrokenLock.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/CtrlEventTap.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/TraceFile.h"

TARVEX_PRIVATE_MEMBER(StatusTag, DiagCtrl::DiagnosticController::mpDiagCtrlStatus);
TARVEX_PRIVATE_MEMBER(SettingsLockTag, DiagCtrl::DiagnosticController::mmtxGlobalSettingsLock);
TARVEX_PRIVATE_MEMBER(OwnSettingsLockTag, DiagCtrl::GlobalSettings::mmtxGlobalSettLock);
TARVEX_PRIVATE_MEMBER(EventListLockTag, DiagCtrl::DiagnosticController::mmtxEvtCBObjListLock);
TARVEX_PRIVATE_MEMBER(ResultListLockTag, DiagCtrl::DiagnosticController::mmtxResCBObjListLock);
TARVEX_PRIVATE_MEMBER(CtrlEventListLockTag,
                      DiagCtrl::DiagnosticController::mmtxCtrlEvtCBObjListLock);
TARVEX_PRIVATE_MEMBER(EventQueueLockTag, DiagCtrl::EventManager::mEventMutexLock);
TARVEX_PRIVATE_MEMBER(ResultQueueLockTag, DiagCtrl::EventManager::mResultMutexLock);
TARVEX_PRIVATE_MEMBER(CtrlEventQueueLockTag, DiagCtrl::EventManager::mCtrlEvtMutexLock);
TARVEX_PRIVATE_MEMBER(ProgressLockTag, DiagCtrl::EventManager::mProgressMutexLock);

namespace TarvexDiags::DiagCtrl {
namespace {

using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::BrokenLock;
using TestSupport::ControllerHarness;
using TestSupport::CtrlEventTap;
using TestSupport::privateMember;
typedef DiagnosticController C;
typedef C::errorCode Code;
typedef std::vector<std::string> Lines;

constexpr unsigned int kUntouched = 99;

/// One client call, with outputs that a failure must leave as they are.
struct ClientCallRow {
  const char* name;
  bool raisesEvent;
  std::function<Code(C&)> call;
};

template <class Value>
std::function<Code(C&)> reading(Code (C::*get)(Value&)) {
  return [get](C& controller) {
    auto value = static_cast<Value>(true);
    const Code code = (controller.*get)(value);
    EXPECT_EQ(value, static_cast<Value>(true));
    return code;
  };
}

template <class Value>
std::function<Code(C&)> writing(Code (C::*set)(Value)) {
  return [set](C& controller) { return (controller.*set)(static_cast<Value>(true)); };
}

std::vector<ClientCallRow> settingsCalls() {
  return {{"getDebugLog", true, reading(&C::getDebugLog)},
          {"getRunMode", true, reading(&C::getRunMode)},
          {"getDiagLogMode", true, reading(&C::getDiagLogMode)},
          {"getHaltOnError", true, reading(&C::getHaltOnError)},
          {"getDiagnosticMode", true, reading(&C::getDiagnosticMode)},
          {"setDebugLog", true, writing(&C::setDebugLog)},
          {"setRunMode", true, writing(&C::setRunMode)},
          {"setDiagLogMode", true, writing(&C::setDiagLogMode)},
          {"setHaltOnError", true, writing(&C::setHaltOnError)},
          {"setDiagnosticMode", true, writing(&C::setDiagnosticMode)}};
}

std::function<Code(C&)> registering(Code (C::*call)(CallBackObject*, unsigned long&)) {
  return [call](C& controller) {
    CallBackObject object;
    unsigned long id = kUntouched;
    const Code code = (controller.*call)(&object, id);
    EXPECT_EQ(id, kUntouched);
    return code;
  };
}

std::vector<ClientCallRow> registeringCalls(bool eventsRaise) {
  return {{"registerForDiagEvents", eventsRaise, registering(&C::registerForDiagEvents)},
          {"registerForDiagResults", true, registering(&C::registerForDiagResults)},
          {"registerForDiagCtrlEvents", true, registering(&C::registerForDiagCtrlEvents)}};
}

template <class Vector>
std::function<Code(C&)> fetching(Code (C::*call)(long, Vector*&)) {
  return [call](C& controller) {
    Vector sentinel;
    Vector* drained = &sentinel;
    const Code code = (controller.*call)(1, drained);
    EXPECT_EQ(drained, &sentinel);
    return code;
  };
}

std::vector<ClientCallRow> fetchingCalls() {
  return {{"getDiagnosticEvents", true, fetching(&C::getDiagnosticEvents)},
          {"getDiagnosticResults", true, fetching(&C::getDiagnosticResults)},
          {"getDiagnosticCtrlEvents", false, fetching(&C::getDiagnosticCtrlEvents)}};
}

// --- The phase cannot be read

/// A controller that was not initialised: no thread of its own reads the phase meanwhile.
class UnreadablePhase : public ::testing::Test {
 protected:
  UnreadablePhase() {
    DiagTracer::getInstance()->openTraceFile(m_harness.directory().path().c_str(),
                                             DiagCtrlConstants::DIAG_ERROR);
  }
  void SetUp() override {
    if (!TestSupport::locksCanBreak()) {
      GTEST_SKIP() << "built without locks that can break";
    }
  }
  ~UnreadablePhase() override {
    m_tap.take();
    EventManager::getInstance()->clearCtrlEventQueues();
  }

  void expectRefused(const std::vector<ClientCallRow>& rows) {
    C& controller = m_harness.controller();
    const BrokenLock broken(
        privateMember<TestSupport::PhaseLockTag>(*privateMember<StatusTag>(controller)));
    for (const ClientCallRow& row : rows) {
      SCOPED_TRACE(row.name);
      EXPECT_EQ(row.call(controller), C::UNABLE_TO_GET_LOCK);
      EXPECT_EQ(m_tap.take(), row.raisesEvent ? Lines{"UNABLE_TO_GET_LOCK E 0"} : Lines());
    }
  }

  ControllerHarness m_harness;
  CtrlEventTap m_tap;
  TestSupport::TraceFile m_trace{m_harness.directory().path()};
};

TEST_F(UnreadablePhase, refuses_the_settings_and_only_the_debug_log_is_read_in_silence) {
  auto rows = settingsCalls();
  rows[0].raisesEvent = false;
  expectRefused(rows);
}

TEST_F(UnreadablePhase, refuses_registrations_of_which_that_for_events_raises_nothing) {
  expectRefused(registeringCalls(false));
  EXPECT_EQ(m_trace.count("UNABLE_TO_GET_LOCK: "), 3U);
}

TEST_F(UnreadablePhase, refuses_fetching_and_that_of_controller_events_in_silence) {
  expectRefused(fetchingCalls());
}

TEST_F(UnreadablePhase, refuses_counting) {
  unsigned int counts[] = {kUntouched, kUntouched, kUntouched};
  expectRefused({{"getNumberOfRegistrations", true, [&](C& controller) {
                    return controller.getNumberOfRegistrations(counts[0], counts[1], counts[2]);
                  }}});
  EXPECT_THAT(counts, ElementsAre(kUntouched, kUntouched, kUntouched));
}

// --- Locks behind the gate

class BrokenLocks : public ::testing::Test {
 protected:
  BrokenLocks() {
    m_harness.trace();
    m_harness.initialize();
    m_harness.registerForAll();
    m_harness->setDiagCtrlPhase(DiagControllerStatus::IDLE, -1);
  }
  void SetUp() override {
    if (!TestSupport::locksCanBreak()) {
      GTEST_SKIP() << "built without locks that can break";
    }
  }

  C& controller() { return m_harness.controller(); }
  static EventManager& manager() { return *EventManager::getInstance(); }
  static void pushEvent() { manager().pushEventInAllEventQueue({new DiagnosticEvent}); }

  ControllerHarness m_harness;
  TestSupport::TraceFile m_trace{m_harness.directory().path()};
};

TEST_F(BrokenLocks, of_the_settings_are_told_with_an_event_and_change_nothing) {
  {
    const BrokenLock broken(privateMember<SettingsLockTag>(controller()));
    for (const ClientCallRow& row : settingsCalls()) {
      SCOPED_TRACE(row.name);
      m_harness.forget();
      EXPECT_EQ(row.call(controller()), C::UNABLE_TO_GET_LOCK);
      EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("UNABLE_TO_GET_LOCK E 0"));
    }
  }
  bool halts = true;
  EXPECT_EQ(controller().getHaltOnError(halts), C::SUCCESS);
  EXPECT_FALSE(halts);
  EXPECT_EQ(m_trace.count("INCORRECT_PHASE: "), 1U);
  EXPECT_TRUE(m_trace.contains("DiagnosticController::setDiagnosticModeINCORRECT_PHASE: : 2"));
}

TEST_F(BrokenLocks, of_the_settings_own_object_are_told_alike) {
  const BrokenLock broken(privateMember<OwnSettingsLockTag>(*controller().getGlobalSettingsPtr()));
  for (const ClientCallRow& row : settingsCalls()) {
    SCOPED_TRACE(row.name);
    m_harness.forget();
    EXPECT_EQ(row.call(controller()), C::UNABLE_TO_GET_LOCK);
    EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("UNABLE_TO_GET_LOCK E 0"));
  }
  EXPECT_FALSE(m_trace.contains("INCORRECT_PHASE: "));
}

TEST_F(BrokenLocks, of_the_settings_own_object_name_the_method) {
  GlobalSettings settings(DiagCtrlConstants::DIAG_NO, GlobalSettings::SERIAL, false, false,
                          GlobalSettings::CUSTOMER);
  const BrokenLock broken(privateMember<OwnSettingsLockTag>(settings));
  const std::vector<std::pair<std::string, std::function<void()>>> rows = {
      {"getDebugLog", [&] { settings.getDebugLog(); }},
      {"getRunMode", [&] { settings.getRunMode(); }},
      {"getDiagLogMode", [&] { settings.getDiagLogMode(); }},
      {"getHaltOnError", [&] { settings.getHaltOnError(); }},
      {"getDiagnosticMode", [&] { settings.getDiagnosticMode(); }},
      {"setDebugLog", [&] { settings.setDebugLog(DiagCtrlConstants::DIAG_NO); }},
      {"setRunMode", [&] { settings.setRunMode(GlobalSettings::SERIAL); }},
      {"setDiagLogMode", [&] { settings.setDiagLogMode(true); }},
      {"setHaltOnError", [&] { settings.setHaltOnError(true); }},
      {"setDiagnosticMode", [&] { settings.setDiagnosticMode(GlobalSettings::CUSTOMER); }},
  };
  for (const auto& [method, call] : rows) {
    try {
      call();
      ADD_FAILURE() << method;
    } catch (DiagCtrlMutexException& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::MutexException);
      EXPECT_THAT(failure.dump(), HasSubstr("GlobalSettings::" + method + "()"));
    }
  }
}

TEST_F(BrokenLocks, of_a_queue_make_registering_impossible) {
  const BrokenLock events(privateMember<EventQueueLockTag>(manager()));
  const BrokenLock results(privateMember<ResultQueueLockTag>(manager()));
  const auto rows = registeringCalls(true);
  for (std::size_t kind = 0; kind < 2; ++kind) {
    SCOPED_TRACE(rows[kind].name);
    EXPECT_EQ(rows[kind].call(controller()), C::UNABLE_TO_REGISTER);
  }
  EXPECT_THAT(m_harness.ctrlEvents(),
              ElementsAre("UNABLE_TO_CREATE_QUEUE E 0", "UNABLE_TO_CREATE_QUEUE E 0"));
  EXPECT_EQ(m_trace.count("UNABLE_TO_REGISTER: "), 2U);
}

TEST_F(BrokenLocks, of_the_controller_events_queue_are_told_to_nobody) {
  {
    const BrokenLock broken(privateMember<CtrlEventQueueLockTag>(manager()));
    EXPECT_EQ(registeringCalls(true)[2].call(controller()), C::UNABLE_TO_REGISTER);
    DiagUtil::getInstance()->pushDiagCtrlEvent(DiagCtrlEvent::DISABLE_TEST,
                                               DiagnosticEvent::WARNING_EVENT, 0);
    EXPECT_EQ(fetchingCalls()[2].call(controller()), C::UNABLE_TO_GET_LOCK);
  }
  EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
}

TEST_F(BrokenLocks, of_a_list_leave_a_queue_that_fills_and_is_never_announced) {
  unsigned long id = 0;
  CallBackObject object;
  {
    const BrokenLock broken(privateMember<EventListLockTag>(controller()));
    EXPECT_EQ(controller().registerForDiagEvents(&object, id), C::UNABLE_TO_GET_LOCK);
  }
  EXPECT_EQ(id, 2U) << "written all the same";
  EXPECT_EQ(m_trace.count("UNABLE_TO_GET_LOCK: "), 1U);
  EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
  unsigned int counts[] = {0, 0, 0};
  controller().getNumberOfRegistrations(counts[0], counts[1], counts[2]);
  EXPECT_EQ(counts[0], 1U);
  pushEvent();
  EventVector* drained = nullptr;
  ASSERT_EQ(controller().getDiagnosticEvents(static_cast<long>(id), drained), C::SUCCESS);
  const std::unique_ptr<EventVector> owned(drained);
  ASSERT_THAT(*owned, SizeIs(1));
  delete owned->front();
}

TEST_F(BrokenLocks, of_a_list_end_the_counting_where_it_is) {
  unsigned int counts[] = {kUntouched, kUntouched, kUntouched};
  const BrokenLock broken(privateMember<ResultListLockTag>(controller()));
  EXPECT_EQ(controller().getNumberOfRegistrations(counts[0], counts[1], counts[2]),
            C::UNABLE_TO_GET_LOCK);
  EXPECT_THAT(counts, ElementsAre(1, kUntouched, kUntouched));
  EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
}

TEST_F(BrokenLocks, of_a_list_cost_the_wake_up_and_no_message) {
  {
    const BrokenLock events(privateMember<EventListLockTag>(controller()));
    const BrokenLock results(privateMember<ResultListLockTag>(controller()));
    const BrokenLock ctrlEvents(privateMember<CtrlEventListLockTag>(controller()));
    pushEvent();
    manager().pushResultInAllResultQueue({new DiagnosticResult});
    DiagUtil::getInstance()->pushDiagCtrlEvent(DiagCtrlEvent::DISABLE_TEST,
                                               DiagnosticEvent::WARNING_EVENT, 0);
  }
  EXPECT_THAT(m_harness.events(), SizeIs(1));
  EXPECT_THAT(m_harness.results(), SizeIs(1));
  EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("DISABLE_TEST W 0"));
  EXPECT_TRUE(m_trace.contains("EventManager::pushEventInAllEventQueue - Mutex Exception : "));
  EXPECT_TRUE(m_trace.contains("EventManager::pushResultInAllResultQueue - Mutex Exception : "));
  EXPECT_TRUE(
      m_trace.contains("EventManager::pushCtrlEventInAllCtrlEventQueue - Mutex Exception : "));
}

TEST_F(BrokenLocks, of_a_queue_keep_its_messages_from_being_fetched) {
  const BrokenLock events(privateMember<EventQueueLockTag>(manager()));
  const BrokenLock results(privateMember<ResultQueueLockTag>(manager()));
  const auto rows = fetchingCalls();
  for (std::size_t kind = 0; kind < 2; ++kind) {
    SCOPED_TRACE(rows[kind].name);
    EXPECT_EQ(rows[kind].call(controller()), C::UNABLE_TO_GET_LOCK);
  }
  EXPECT_THAT(m_harness.ctrlEvents(),
              ElementsAre("UNABLE_TO_GET_LOCK E 0", "UNABLE_TO_GET_LOCK E 0"));
}

TEST_F(BrokenLocks, of_the_manager_are_traced_and_thrown_on_as_its_own) {
  const BrokenLock events(privateMember<EventQueueLockTag>(manager()));
  const BrokenLock results(privateMember<ResultQueueLockTag>(manager()));
  const BrokenLock progress(privateMember<ProgressLockTag>(manager()));
  std::string package = "P";
  const std::vector<std::pair<std::string, std::function<void()>>> rows = {
      {"createEventQueue", [] { manager().createEventQueue(); }},
      {"createResultQueue", [] { manager().createResultQueue(); }},
      {"pushEventInAllEventQueue", [] { manager().pushEventInAllEventQueue({}); }},
      {"pushResultInAllResultQueue", [] { manager().pushResultInAllResultQueue({}); }},
      {"getEvents", [] { delete manager().getEvents(1); }},
      {"getResults", [] { delete manager().getResults(1); }},
      {"logProgress", [] { manager().logProgress("P", 1, 2); }},
      {"logStatus", [&] { manager().logStatus(package.data(), 1, Diag::DiagnosticStatus::READY); }},
  };
  for (const auto& [method, call] : rows) {
    SCOPED_TRACE(method);
    EXPECT_THROW(call(), DiagCtrlMutexException);
    EXPECT_TRUE(m_trace.contains("EventManager::" + method + " - Mutex Exception : "));
  }
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
