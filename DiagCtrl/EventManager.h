#pragma once

#include <map>
#include <queue>
#include <vector>

#include "Diag/DiagnosticEvent.h"
#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticStatus.h"
#include "DiagCtrl/DiagCtrlEvent.h"
#include "DiagCtrl/DiagCtrlLock.h"
#include "System/Export.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"

namespace TarvexDiags::DiagCtrl {

class DiagTracer;

typedef std::vector<Diag::DiagnosticEvent*> EventVector;
typedef std::vector<Diag::DiagnosticResult*> ResultVector;
typedef std::vector<DiagCtrlEvent*> CtrlEventVector;
typedef std::queue<Diag::DiagnosticEvent*> EventQueue;
typedef std::queue<Diag::DiagnosticResult*> ResultQueue;
typedef std::queue<DiagCtrlEvent*> CtrlEventQueue;
typedef std::map<unsigned long, EventQueue*> EventQueueMap;
typedef std::map<unsigned long, ResultQueue*> ResultQueueMap;
typedef std::map<unsigned long, CtrlEventQueue*> CtrlEventQueueMap;

/// The post office between the tests and the clients. Each registration of a kind of message has a
/// queue of its own; a message is copied into every queue of its kind, and the clients of that kind
/// are woken once for a batch, with the kind's lock held, so that a client never sees half a batch.
///
/// Queues have no limit, and a registration lasts until its kind is cleared. Ids count from 1
/// separately for each kind.
///
/// Thread-safety: any thread may call any operation; destroying the instance waits for events that
/// are being raised. All but `getInstance` may throw DiagCtrlMutexException.
class TARVEXDIAGS_EXPORT EventManager {
 public:
  /// The instance, made on first use.
  static EventManager* getInstance();

  /// Runs `aAction` on the instance while it cannot be destroyed. For events raised on threads
  /// that outlive a shut-down.
  template <class Action>
  static void withInstance(Action aAction) {
    const InstanceUse use;
    aAction(*getInstance());
  }

  EventManager(const EventManager&) = delete;
  EventManager& operator=(const EventManager&) = delete;
  virtual ~EventManager();

  unsigned long createEventQueue();
  unsigned long createResultQueue();
  unsigned long createCtrlEventQueue();

  /// Fans out a batch. The messages pass to the manager, which destroys them within the call.
  void pushEventInAllEventQueue(EventVector aPkgEventVector);
  void pushResultInAllResultQueue(ResultVector aPkgResultVector);
  /// Fans out one controller event, which passes to the manager like those of a batch. With no
  /// registration at all it is destroyed, and that is all.
  void pushCtrlEventInAllCtrlEventQueue(DiagCtrlEvent* aCtrlEvent);

  /// Empties one queue, oldest first. @return a new vector that the caller owns with its messages;
  /// never null. @throws DiagCtrlKeyNotExistException for an unknown id.
  EventVector* getEvents(unsigned long aulEventRegId);
  ResultVector* getResults(unsigned long aulResultRegId);
  CtrlEventVector* getCtrlEvents(unsigned long aulCtrlEventRegId);

  /// Removes all registrations of a kind. Messages still queued are not destroyed.
  void clearEventQueues();
  void clearResultQueues();
  void clearCtrlEventQueues();

  /// Traces "package:request=progress%".
  void logProgress(const char* apcPackagename, unsigned long aulTestRequestId,
                   unsigned int auiProgress);
  /// Traces "package:request:status%".
  void logStatus(char* apcPackagename, unsigned long aulTestRequestId,
                 Diag::DiagnosticStatus::Status aeStatus);

 private:
  /// Keeps the instance from being destroyed for a scope.
  class TARVEXDIAGS_EXPORT InstanceUse {
   public:
    InstanceUse();
    ~InstanceUse();
    InstanceUse(const InstanceUse&) = delete;
    InstanceUse& operator=(const InstanceUse&) = delete;
  };

  EventManager();

  EventQueueMap mPkgEventMap TARVEXDIAGS_GUARDED_BY(mEventMutexLock);
  ResultQueueMap mPkgResultMap TARVEXDIAGS_GUARDED_BY(mResultMutexLock);
  CtrlEventQueueMap mCtrlEventMap TARVEXDIAGS_GUARDED_BY(mCtrlEvtMutexLock);
  unsigned long mSulCurEventRegId TARVEXDIAGS_GUARDED_BY(mEventMutexLock);
  unsigned long mSulCurResultRegId TARVEXDIAGS_GUARDED_BY(mResultMutexLock);
  unsigned long mSulCurCtrlEvtRegId TARVEXDIAGS_GUARDED_BY(mCtrlEvtMutexLock);
  DiagCtrlLock mProgressMutexLock;  // keeps the lines of a progress apart, guards no data
  DiagCtrlLock mEventMutexLock;
  DiagCtrlLock mResultMutexLock;
  DiagCtrlLock mCtrlEvtMutexLock;
  static System::Mutex mSInstanceMutex;
  static EventManager* mSEventManager TARVEXDIAGS_GUARDED_BY(mSInstanceMutex);
  DiagTracer* mpDiagTracer;
};

}  // namespace TarvexDiags::DiagCtrl
