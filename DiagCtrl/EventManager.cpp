#include "DiagCtrl/EventManager.h"

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/DiagCtrlKeyNotExistException.h"
#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagTracer.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/internal/foundation/Raise.h"
#include "DiagCtrl/internal/foundation/TraceScope.h"
#include "DiagCtrl/internal/foundation/TracedLock.h"
#include "DiagCtrl/internal/ground/Singleton.h"

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr long kTimeOut = DiagCtrlConstants::mSconlDefaultLockTimeOut;

// Shared by those who use the instance without being sure that it stays, taken alone to destroy it.
System::SharedMutex sLifetimeMutex;

template <class Queue>
unsigned long addQueue(std::map<unsigned long, Queue*>& arQueues, unsigned long& arLastId) {
  auto queue = std::make_unique<Queue>();
  arQueues.emplace(arLastId + 1, queue.get());
  static_cast<void>(queue.release());
  return ++arLastId;
}

/// A batch that was handed over: what is left of it is destroyed, whichever way the call ends.
template <class Message>
class OwnedBatch {
 public:
  explicit OwnedBatch(std::vector<Message*>& arMessages) : mrMessages(arMessages) {}
  ~OwnedBatch() {
    for (Message* message : mrMessages) {
      delete message;
    }
  }
  OwnedBatch(const OwnedBatch&) = delete;
  OwnedBatch& operator=(const OwnedBatch&) = delete;

 private:
  std::vector<Message*>& mrMessages;
};

/// Copies a message into every queue of its kind and destroys it. A registration for whose copy
/// there is no memory goes without; the others do not. A package that hands over a null among its
/// messages has handed over nothing.
template <class Message, class Queue>
void fanOut(const TraceScope& arTrace, std::unique_ptr<Message> incoming,
            std::map<unsigned long, Queue*>& arQueues) {
  if (incoming == nullptr) {
    return;
  }
  arTrace.infoOf([&] { return incoming->dump(); });
  for (const auto& [id, queue] : arQueues) {
    try {
      auto copy = std::make_unique<Message>(*incoming);
      queue->push(copy.get());
      static_cast<void>(copy.release());
    } catch (const std::bad_alloc&) {
      arTrace.errorValue("No memory for a message to registration", id);
    }
  }
}

/// The clients are woken once for a batch. They lose nothing but the wake-up if that fails.
template <class Notify>
void wake(const TraceScope& arTrace, Notify aNotify) {
  try {
    (DiagnosticController::getInstance()->*aNotify)();
  } catch (DiagCtrlMutexException& failure) {
    arTrace.error(std::string(arTrace.method()) + " - Mutex Exception : " + failure.dump());
  }
}

template <class Message, class Queue>
void fanOutBatch(const TraceScope& arTrace, std::vector<Message*>& arMessages,
                 std::map<unsigned long, Queue*>& arQueues,
                 void (DiagnosticController::*apNotify)()) {
  if (arMessages.empty()) {
    return;
  }
  for (Message*& message : arMessages) {
    fanOut(arTrace, std::unique_ptr<Message>(std::exchange(message, nullptr)), arQueues);
  }
  wake(arTrace, apNotify);
}

template <class Message, class Queue>
std::vector<Message*>* drain(const TraceScope& arTrace, unsigned long aulId,
                             std::map<unsigned long, Queue*>& arQueues, const char* apcText) {
  const auto entry = arQueues.find(aulId);
  if (entry == arQueues.end()) {
    raise<DiagCtrlKeyNotExistException>(DiagCtrlBaseException::KeyNotExistException, apcText);
  }
  Queue& queue = *entry->second;
  auto messages = std::make_unique<std::vector<Message*>>();
  messages->reserve(queue.size());  // a message that has left its queue is not lost any more
  for (; !queue.empty(); queue.pop()) {
    messages->push_back(queue.front());
  }
  for (Message* message : *messages) {
    arTrace.infoOf([&] { return message->dump(); });
  }
  return messages.release();
}

// The messages stay allocated: nobody may rely on a destructor having run.
template <class Queue>
void clearQueues(std::map<unsigned long, Queue*>& arQueues) {
  for (const auto& [id, queue] : arQueues) {
    delete queue;
  }
  arQueues.clear();
}

std::string decimal(unsigned long aulValue) {
  return std::to_string(static_cast<int>(aulValue));
}

}  // namespace

System::Mutex EventManager::mSInstanceMutex;
EventManager* EventManager::mSEventManager = nullptr;

EventManager::InstanceUse::InstanceUse() {
  sLifetimeMutex.lockShared();
}

EventManager::InstanceUse::~InstanceUse() {
  sLifetimeMutex.unlockShared();
}

EventManager* EventManager::getInstance() {
  const System::LockHold hold(mSInstanceMutex);
  return instanceOf(mSEventManager, [] { return new EventManager; });
}

EventManager::EventManager()
    : mSulCurEventRegId(DiagCtrlConstants::miSInitialRegId),
      mSulCurResultRegId(DiagCtrlConstants::miSInitialRegId),
      mSulCurCtrlEvtRegId(DiagCtrlConstants::miSInitialRegId),
      mProgressMutexLock(kTimeOut),
      mEventMutexLock(kTimeOut),
      mResultMutexLock(kTimeOut),
      mCtrlEvtMutexLock(kTimeOut),
      mpDiagTracer(DiagTracer::getInstance()) {}

EventManager::~EventManager() {
  const System::LockHold alone(sLifetimeMutex);
  mpDiagTracer = nullptr;
  const System::LockHold hold(mSInstanceMutex);
  mSEventManager = nullptr;
}

unsigned long EventManager::createEventQueue() {
  const TraceScope trace(mpDiagTracer, "EventManager::createEventQueue");
  const TracedLock lock(trace, mEventMutexLock, 0, "EventManager::createEventQueue()");
  return addQueue(mPkgEventMap, mSulCurEventRegId);
}

unsigned long EventManager::createResultQueue() {
  const TraceScope trace(mpDiagTracer, "EventManager::createResultQueue");
  const TracedLock lock(trace, mResultMutexLock, 0, "EventManager::createResultQueue()");
  return addQueue(mPkgResultMap, mSulCurResultRegId);
}

unsigned long EventManager::createCtrlEventQueue() {
  const TraceScope trace(mpDiagTracer, "EventManager::createCtrlEventQueue");
  const TracedLock lock(trace, mCtrlEvtMutexLock, 0, "EventManager::createCtrlEventQueue()");
  return addQueue(mCtrlEventMap, mSulCurCtrlEvtRegId);
}

void EventManager::pushEventInAllEventQueue(EventVector aPkgEventVector) {
  const TraceScope trace(mpDiagTracer, "EventManager::pushEventInAllEventQueue");
  const OwnedBatch owned(aPkgEventVector);
  const TracedLock lock(trace, mEventMutexLock, 0, "EventManager::pushEventInAllEventQueue()");
  fanOutBatch(trace, aPkgEventVector, mPkgEventMap, &DiagnosticController::notifyEvent);
}

void EventManager::pushResultInAllResultQueue(ResultVector aPkgResultVector) {
  const TraceScope trace(mpDiagTracer, "EventManager::pushResultInAllResultQueue");
  const OwnedBatch owned(aPkgResultVector);
  const TracedLock lock(trace, mResultMutexLock, 0, "EventManager::pushResultInAllResultQueue()");
  fanOutBatch(trace, aPkgResultVector, mPkgResultMap, &DiagnosticController::notifyResult);
}

void EventManager::pushCtrlEventInAllCtrlEventQueue(DiagCtrlEvent* aCtrlEvent) {
  const TraceScope trace(mpDiagTracer, "EventManager::pushCtrlEventInAllCtrlEventQueue");
  std::unique_ptr<DiagCtrlEvent> event(aCtrlEvent);
  const TracedLock lock(trace, mCtrlEvtMutexLock, 0,
                        "EventManager::pushCtrlEventInAllCtrlEventQueue()");
  if (mCtrlEventMap.empty()) {
    return;  // nobody is told, not even the trace
  }
  fanOut(trace, std::move(event), mCtrlEventMap);
  wake(trace, &DiagnosticController::notifyCtrlEvent);
}

EventVector* EventManager::getEvents(unsigned long aulEventRegId) {
  const TraceScope trace(mpDiagTracer, "EventManager::getEvents");
  const TracedLock lock(trace, mEventMutexLock, -1, "EventManager::getEvents()");
  return drain<Diag::DiagnosticEvent>(trace, aulEventRegId, mPkgEventMap,
                                      "EventManager::getEvents()");
}

ResultVector* EventManager::getResults(unsigned long aulResultRegId) {
  const TraceScope trace(mpDiagTracer, "EventManager::getResults");
  const TracedLock lock(trace, mResultMutexLock, -1, "EventManager::getResults()");
  return drain<Diag::DiagnosticResult>(trace, aulResultRegId, mPkgResultMap,
                                       "EventManager::getResults()");
}

CtrlEventVector* EventManager::getCtrlEvents(unsigned long aulCtrlEventRegId) {
  const TraceScope trace(mpDiagTracer, "EventManager::getCtrlEvents");
  const TracedLock lock(trace, mCtrlEvtMutexLock, -1, "EventManager::getCtrlEvents()");
  return drain<DiagCtrlEvent>(trace, aulCtrlEventRegId, mCtrlEventMap,
                              "EventManager::getCtrlEvents()");
}

void EventManager::clearEventQueues() {
  const TraceScope trace(mpDiagTracer, "EventManager::clearEventQueues");
  const TracedLock lock(trace, mEventMutexLock, 0, "EventManager::clearEventQueues()");
  clearQueues(mPkgEventMap);
}

void EventManager::clearResultQueues() {
  const TraceScope trace(mpDiagTracer, "EventManager::clearResultQueues");
  const TracedLock lock(trace, mResultMutexLock, 0, "EventManager::clearResultQueues()");
  clearQueues(mPkgResultMap);
}

void EventManager::clearCtrlEventQueues() {
  const TraceScope trace(mpDiagTracer, "EventManager::clearCtrlEventQueues");
  const TracedLock lock(trace, mCtrlEvtMutexLock, 0, "EventManager::clearCtrlEventQueues()");
  clearQueues(mCtrlEventMap);
}

void EventManager::logProgress(const char* apcPackagename, unsigned long aulTestRequestId,
                               unsigned int auiProgress) {
  const TraceScope trace(mpDiagTracer, "EventManager::logProgress");
  const TracedLock lock(trace, mProgressMutexLock, 0, "EventManager::logProgress()");
  trace.infoOf([&] {
    return std::string(apcPackagename) + ":" + decimal(aulTestRequestId) + "=" +
           decimal(auiProgress) + "%";
  });
}

void EventManager::logStatus(char* apcPackagename, unsigned long aulTestRequestId,
                             Diag::DiagnosticStatus::Status aeStatus) {
  const TraceScope trace(mpDiagTracer, "EventManager::logStatus");
  const TracedLock lock(trace, mProgressMutexLock, 0, "EventManager::logStatus()");
  trace.info(std::string(apcPackagename) + ":" + decimal(aulTestRequestId) + ":" +
             decimal(aeStatus) + "%");
}

}  // namespace TarvexDiags::DiagCtrl
