// Registering for messages, being woken, and fetching them through the client's calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagUtil.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/EventManager.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Eventually.h"
#include "tests/support/PhaseHold.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/ThreadState.h"
#include "tests/support/TraceFile.h"
#include "tests/support/WaitPlace.h"

TARVEX_PRIVATE_MEMBER(ListOfEventsLockTag, DiagCtrl::DiagnosticController::mmtxEvtCBObjListLock);
TARVEX_PRIVATE_MEMBER(ListOfResultsLockTag, DiagCtrl::DiagnosticController::mmtxResCBObjListLock);
TARVEX_PRIVATE_MEMBER(ListOfCtrlEventsLockTag,
                      DiagCtrl::DiagnosticController::mmtxCtrlEvtCBObjListLock);

namespace TarvexDiags::DiagCtrl {
namespace {

using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::Companion;
using TestSupport::ControllerHarness;
using TestSupport::eventually;
using TestSupport::neverWithin;
using TestSupport::PhaseHold;
using TestSupport::waitPlaceOf;
using TestSupport::waitsAt;
using namespace std::chrono_literals;
typedef DiagControllerStatus Phase;
typedef DiagnosticController::errorCode Code;

/// The three registering calls behind one face.
struct Registering {
  const char* name;
  Code (DiagnosticController::*call)(CallBackObject*, unsigned long&);
  DiagCtrlEvent::eventCode wrongPhaseEvent;
};

const Registering kRegisteringCalls[] = {
    {"events", &DiagnosticController::registerForDiagEvents, DiagCtrlEvent::UNABLE_TO_GET_LOCK},
    {"results", &DiagnosticController::registerForDiagResults, DiagCtrlEvent::INCORRECT_PHASE},
    {"controller events", &DiagnosticController::registerForDiagCtrlEvents,
     DiagCtrlEvent::UNABLE_TO_GET_LOCK},
};

const Phase::diagCtrlPhase kAllPhases[] = {Phase::UNINITIALISED, Phase::ACTIVE,
                                           Phase::IDLE,          Phase::ENUMERATE,
                                           Phase::INITIALIZE,    Phase::ESTIMATION};

void raise(DiagCtrlEvent::eventCode code, unsigned int requestId = 0) {
  DiagUtil::getInstance()->pushDiagCtrlEvent(code, DiagnosticEvent::WARNING_EVENT, requestId);
}

void pushEvents(int number) {
  EventVector batch;
  for (int index = 0; index < number; ++index) {
    batch.push_back(new DiagnosticEvent);
  }
  EventManager::getInstance()->pushEventInAllEventQueue(batch);
}

void pushResult() {
  EventManager::getInstance()->pushResultInAllResultQueue({new DiagnosticResult});
}

typedef std::vector<std::string> Lines;

/// Whether the pieces stand in lines of their own from a line on, in this order.
bool hasInOrder(const Lines& lines, std::size_t from, const Lines& pieces) {
  auto line = lines.begin() + static_cast<std::ptrdiff_t>(from);
  for (const std::string& piece : pieces) {
    line = std::find_if(line, lines.end(), [&](const std::string& candidate) {
      return candidate.find(piece) != std::string::npos;
    });
    if (line == lines.end()) {
      return false;
    }
    ++line;
  }
  return true;
}

/// A controller that is initialised and in any phase that a test puts it into.
class RegistrationTest : public ::testing::Test {
 protected:
  RegistrationTest() {
    m_harness.trace();
    m_harness.initialize();
  }
  ~RegistrationTest() override { setPhase(Phase::INITIALIZE); }

  void setPhase(Phase::diagCtrlPhase phase) { m_harness->setDiagCtrlPhase(phase, -1); }

  unsigned long registerFor(const Registering& kind) {
    unsigned long id = 0;
    EXPECT_EQ((m_harness.controller().*kind.call)(&m_object, id), DiagnosticController::SUCCESS);
    return id;
  }

  std::vector<unsigned int> registrations() {
    unsigned int events = 0;
    unsigned int results = 0;
    unsigned int ctrlEvents = 0;
    EXPECT_EQ(m_harness->getNumberOfRegistrations(events, results, ctrlEvents),
              DiagnosticController::SUCCESS);
    return {events, results, ctrlEvents};
  }

  CallBackObject m_object;
  ControllerHarness m_harness;
  TestSupport::TraceFile m_trace{m_harness.directory().path()};
};

// --- Registering

TEST_F(RegistrationTest, a_null_object_is_refused_in_every_phase_without_an_event) {
  m_harness.registerForAll();
  const PhaseHold hold(m_harness.controller());
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_ERROR);
  for (const auto phase : kAllPhases) {
    setPhase(phase);
    for (const Registering& kind : kRegisteringCalls) {
      unsigned long id = 99;
      EXPECT_EQ((m_harness.controller().*kind.call)(nullptr, id),
                DiagnosticController::INVALID_OBJECT_PASSED);
      EXPECT_EQ(id, 99U);
    }
  }
  setPhase(Phase::IDLE);
  EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
  EXPECT_EQ(m_trace.count("INVALID_OBJECT_PASSED: "), 3 * std::size(kAllPhases));
}

TEST_F(RegistrationTest, is_open_in_every_phase_but_UNINITIALISED) {
  m_harness.registerForAll();
  const PhaseHold hold(m_harness.controller());
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_ERROR);
  for (const auto phase : kAllPhases) {
    SCOPED_TRACE(TestSupport::nameOf(phase));
    for (const Registering& kind : kRegisteringCalls) {
      SCOPED_TRACE(kind.name);
      setPhase(Phase::IDLE);
      m_harness.forget();
      setPhase(phase);
      unsigned long id = 0;
      const Code code = (m_harness.controller().*kind.call)(&m_object, id);
      setPhase(Phase::IDLE);
      if (phase == Phase::UNINITIALISED) {
        EXPECT_EQ(code, DiagnosticController::INCORRECT_PHASE);
        EXPECT_EQ(id, 0U);
        EXPECT_THAT(m_harness.ctrlEvents(),
                    ElementsAre(TestSupport::nameOf(kind.wrongPhaseEvent) + " E 0"));
      } else {
        EXPECT_EQ(code, DiagnosticController::SUCCESS);
        EXPECT_GT(id, 1U);
        EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
      }
    }
  }
  EXPECT_EQ(m_trace.count("INCORRECT_PHASE: "), 3U);
}

TEST(BeforeInitialize, registering_is_refused_and_nothing_is_reached) {
  CallBackObject object;
  ControllerHarness harness;
  for (const Registering& kind : kRegisteringCalls) {
    unsigned long id = 0;
    EXPECT_EQ((harness.controller().*kind.call)(&object, id),
              DiagnosticController::INCORRECT_PHASE);
  }
}

TEST_F(RegistrationTest, counts_entries_of_each_kind_and_does_not_merge_equal_objects) {
  registerFor(kRegisteringCalls[0]);
  registerFor(kRegisteringCalls[0]);
  registerFor(kRegisteringCalls[2]);
  EXPECT_THAT(registrations(), ElementsAre(2, 0, 1));
  EventManager::getInstance()->clearEventQueues();
  EXPECT_THAT(registrations(), ElementsAre(2, 0, 1)) << "entries, not queues";
}

TEST_F(RegistrationTest, counting_is_refused_in_UNINITIALISED_and_ENUMERATE) {
  m_harness.registerForAll();
  const PhaseHold hold(m_harness.controller());
  for (const auto phase : kAllPhases) {
    SCOPED_TRACE(TestSupport::nameOf(phase));
    setPhase(Phase::IDLE);
    m_harness.forget();
    setPhase(phase);
    unsigned int counts[] = {7, 7, 7};
    const Code code = m_harness->getNumberOfRegistrations(counts[0], counts[1], counts[2]);
    setPhase(Phase::IDLE);
    if (phase == Phase::UNINITIALISED || phase == Phase::ENUMERATE) {
      EXPECT_EQ(code, DiagnosticController::INCORRECT_PHASE);
      EXPECT_THAT(counts, ElementsAre(7, 7, 7));
      EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("INCORRECT_PHASE E 0"));
    } else {
      EXPECT_EQ(code, DiagnosticController::SUCCESS);
      EXPECT_THAT(counts, ElementsAre(1, 1, 1));
      EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
    }
  }
}

TEST_F(RegistrationTest, nothing_of_it_survives_a_shut_down_and_objects_can_be_used_again) {
  const unsigned long id = registerFor(kRegisteringCalls[2]);
  m_harness.shutDown();
  m_harness.initialize();
  EXPECT_THAT(registrations(), ElementsAre(0, 0, 0));
  CtrlEventVector* drained = nullptr;
  EXPECT_EQ(m_harness->getDiagnosticCtrlEvents(static_cast<long>(id), drained),
            DiagnosticController::CTRL_EVENT_REG_ID_NOT_FOUND);
  EXPECT_EQ(registerFor(kRegisteringCalls[2]), 1U) << "ids start anew";
}

// --- Being woken

/// Threads that wait on one object.
class Waiters {
 public:
  Waiters(CallBackObject& object, int number) : m_object(object) {
    for (int index = 0; index < number; ++index) {
      m_threads.emplace_back([&object] { object.wait(); });
    }
    for (const Companion& thread : m_threads) {
      EXPECT_TRUE(waitsAt(thread, waitPlaceOf(object)));
    }
  }
  ~Waiters() {
    eventually([this] {
      m_object.notify();
      return woken() == static_cast<int>(m_threads.size());
    });
  }
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;

  int woken() const {
    return static_cast<int>(std::count_if(m_threads.begin(), m_threads.end(),
                                          [](const Companion& thread) { return thread.ended(); }));
  }
  bool wakes(int number) const {
    return eventually([&] { return woken() >= number; }) &&
           neverWithin(100ms, [&] { return woken() > number; });
  }

 private:
  CallBackObject& m_object;
  std::list<Companion> m_threads;
};

TEST_F(RegistrationTest, a_batch_is_one_signal_and_wakes_one_waiter) {
  registerFor(kRegisteringCalls[0]);
  const Waiters waiters(m_object, 3);
  pushEvents(5);
  EXPECT_TRUE(waiters.wakes(1));
}

TEST_F(RegistrationTest, an_object_that_is_registered_twice_is_signalled_twice) {
  EXPECT_EQ(registerFor(kRegisteringCalls[0]), 1U);
  EXPECT_EQ(registerFor(kRegisteringCalls[0]), 2U);
  const Waiters waiters(m_object, 3);
  pushEvents(1);
  EXPECT_TRUE(waiters.wakes(2));
}

TEST_F(RegistrationTest, an_empty_batch_and_other_kinds_wake_nobody) {
  registerFor(kRegisteringCalls[0]);
  const Waiters waiters(m_object, 1);
  pushEvents(0);
  pushResult();
  raise(DiagCtrlEvent::DISABLE_TEST);
  EXPECT_TRUE(waiters.wakes(0));
}

TEST_F(RegistrationTest, each_kind_wakes_its_own) {
  for (std::size_t kind = 0; kind < 3; ++kind) {
    SCOPED_TRACE(kRegisteringCalls[kind].name);
    CallBackObject object;
    unsigned long id = 0;
    (m_harness.controller().*kRegisteringCalls[kind].call)(&object, id);
    {
      const Waiters waiters(object, 1);
      kind == 0 ? pushEvents(1) : kind == 1 ? pushResult() : raise(DiagCtrlEvent::DISABLE_TEST);
      EXPECT_TRUE(waiters.wakes(1));
    }
    m_harness.shutDown();
    m_harness.initialize();
  }
}

TEST_F(RegistrationTest, without_a_queue_messages_are_gone_and_objects_are_still_woken) {
  registerFor(kRegisteringCalls[0]);
  EventManager::getInstance()->clearEventQueues();
  const Waiters waiters(m_object, 1);
  pushEvents(1);
  EXPECT_TRUE(waiters.wakes(1));
}

TEST_F(RegistrationTest, a_signal_that_nobody_waits_for_is_lost) {
  registerFor(kRegisteringCalls[0]);
  pushEvents(1);
  const Waiters waiters(m_object, 1);
  EXPECT_TRUE(waiters.wakes(0));
}

TEST_F(RegistrationTest, a_woken_client_finds_the_whole_batch) {
  const unsigned long id = registerFor(kRegisteringCalls[0]);
  std::size_t found = 0;
  Companion client([&] {
    m_object.wait();
    const std::unique_ptr<EventVector> events(EventManager::getInstance()->getEvents(id));
    found = events->size();
    std::for_each(events->begin(), events->end(), [](DiagnosticEvent* event) { delete event; });
  });
  ASSERT_TRUE(waitsAt(client, waitPlaceOf(m_object)));
  pushEvents(50);
  ASSERT_TRUE(client.ends());
  EXPECT_EQ(found, 50U);
}

/// Holds the list's lock, so that the push gets stuck at its wake-up.
void expectPushKeepsFetchingOut(DiagCtrlLock& listLock, const std::function<void()>& push,
                                const std::function<void()>& fetch) {
  listLock.lock(-1);
  const Companion pusher(push);
  EXPECT_TRUE(waitsAt(pusher, waitPlaceOf(listLock)));
  const Companion client(fetch);
  EXPECT_TRUE(client.blocks());
  EXPECT_TRUE(neverWithin(50ms, [&] { return client.ended(); }));
  listLock.unlock();
  EXPECT_TRUE(pusher.ends());
  EXPECT_TRUE(client.ends());
}

TEST_F(RegistrationTest, the_wake_up_belongs_to_the_push_and_fetching_waits_for_it) {
  m_harness.registerForAll();
  setPhase(Phase::IDLE);
  DiagnosticController& controller = m_harness.controller();
  expectPushKeepsFetchingOut(
      TestSupport::privateMember<ListOfEventsLockTag>(controller), [] { pushEvents(1); },
      [&] { EXPECT_THAT(m_harness.events(), SizeIs(1)); });
  expectPushKeepsFetchingOut(TestSupport::privateMember<ListOfResultsLockTag>(controller),
                             pushResult, [&] { EXPECT_THAT(m_harness.results(), SizeIs(1)); });
  expectPushKeepsFetchingOut(
      TestSupport::privateMember<ListOfCtrlEventsLockTag>(controller),
      [] { raise(DiagCtrlEvent::DISABLE_TEST); },
      [&] { EXPECT_THAT(m_harness.ctrlEvents(), SizeIs(1)); });
}

// --- Raising controller events

TEST_F(RegistrationTest, a_controller_event_carries_code_type_request_and_one_empty_parameter) {
  const unsigned long id = registerFor(kRegisteringCalls[2]);
  raise(DiagCtrlEvent::TEST_REQUEST_ABORTED, 12);
  const std::unique_ptr<CtrlEventVector> events(EventManager::getInstance()->getCtrlEvents(id));
  ASSERT_THAT(*events, SizeIs(1));
  const std::unique_ptr<DiagCtrlEvent> event(events->front());
  EXPECT_EQ(event->getEventCode(), 61U);
  EXPECT_EQ(event->getEventType(), DiagnosticEvent::WARNING_EVENT);
  EXPECT_EQ(event->getTestRequestId(), 12U);
  EXPECT_THAT(event->getParamVector(), ElementsAre(""));
}

TEST_F(RegistrationTest, events_can_be_raised_from_many_threads_at_once) {
  m_harness.registerForAll();
  constexpr int threads = 8;
  constexpr int each = 200;
  std::vector<std::thread> raisers;
  for (int thread = 0; thread < threads; ++thread) {
    raisers.emplace_back([] {
      for (int number = 0; number < each; ++number) {
        raise(DiagCtrlEvent::DISABLE_TEST);
      }
    });
  }
  for (std::thread& raiser : raisers) {
    raiser.join();
  }
  EXPECT_THAT(m_harness.ctrlEvents(), SizeIs(threads * each));
}

TEST(RaisingUnderLocks, an_event_can_be_raised_wherever_a_package_is_called) {
  using Scripted::Call;
  ControllerHarness harness;
  Scripted::Script& alpha = harness.addPackage("ALPHA");
  const std::vector<Call> calls = {Call::SetConfigFile, Call::GetDevices,        Call::IsSupported,
                                   Call::RunEnter,      Call::GetEvents,         Call::GetStatus,
                                   Call::GetResults,    Call::DestroyDiagnostics};
  for (const Call call : calls) {
    alpha.on(call, [call](const Scripted::CallRecord&) {
      raise(DiagCtrlEvent::DISABLE_TEST, static_cast<unsigned int>(call) + 1000);
    });
  }
  harness.start();
  ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1})));
  for (const Call call : calls) {
    EXPECT_TRUE(harness.awaitCtrlEvent("DISABLE_TEST W " +
                                       std::to_string(static_cast<unsigned int>(call) + 1000)))
        << Scripted::nameOf(call);
  }
}

TEST(BeforeInitialize, an_event_can_be_raised_and_reaches_nobody) {
  ControllerHarness harness;
  harness.controller();
  raise(DiagCtrlEvent::DISABLE_TEST);
  harness.initialize();
  harness.registerForAll();
  EXPECT_THAT(harness.ctrlEvents(), IsEmpty());
}

TEST(BeforeInitialize, what_was_raised_outlives_no_controller) {
  {
    ControllerHarness harness;
    GlobalSettings::runMode mode = GlobalSettings::SERIAL;
    EXPECT_EQ(harness->getRunMode(mode), DiagnosticController::INCORRECT_PHASE);
  }
  ControllerHarness next;
  next.initialize();
  next.registerForAll();
  raise(DiagCtrlEvent::DISABLE_TEST);
  EXPECT_THAT(next.ctrlEvents(), ElementsAre("DISABLE_TEST W 0"));
}

// --- Fetching

class FetchingTest : public RegistrationTest {
 protected:
  FetchingTest() {
    m_harness.registerForAll();
    setPhase(Phase::IDLE);
  }

  /// Fetches events; nothing may be there.
  Code fetchEvents(long id) { return fetch(&DiagnosticController::getDiagnosticEvents, id); }
  Code fetchResults(long id) { return fetch(&DiagnosticController::getDiagnosticResults, id); }
  Code fetchCtrlEvents(long id) {
    return fetch(&DiagnosticController::getDiagnosticCtrlEvents, id);
  }

  template <class Vector>
  Code fetch(Code (DiagnosticController::*call)(long, Vector*&), long id) {
    static Vector sentinel;
    Vector* drained = &sentinel;
    const Code code = (m_harness.controller().*call)(id, drained);
    if (code == DiagnosticController::SUCCESS) {
      EXPECT_NE(drained, &sentinel);
      EXPECT_THAT(*drained, IsEmpty());
      delete drained;
    } else {
      EXPECT_EQ(drained, &sentinel) << "untouched";
    }
    return code;
  }
};

TEST_F(FetchingTest, an_empty_queue_is_a_success) {
  EXPECT_EQ(fetchEvents(1), DiagnosticController::SUCCESS);
  EXPECT_EQ(fetchResults(1), DiagnosticController::SUCCESS);
  EXPECT_EQ(fetchCtrlEvents(1), DiagnosticController::SUCCESS);
}

TEST_F(FetchingTest, an_unknown_id_has_the_code_of_results_for_events_too) {
  for (const long id : {0L, 2L, -1L}) {
    m_harness.forget();
    EXPECT_EQ(fetchEvents(id), DiagnosticController::RESULT_REG_ID_NOT_FOUND);
    EXPECT_EQ(fetchResults(id), DiagnosticController::RESULT_REG_ID_NOT_FOUND);
    EXPECT_THAT(m_harness.ctrlEvents(),
                ElementsAre("RESULT_REG_ID_NOT_FOUND E 0", "RESULT_REG_ID_NOT_FOUND E 0"));
  }
  EXPECT_EQ(m_trace.count("RESULT REG ID NOT FOUND, INCORRECT REG ID:"), 3U) << "results only";
}

TEST_F(FetchingTest, an_unknown_id_of_controller_events_differs_in_code_and_event) {
  for (const long id : {0L, 7L, -1L}) {
    m_harness.forget();
    EXPECT_EQ(fetchCtrlEvents(id), DiagnosticController::CTRL_EVENT_REG_ID_NOT_FOUND);
  }
  EXPECT_EQ(DiagnosticController::CTRL_EVENT_REG_ID_NOT_FOUND, 36U);
  EXPECT_EQ(DiagCtrlEvent::CTRL_EV_REG_ID_NOT_FOUND, 11U);
  EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("CTRL_EV_REG_ID_NOT_FOUND E 0"));
  EXPECT_TRUE(m_trace.contains("CTRL EVENT REG ID NOT FOUND, INCORRECT REG ID:"));
}

TEST_F(FetchingTest, ids_of_the_kinds_overlap) {
  unsigned long resultId = 0;
  m_harness->registerForDiagResults(&m_object, resultId);
  unsigned long eventId = 0;
  m_harness->registerForDiagEvents(&m_object, eventId);
  ASSERT_EQ(resultId, eventId);
  pushEvents(2);
  EventVector* drained = nullptr;
  ASSERT_EQ(m_harness->getDiagnosticEvents(static_cast<long>(resultId), drained),
            DiagnosticController::SUCCESS);
  const std::unique_ptr<EventVector> owned(drained);
  EXPECT_THAT(*owned, SizeIs(2)) << "the other client's";
  std::for_each(owned->begin(), owned->end(), [](DiagnosticEvent* event) { delete event; });
  EXPECT_THAT(m_harness.events(), SizeIs(2)) << "the first registration has its own";
}

TEST_F(FetchingTest, events_and_results_are_fetched_in_ACTIVE_and_IDLE_only) {
  const PhaseHold hold(m_harness.controller());
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_ERROR);
  for (const auto phase : kAllPhases) {
    SCOPED_TRACE(TestSupport::nameOf(phase));
    setPhase(Phase::IDLE);
    m_harness.forget();
    setPhase(phase);
    const Code events = fetchEvents(1);
    setPhase(phase);
    const Code results = fetchResults(1);
    setPhase(Phase::IDLE);
    if (phase == Phase::ACTIVE || phase == Phase::IDLE) {
      EXPECT_EQ(events, DiagnosticController::SUCCESS);
      EXPECT_EQ(results, DiagnosticController::SUCCESS);
      EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
    } else {
      EXPECT_EQ(events, DiagnosticController::INCORRECT_PHASE);
      EXPECT_EQ(results, DiagnosticController::INCORRECT_PHASE);
      EXPECT_THAT(m_harness.ctrlEvents(),
                  ElementsAre("INCORRECT_PHASE E 0", "INCORRECT_PHASE E 0"));
    }
  }
  EXPECT_EQ(m_trace.count("INCORRECT_PHASE: "), 8U) << "two calls in each of four phases";
}

TEST_F(FetchingTest, controller_events_are_fetched_in_INITIALIZE_too_and_a_refusal_is_silent) {
  const PhaseHold hold(m_harness.controller());
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_ERROR);
  for (const auto phase : kAllPhases) {
    SCOPED_TRACE(TestSupport::nameOf(phase));
    setPhase(phase);
    const Code code = fetchCtrlEvents(1);
    setPhase(Phase::IDLE);
    const bool isOpen =
        phase == Phase::ACTIVE || phase == Phase::IDLE || phase == Phase::INITIALIZE;
    EXPECT_EQ(code, isOpen ? DiagnosticController::SUCCESS : DiagnosticController::INCORRECT_PHASE);
    EXPECT_THAT(m_harness.ctrlEvents(), IsEmpty());
  }
  EXPECT_EQ(m_trace.count("INCORRECT_PHASE: "), 3U) << "but it is traced";
}

TEST_F(FetchingTest, messages_belong_to_the_client) {
  pushEvents(1);
  pushResult();
  raise(DiagCtrlEvent::DISABLE_TEST, 3);
  EXPECT_THAT(m_harness.events(), ElementsAre("0 I 0"));
  EXPECT_THAT(m_harness.results(), ElementsAre("UNUSUAL_STATUS 0"));
  EXPECT_THAT(m_harness.ctrlEvents(), ElementsAre("DISABLE_TEST W 3"));
}

// --- The order of what a refusal leaves in the trace

struct RefusalOrder {
  const char* name;
  std::function<void(DiagnosticController&)> call;
  Lines pieces;  ///< of the call's trace, in their order
};

TEST_F(RegistrationTest, a_refusal_is_traced_and_raised_in_the_order_of_its_call) {
  const std::string raised = "@enter DiagUtil::pushDiagCtrlEvent";
  const std::string text = "INCORRECT_PHASE: ";
  GlobalSettings::runMode mode = GlobalSettings::SERIAL;
  unsigned long id = 0;
  EventVector* events = nullptr;
  ResultVector* results = nullptr;
  const RefusalOrder rows[] = {
      {"setter",
       [](DiagnosticController& c) { c.setRunMode(GlobalSettings::SERIAL); },
       {"getDiagCtrlPhase", "@exit DiagnosticController::setRunMode", raised}},
      {"getter",
       [&](DiagnosticController& c) { c.getRunMode(mode); },
       {"getDiagCtrlPhase", "@exit DiagnosticController::getRunMode", raised}},
      {"registering",
       [&](DiagnosticController& c) { c.registerForDiagResults(&m_object, id); },
       {"getDiagCtrlPhase", raised, text, "@exit DiagnosticController::registerForDiagResults"}},
      {"fetching",
       [&](DiagnosticController& c) { c.getDiagnosticEvents(1, events); },
       {"getDiagCtrlPhase", text, raised}},
  };
  for (const RefusalOrder& row : rows) {
    setPhase(Phase::UNINITIALISED);
    const std::size_t before = m_trace.texts().size();
    row.call(m_harness.controller());
    EXPECT_TRUE(hasInOrder(m_trace.texts(), before, row.pieces)) << row.name;
  }
  setPhase(Phase::IDLE);
  const std::size_t before = m_trace.texts().size();
  m_harness->getDiagnosticResults(7, results);
  EXPECT_TRUE(hasInOrder(m_trace.texts(), before,
                         {"EventManager::getResults", "INCORRECT REG ID:", raised}));
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
