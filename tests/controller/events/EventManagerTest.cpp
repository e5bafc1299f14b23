// Queues of messages: one for each registration, copies for each, ids from 1 for each kind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/EventManager.h"
#include "tests/support/BrokenLock.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TraceFile.h"

TARVEX_PRIVATE_MEMBER(EventQueuesTag, DiagCtrl::EventManager::mEventMutexLock);
TARVEX_PRIVATE_MEMBER(ResultQueuesTag, DiagCtrl::EventManager::mResultMutexLock);
TARVEX_PRIVATE_MEMBER(CtrlEventQueuesTag, DiagCtrl::EventManager::mCtrlEvtMutexLock);

namespace TarvexDiags::DiagCtrl {
namespace {

using Diag::DiagnosticEvent;
using Diag::DiagnosticResult;
using Diag::DiagnosticStatus;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using TestSupport::privateMember;

/// The three kinds of message behind one face, so that one test serves all of them.
struct Events {
  typedef DiagnosticEvent Message;
  static constexpr std::size_t kBatchSize = 3;
  static unsigned long create(EventManager& manager) { return manager.createEventQueue(); }
  static EventVector* drain(EventManager& manager, unsigned long id) {
    return manager.getEvents(id);
  }
  static void push(EventManager& manager, std::vector<Message*> batch) {
    manager.pushEventInAllEventQueue(std::move(batch));
  }
  static void clear(EventManager& manager) { manager.clearEventQueues(); }
};

struct Results {
  typedef DiagnosticResult Message;
  static constexpr std::size_t kBatchSize = 3;
  static unsigned long create(EventManager& manager) { return manager.createResultQueue(); }
  static ResultVector* drain(EventManager& manager, unsigned long id) {
    return manager.getResults(id);
  }
  static void push(EventManager& manager, std::vector<Message*> batch) {
    manager.pushResultInAllResultQueue(std::move(batch));
  }
  static void clear(EventManager& manager) { manager.clearResultQueues(); }
};

struct CtrlEvents {
  typedef DiagCtrlEvent Message;
  static constexpr std::size_t kBatchSize = 1;  // they are pushed one by one
  static unsigned long create(EventManager& manager) { return manager.createCtrlEventQueue(); }
  static CtrlEventVector* drain(EventManager& manager, unsigned long id) {
    return manager.getCtrlEvents(id);
  }
  static void push(EventManager& manager, std::vector<Message*> batch) {
    for (Message* const message : batch) {
      manager.pushCtrlEventInAllCtrlEventQueue(message);
    }
  }
  static void clear(EventManager& manager) { manager.clearCtrlEventQueues(); }
};

/// A message that tells when it is destroyed.
template <class Message>
class Watched : public Message {
 public:
  Watched(unsigned int code, int& destroyed) : m_destroyed(destroyed) {
    this->setEventCode(code);
    this->setTestRequestId(4);
    this->setParamVector({"one", "two"});
  }
  Watched(const Watched&) = delete;
  ~Watched() override { ++m_destroyed; }

 private:
  int& m_destroyed;
};

class EventManagerBase : public ::testing::Test {
 protected:
  ~EventManagerBase() override {
    delete EventManager::getInstance();
    delete DiagnosticController::getInstance();
  }

  void trace() { DiagTracer::getInstance()->openTraceFile(m_directory.path().c_str(), 3); }

  TestSupport::TemporaryDirectory m_directory;
  /// Asked for anew each time: a test may replace it.
  static EventManager& manager() { return *EventManager::getInstance(); }
};

template <class Kind>
class EventManagerTest : public EventManagerBase {
 protected:
  typedef typename Kind::Message Message;

  ~EventManagerTest() override {
    for (unsigned long id = 1; id <= m_lastId; ++id) {
      drain(id);
    }
    Kind::clear(manager());
  }

  unsigned long create() { return m_lastId = Kind::create(manager()); }

  void push(const std::vector<unsigned int>& codes) {
    std::vector<Message*> batch;
    for (const unsigned int code : codes) {
      batch.push_back(new Watched<Message>(code, m_destroyed));
    }
    Kind::push(manager(), batch);
  }

  std::vector<std::unique_ptr<Message>> drain(unsigned long id) {
    const std::unique_ptr<std::vector<Message*>> drained(Kind::drain(manager(), id));
    EXPECT_NE(drained, nullptr);
    std::vector<std::unique_ptr<Message>> messages;
    for (Message* const message : *drained) {
      messages.emplace_back(message);
    }
    return messages;
  }

  std::vector<unsigned int> codes(unsigned long id) {
    std::vector<unsigned int> found;
    for (const auto& message : drain(id)) {
      found.push_back(message->getEventCode());
    }
    return found;
  }

  bool isUnknown(unsigned long id) {
    try {
      drain(id);
      return false;
    } catch (DiagCtrlKeyNotExistException& failure) {
      EXPECT_EQ(failure.getMinor(), DiagCtrlBaseException::KeyNotExistException);
      return true;
    }
  }

  int m_destroyed = 0;
  unsigned long m_lastId = 0;
};

typedef ::testing::Types<Events, Results, CtrlEvents> Kinds;
TYPED_TEST_SUITE(EventManagerTest, Kinds);

TYPED_TEST(EventManagerTest, ids_count_from_1) {
  EXPECT_EQ(this->create(), 1U);
  EXPECT_EQ(this->create(), 2U);
  EXPECT_EQ(this->create(), 3U);
}

TYPED_TEST(EventManagerTest, an_empty_queue_drains_to_an_empty_vector) {
  EXPECT_THAT(this->drain(this->create()), IsEmpty());
}

TYPED_TEST(EventManagerTest, an_unknown_id_is_a_missing_key) {
  this->create();
  EXPECT_TRUE(this->isUnknown(0));
  EXPECT_TRUE(this->isUnknown(2));
  EXPECT_TRUE(this->isUnknown(static_cast<unsigned long>(-1L)));
}

TYPED_TEST(EventManagerTest, messages_come_out_oldest_first_and_once) {
  const unsigned long id = this->create();
  this->push({5, 3});
  this->push({4});
  EXPECT_THAT(this->codes(id), ElementsAre(5, 3, 4));
  EXPECT_THAT(this->codes(id), IsEmpty());
}

TYPED_TEST(EventManagerTest, each_registration_gets_a_deep_copy_and_the_message_is_destroyed) {
  this->create();
  this->create();
  this->push({7});
  EXPECT_EQ(this->m_destroyed, 1) << "within the call";
  auto first = this->drain(1);
  ASSERT_THAT(first, SizeIs(1));
  first[0]->setParamVector({"changed"});
  first.clear();
  const auto second = this->drain(2);
  ASSERT_THAT(second, SizeIs(1));
  EXPECT_EQ(second[0]->getEventCode(), 7U);
  EXPECT_EQ(second[0]->getTestRequestId(), 4U);
  EXPECT_THAT(second[0]->getParamVector(), ElementsAre("one", "two"));
}

TYPED_TEST(EventManagerTest, draining_one_queue_leaves_the_others) {
  this->create();
  this->create();
  this->push({1, 2});
  EXPECT_THAT(this->codes(1), ElementsAre(1, 2));
  this->push({3});
  EXPECT_THAT(this->codes(2), ElementsAre(1, 2, 3));
  EXPECT_THAT(this->codes(1), ElementsAre(3));
}

TYPED_TEST(EventManagerTest, a_late_registration_sees_nothing_of_what_was_before) {
  this->create();
  this->push({1});
  EXPECT_THAT(this->codes(this->create()), IsEmpty());
}

TYPED_TEST(EventManagerTest, queues_take_any_number) {
  const unsigned long id = this->create();
  for (unsigned int code = 0; code < 5000; ++code) {
    this->push({code});
  }
  const auto codes = this->codes(id);
  ASSERT_THAT(codes, SizeIs(5000));
  EXPECT_EQ(codes.front(), 0U);
  EXPECT_EQ(codes.back(), 4999U);
}

TYPED_TEST(EventManagerTest, cleared_registrations_are_unknown_and_the_counter_goes_on) {
  const unsigned long id = this->create();
  TypeParam::clear(this->manager());
  EXPECT_TRUE(this->isUnknown(id));
  EXPECT_EQ(this->create(), 2U);
  this->push({1});
  EXPECT_THAT(this->codes(2), ElementsAre(1));
  TypeParam::clear(this->manager());
  this->m_lastId = 0;
}

TYPED_TEST(EventManagerTest, a_new_instance_counts_from_1) {
  this->create();
  TypeParam::clear(this->manager());
  delete EventManager::getInstance();
  EXPECT_EQ(this->create(), 1U);
}

TYPED_TEST(EventManagerTest, both_ways_of_a_message_are_traced) {
  this->trace();
  const unsigned long id = this->create();
  this->push({77});
  const TestSupport::TraceFile trace(this->m_directory.path());
  EXPECT_EQ(trace.count("code 77, type INFORMATION_EVENT, request 4"), 1U);
  this->drain(id);
  EXPECT_EQ(trace.count("code 77, type INFORMATION_EVENT, request 4"), 2U);
}

TYPED_TEST(EventManagerTest, a_push_that_runs_out_of_memory_keeps_nothing_of_its_own) {
  DiagnosticController::getInstance();
  unsigned long id = 0;
  std::vector<typename TypeParam::Message*> batch;
  const auto prepare = [&] {
    id = this->create();
    for (int filling = 0; filling < 63; ++filling) {
      this->push({1});  // the next one needs memory of the queue itself
    }
    batch = {};
    for (unsigned int code = 0; code < TypeParam::kBatchSize; ++code) {
      batch.push_back(new Watched<typename TypeParam::Message>(code, this->m_destroyed));
    }
  };
  const auto push = [&] { TypeParam::push(this->manager(), std::exchange(batch, {})); };
  const auto tidy = [&] {
    this->drain(id);
    TypeParam::clear(this->manager());
  };
  TestSupport::failEachAllocation(prepare, push, tidy);
  this->m_lastId = 0;
}

TYPED_TEST(EventManagerTest, a_drain_that_runs_out_of_memory_leaves_the_messages_in_their_queue) {
  DiagnosticController::getInstance();
  unsigned long id = 0;
  std::size_t seen = 0;
  std::vector<typename TypeParam::Message*>* drained = nullptr;
  const auto prepare = [&] {
    id = this->create();
    this->push({1, 2, 3});
    drained = nullptr;
  };
  const auto drain = [&] { drained = TypeParam::drain(this->manager(), id); };
  const auto tidy = [&] {
    seen = drained == nullptr ? 0 : drained->size();
    for (std::size_t index = 0; index < seen; ++index) {
      delete (*drained)[index];
    }
    delete drained;
    seen += this->drain(id).size();
    EXPECT_EQ(seen, 3U);
    TypeParam::clear(this->manager());
  };
  TestSupport::failEachAllocation(prepare, drain, tidy);
  this->m_lastId = 0;
}

TYPED_TEST(EventManagerTest, a_registration_that_runs_out_of_memory_is_none) {
  const auto nothing = [] {};
  TestSupport::failEachAllocation(
      nothing, [&] { this->create(); }, [&] { TypeParam::clear(this->manager()); });
  this->m_lastId = 0;
}

TYPED_TEST(EventManagerTest, a_drain_never_sees_half_a_batch) {
  const unsigned long id = this->create();
  constexpr std::size_t size = TypeParam::kBatchSize;
  constexpr std::size_t batches = 300;
  std::thread pusher([this] {
    for (std::size_t batch = 0; batch < batches; ++batch) {
      this->push(std::vector<unsigned int>(TypeParam::kBatchSize, 1));
    }
  });
  std::size_t seen = 0;
  while (seen < size * batches) {
    const std::size_t drained = this->drain(id).size();
    EXPECT_EQ(drained % size, 0U);
    seen += drained;
  }
  pusher.join();
  EXPECT_EQ(seen, size * batches);
}

class MessagesTest : public EventManagerBase {};

TEST_F(MessagesTest, the_three_kinds_count_separately) {
  manager().createEventQueue();
  manager().createEventQueue();
  EXPECT_EQ(manager().createResultQueue(), 1U);
  EXPECT_EQ(manager().createCtrlEventQueue(), 1U);
  EXPECT_EQ(manager().createEventQueue(), 3U);
  manager().clearEventQueues();
  manager().clearResultQueues();
  manager().clearCtrlEventQueues();
}

TEST_F(MessagesTest, package_messages_are_destroyed_without_any_registration) {
  int destroyed = 0;
  Events::push(manager(), {new Watched<DiagnosticEvent>(1, destroyed),
                           new Watched<DiagnosticEvent>(2, destroyed)});
  Results::push(manager(), {new Watched<DiagnosticResult>(3, destroyed)});
  EXPECT_EQ(destroyed, 3);
}

TEST_F(MessagesTest, a_controller_event_is_destroyed_untold_without_any_registration) {
  trace();
  int destroyed = 0;
  manager().pushCtrlEventInAllCtrlEventQueue(new Watched<DiagCtrlEvent>(91, destroyed));
  EXPECT_EQ(destroyed, 1);
  EXPECT_FALSE(TestSupport::TraceFile(m_directory.path()).contains("code 91"));
  const unsigned long late = manager().createCtrlEventQueue();
  const std::unique_ptr<CtrlEventVector> drained(manager().getCtrlEvents(late));
  EXPECT_THAT(*drained, IsEmpty());
  manager().clearCtrlEventQueues();
}

TEST_F(MessagesTest, what_cannot_be_queued_is_destroyed_as_well) {
  if (!TestSupport::locksCanBreak()) {
    GTEST_SKIP() << "built without locks that can break";
  }
  int destroyed = 0;
  {
    const TestSupport::BrokenLock noEvents(privateMember<EventQueuesTag>(manager()));
    const TestSupport::BrokenLock noResults(privateMember<ResultQueuesTag>(manager()));
    const TestSupport::BrokenLock noCtrlEvents(privateMember<CtrlEventQueuesTag>(manager()));
    EXPECT_THROW(Events::push(manager(), {new Watched<DiagnosticEvent>(1, destroyed),
                                          new Watched<DiagnosticEvent>(2, destroyed)}),
                 DiagCtrlMutexException);
    EXPECT_THROW(Results::push(manager(), {new Watched<DiagnosticResult>(3, destroyed)}),
                 DiagCtrlMutexException);
    EXPECT_THROW(CtrlEvents::push(manager(), {new Watched<DiagCtrlEvent>(4, destroyed)}),
                 DiagCtrlMutexException);
  }
  EXPECT_EQ(destroyed, 4);
}

TEST_F(MessagesTest, a_null_among_the_messages_is_passed_over) {
  const unsigned long id = manager().createEventQueue();
  manager().pushEventInAllEventQueue({new DiagnosticEvent, nullptr, new DiagnosticEvent});
  manager().pushResultInAllResultQueue({nullptr});
  const std::unique_ptr<EventVector> drained(manager().getEvents(id));
  ASSERT_THAT(*drained, SizeIs(2));
  for (DiagnosticEvent* const event : *drained) {
    delete event;
  }
  manager().clearEventQueues();
}

TEST_F(MessagesTest, an_empty_batch_is_nothing) {
  const unsigned long id = manager().createEventQueue();
  manager().pushEventInAllEventQueue({});
  manager().pushResultInAllResultQueue({});
  const std::unique_ptr<EventVector> drained(manager().getEvents(id));
  EXPECT_THAT(*drained, IsEmpty());
  manager().clearEventQueues();
}

TEST_F(MessagesTest, a_result_keeps_its_verdict_in_each_copy) {
  const unsigned long id = manager().createResultQueue();
  auto* const result = new DiagnosticResult;
  result->setTestResult(DiagnosticResult::FAILED);
  result->setEstimatedTime(12);
  manager().pushResultInAllResultQueue({result});
  const std::unique_ptr<ResultVector> drained(manager().getResults(id));
  ASSERT_THAT(*drained, SizeIs(1));
  const std::unique_ptr<DiagnosticResult> copy(drained->front());
  EXPECT_NE(copy.get(), result);
  EXPECT_EQ(copy->getTestResult(), DiagnosticResult::FAILED);
  EXPECT_EQ(copy->getEstimatedTime(), 12);
  manager().clearResultQueues();
}

TEST_F(MessagesTest, a_controller_event_says_what_its_base_says) {
  DiagCtrlEvent event(DiagCtrlEvent::DISABLE_TEST, DiagnosticEvent::WARNING_EVENT);
  event.setTestRequestId(6);
  DiagnosticEvent& base = event;
  EXPECT_EQ(base.dump(), "code 33, type WARNING_EVENT, request 6, parameters []");
  EXPECT_EQ(DiagCtrlEvent(event).dump(), base.dump());
  EXPECT_EQ(DiagCtrlEvent().getEventCode(), 0U);
}

TEST_F(MessagesTest, telling_what_a_controller_event_says_is_traced_like_any_call) {
  trace();
  DiagCtrlEvent().dump();
  const auto texts = TestSupport::TraceFile(m_directory.path()).texts();
  EXPECT_THAT(texts, ElementsAre("@enter DiagCtrlEvent::dump", "@exit DiagCtrlEvent::dump"));
}

// --- Progress

class ProgressTest : public MessagesTest {
 protected:
  ProgressTest() { trace(); }

  std::string lastLine(const std::string& start) {
    std::string found;
    for (const auto& line : TestSupport::TraceFile(m_directory.path()).lines()) {
      if (line.text.find("STRING: " + start) != std::string::npos) {
        found = line.text.substr(line.text.find("STRING: ") + 8);
      }
    }
    return found;
  }
};

TEST_F(ProgressTest, progress_is_a_line_of_the_trace) {
  manager().logProgress("P", 12, 40);
  EXPECT_EQ(lastLine("P"), "P:12=40%");
  manager().logProgress("Memory test", 4294967295UL, 4294967295U);
  EXPECT_EQ(lastLine("Memory"), "Memory test:-1=-1%") << "both read as signed";
}

TEST_F(ProgressTest, status_is_a_line_of_the_same_form) {
  std::string package = "P";
  manager().logStatus(package.data(), 12, DiagnosticStatus::SUSPENDED);
  EXPECT_EQ(lastLine("P"), "P:12:3%");
}

TEST_F(ProgressTest, progress_is_written_at_the_level_of_information_only) {
  DiagTracer::getInstance()->setTraceLevel(DiagCtrlConstants::DIAG_WARNING);
  manager().logProgress("P", 1, 2);
  EXPECT_EQ(lastLine("P"), "");
}

TEST_F(ProgressTest, each_poll_is_a_line) {
  manager().logProgress("P", 1, 2);
  manager().logProgress("P", 1, 2);
  EXPECT_EQ(TestSupport::TraceFile(m_directory.path()).count("P:1=2%"), 2U);
}

}  // namespace
}  // namespace TarvexDiags::DiagCtrl
