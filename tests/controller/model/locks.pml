/* Locks: how the dispatcher and the pass threads take and give back the resource tag and the system
   lock, and how a refused request keeps its place. See README.md.

   Request 0 wants the whole machine; request 1, and 2 if there are three, share its device. Verdicts
   are those of a careful package. A timed wait is written as a wait for what is waited for. */

#ifndef MODE
#define MODE PARALLEL
#endif
#ifndef PASSES
#define PASSES 1
#endif

#ifndef REQUESTS
#define REQUESTS 3
#endif
#ifndef CLIENT
#define CLIENT ANY
#endif
#ifndef FAILURES
#define FAILURES NONE
#endif

#define SERIAL 1
#define PARALLEL 2
/* What the client does: it may abort request 0, or only waits until all has ended. */
#define ANY 1
#define WATCHING 2
/* What fails: nothing, a lock that a pass thread needs, or the start of a pass thread as well. */
#define NONE 0
#define WORKERS 1
#define STARTS 2
#define N 3
/* When a lock that a pass thread needs fails: not, behind those that it gives back, between them. */
#define NOT 0
#define BEHIND 1
#define BETWEEN 2
#define kMostEntriesOfRefused 2

/* ---- What holds the locks together, each part to be left out alone ------------------------- */

/* The pass thread of a request with the system lock gives the device back first. */
#ifdef NO_RESOURCE_FIRST
#define givesResourceFirst false
#else
#define givesResourceFirst true
#endif
/* After a failure a pass thread gives back only what still stands. */
#ifdef GIVE_BACK_TWICE
#define remembersWhatStands false
#else
#define remembersWhatStands true
#endif
/* A failed start gives back what was taken for it. */
#ifdef NO_GIVE_BACK_AT_FAILED_START
#define failedStartGivesBack false
#else
#define failedStartGivesBack true
#endif
/* A claim that is refused gives back what was taken for it. */
#ifdef NO_GIVE_BACK_AT_REFUSED_CLAIM
#define refusedClaimGivesBack false
#else
#define refusedClaimGivesBack true
#endif
/* The system lock is refused while a pass thread lives, not only while EXECUTION holds entries. */
#ifdef NO_COUNT_OF_WORKERS
#define isAnyWorkerAlive false
#else
#define isAnyWorkerAlive (workersAlive > 0)
#endif
/* An entry of a request that is already under way or finished falls out. */
#ifdef NO_STALE_ENTRIES
#define dropsStaleEntries false
#else
#define dropsStaleEntries true
#endif
/* A refused request stands in the queues twice at most. */
#ifdef NO_CAP
#define hasCap false
#else
#define hasCap true
#endif
/* A refusal is told at once, and then once in two seconds at most. */
#ifdef TELL_ALWAYS
#define tellsAlways true
#else
#define tellsAlways false
#endif
/* Whether a pass tells is decided once, so that its entries are treated alike. */
#ifdef DECIDE_FOR_EACH_ENTRY
#define decidesForEachEntry true
#else
#define decidesForEachEntry false
#endif
/* A refusal that is not told keeps the request's place. */
#ifdef FORGET_WHEN_SILENT
#define silentKeepsItsPlace false
#else
#define silentKeepsItsPlace true
#endif

bool no_device_runs_two_tests = true;
bool the_system_lock_is_exclusive = true;
bool a_refused_request_stands_twice_at_most = true;
bool a_refusal_is_told_once_in_two_seconds = true;
bool only_a_waiting_request_is_refused = true;
bool no_lock_is_lost = true;
#ifdef WATCHED /* the only one that counts */
#define CHECK(name, condition) name = (condition); assert(WATCHED)
#else
#define CHECK(name, condition) name = (condition); assert(name)
#endif

typedef TestRequest {
  bool mbAbortStatus;
  bool mbToBeDropped;
  bool mbMonitored;
  bool mbLibraryReleased;
  bool isFinished;
  bool mbInFlight;
  byte passesLeft;
  byte queued;    /* entries on WAIT and PROCESS */
  byte inBatch;   /* entries in the dispatcher's hands, to be looked at */
  byte refused;   /* entries that it puts back at the end of its pass ... */
  byte silent;    /* ... and those whose refusal was not told */
  byte executing; /* entries on EXECUTION */
  byte pending;   /* entries of MonitorThread::mResultPendingTRQueue */
  bool isWorkerStarted;
  bool isWorkerEnded;
  bool hasReported; /* the package says COMPLETED */
}
TestRequest request[N];

bool isDeviceLocked;  /* mResStrLockMap of the one device */
bool mbSystemLocked;
byte workersAlive;
bool mbTestExecCompleted;
byte testsInside;
bool isMachineTaken; /* the test of request 0 is inside */
bool mayTell = true; /* two seconds have passed since the last refusal was told */
bool isSomethingNew; /* since the dispatcher began its pass */
bool isInPass; /* the dispatcher has requests in its hands */
bool isOver;

#define R request[r]
#define checkSystemLock(r) (r == 0)
#define isQueueing (request[0].queued + request[1].queued + request[2].queued > 0)
#define isBatchLeft (request[0].inBatch + request[1].inBatch + request[2].inBatch > 0)
#define countOfExecution (request[0].executing + request[1].executing + request[2].executing)

inline releaseResourceLock() {
  isDeviceLocked = false;
  isSomethingNew = true
}
inline relSysLockAndSignalExecMgrThread() {
  mbSystemLocked = false;
  isSomethingNew = true
}

/* ---- ExecutionThread --------------------------------------------------------------------- */

inline giveResourceBack(r) {
  d_step {
    if
    :: isResourceStanding || !remembersWhatStands ->
       releaseResourceLock();
       isResourceStanding = false
    :: else
    fi
  }
}
inline giveSystemBack(r) {
  d_step {
    if
    :: checkSystemLock(r) && (isSystemStanding || !remembersWhatStands) ->
       relSysLockAndSignalExecMgrThread();
       isSystemStanding = false
    :: else
    fi
  }
}

inline giveLocksBack(r) {
  if
  :: !checkSystemLock(r) -> giveResourceBack(r)
  :: checkSystemLock(r) && givesResourceFirst ->
     giveResourceBack(r);
     if
     :: mayFail == BETWEEN /* a lock that the pass thread needs fails */
     :: else -> giveSystemBack(r)
     fi
  :: else ->
     giveSystemBack(r);
     giveResourceBack(r)
  fi
}

proctype ExecutionThread(byte r) {
  bool isResourceStanding, isSystemStanding;
  byte mayFail;
end_idle:
  do
  :: atomic {
       R.isWorkerStarted ->
       R.isWorkerStarted = false;
       isResourceStanding = true; /* given back whether or not it was taken */
       isSystemStanding = checkSystemLock(r);
       if
       :: mayFail = NOT
       :: FAILURES != NONE -> mayFail = BEHIND
       :: FAILURES != NONE && checkSystemLock(r) -> mayFail = BETWEEN
       fi
     }
     if
     :: d_step { R.mbAbortStatus -> R.mbToBeDropped = true }
     :: d_step {
          !R.mbAbortStatus ->
          R.mbToBeDropped = false;
          testsInside++;
          CHECK(no_device_runs_two_tests, testsInside == 1);
          CHECK(the_system_lock_is_exclusive, !isMachineTaken);
          isMachineTaken = isMachineTaken || checkSystemLock(r);
          CHECK(the_system_lock_is_exclusive, !isMachineTaken || testsInside == 1)
        }
        d_step {
          testsInside--;
          if
          :: checkSystemLock(r) -> isMachineTaken = false
          :: else
          fi;
          R.mbToBeDropped = true;
          R.hasReported = true
        }
     fi;
     giveLocksBack(r);
     if
     :: mayFail != NOT -> /* handleMutexFailure */
        d_step {
          R.mbAbortStatus = true;
          mayFail = NOT
        }
        giveLocksBack(r)
     :: else
     fi;
     d_step { /* WorkerEnd */
       workersAlive--;
       isSomethingNew = true;
       R.isWorkerEnded = true;
       isResourceStanding = false;
       isSystemStanding = false
     }
  od
}

/* ---- ExecutionManagerThread -------------------------------------------------------------- */

inline isStaleEntry(r) {
  isStale = dropsStaleEntries &&
            (R.mbMonitored || R.mbInFlight ||
             !R.mbAbortStatus && (R.isFinished || R.mbLibraryReleased))
}

inline requeueTest(r) {
  if
  :: !hasCap || !checkSystemLock(r) || R.queued < kMostEntriesOfRefused -> R.queued++
  :: else
  fi;
  CHECK(a_refused_request_stands_twice_at_most, R.queued <= kMostEntriesOfRefused)
}

/* A pass that tells does so for each entry; the first one decides. */
inline refuseSystemLock(r) {
  d_step {
    CHECK(only_a_waiting_request_is_refused, !R.mbInFlight && !R.isFinished);
    if
    :: !isDecided || decidesForEachEntry -> isTelling = mayTell || tellsAlways
    :: else
    fi;
    if
    :: isTelling ->
       CHECK(a_refusal_is_told_once_in_two_seconds, mayTell || isDecided && !decidesForEachEntry);
       mayTell = false
    :: else
    fi;
    isDecided = true;
    if
    :: isTelling ->
       requeueTest(r);
       R.refused++
    :: !isTelling && silentKeepsItsPlace -> R.silent++
    :: else
    fi
  }
}

/* Fails for a request of the same device, and for the package that wants the machine. */
inline takeLocks(r) {
  isTaken = false;
  if
  :: checkSystemLock(r) ->
     if
     :: d_step {
          countOfExecution == 0 && !isAnyWorkerAlive ->
          isTaken = true;
          mbSystemLocked = true
        }
     :: d_step { countOfExecution > 0 || isAnyWorkerAlive -> skip }
        refuseSystemLock(r)
     fi
  :: else ->
     d_step { /* getResourceLock */
       isTaken = !isDeviceLocked;
       isDeviceLocked = true
     }
     if
     :: isTaken
     :: else ->
        mbSystemLocked = false;
        R.refused++
     fi
  fi
}

inline giveTakenBack(r) {
  d_step {
    if
    :: checkSystemLock(r) -> mbSystemLocked = false
    :: else -> isDeviceLocked = false
    fi
  }
}

inline dropAborted(r) { R.mbToBeDropped = true }

inline launch(r) {
  if
  :: d_step {
       mbTestExecCompleted = false;
       R.isWorkerStarted = true;
       R.executing++
     }
  :: FAILURES == STARTS && r != 2 && mayFailToStart -> /* handleFailedStart */
     mayFailToStart = false;
     d_step {
       if
       :: failedStartGivesBack -> giveTakenBack(r)
       :: else
       fi;
       mbSystemLocked = false
     }
     d_step {
       R.mbAbortStatus = true;
       R.mbToBeDropped = true;
       workersAlive--;
       R.mbInFlight = false;
       R.executing++;
       mbTestExecCompleted = true
     }
  fi;
  if
  :: MODE == SERIAL -> mbTestExecCompleted /* waitForVerdict */
  :: else
  fi
}

inline dispatch(r) {
  d_step {
    R.inBatch--;
    isStaleEntry(r)
  }
  if
  :: isStale
  :: !isStale && !mbSystemLocked -> /* waitForSystemLock */
     if
     :: R.mbAbortStatus -> dropAborted(r)
     :: else ->
        takeLocks(r);
        if
        :: !isTaken
        :: else ->
           d_step { /* claimForDispatch, under the gate */
             isGranted = !R.mbAbortStatus && !R.isFinished && !R.mbLibraryReleased && !R.mbInFlight;
             if
             :: isGranted ->
                R.mbMonitored = true;
                R.mbInFlight = true;
                workersAlive++
             :: else
             fi
           }
           if
           :: isGranted -> launch(r)
           :: else ->
              if
              :: refusedClaimGivesBack -> giveTakenBack(r)
              :: else
              fi;
              if
              :: R.mbAbortStatus -> dropAborted(r)
              :: else
              fi
           fi
        fi
     fi
  fi
}

/* A refused entry goes back unless it has become stale; a silent one to its old place. */
inline requeueRefused(r) {
  do
  :: R.refused > 0 ->
     d_step {
       R.refused--;
       isStaleEntry(r);
       if
       :: isStale
       :: !isStale && R.mbAbortStatus -> dropAborted(r)
       :: else -> requeueTest(r)
       fi
     }
  :: else -> break
  od
}
inline returnSilent(r) {
  d_step {
    R.queued = R.queued + R.silent;
    R.silent = 0;
    CHECK(a_refused_request_stands_twice_at_most, R.queued <= kMostEntriesOfRefused)
  }
}

inline takeIntoHands(r) {
  R.inBatch = R.queued;
  R.queued = 0
}

proctype ExecutionManagerThread() {
  bool isStale, isTaken, isGranted, isDecided, isTelling;
  bool mayFailToStart = true;
end_idle:
  do
  :: d_step { /* runPass */
       isQueueing && isSomethingNew ->
       isSomethingNew = false;
       isInPass = true;
       takeIntoHands(0);
       takeIntoHands(1);
       takeIntoHands(2)
     }
     do
     :: request[0].inBatch > 0 -> dispatch(0)
     :: request[1].inBatch > 0 -> dispatch(1)
     :: request[2].inBatch > 0 -> dispatch(2)
     :: !isBatchLeft -> break
     od;
     requeueRefused(0);
     requeueRefused(1);
     requeueRefused(2);
     returnSilent(0);
     d_step {
       isStale = false; isTaken = false; isGranted = false; isDecided = false; isTelling = false;
       isInPass = false
     }
  od
}

/* ---- MonitorThread ----------------------------------------------------------------------- */

inline pollEntry(r) {
  atomic {
    R.pending--;
    if
    :: R.mbInFlight ->
       R.isWorkerEnded; /* join */
       R.isWorkerEnded = false;
       R.mbInFlight = false
    :: else
    fi;
    R.hasReported = false;
    if
    :: R.mbLibraryReleased /* the entry falls out */
    :: !R.mbLibraryReleased && !R.mbAbortStatus && R.passesLeft > 0 ->
       R.passesLeft--;
       R.mbMonitored = false;
       R.queued++
    :: else ->
       R.isFinished = true;
       R.mbLibraryReleased = true
    fi;
    isSomethingNew = true;
    mbTestExecCompleted = true
  }
}

/* What is popped from EXECUTION is polled until its pass is over. */
#define isPassOver(i) \
  (request[i].pending > 0 && \
   (request[i].hasReported || request[i].mbLibraryReleased || \
    request[i].mbAbortStatus && request[i].mbToBeDropped))

proctype MonitorThread() {
end_idle:
  do
  :: d_step { request[0].executing > 0 -> request[0].executing--; request[0].pending++ }
  :: d_step { request[1].executing > 0 -> request[1].executing--; request[1].pending++ }
  :: d_step { request[2].executing > 0 -> request[2].executing--; request[2].pending++ }
  :: isPassOver(0) -> pollEntry(0)
  :: isPassOver(1) -> pollEntry(1)
  :: isPassOver(2) -> pollEntry(2)
  od
}

/* ---- Clients, and the clock -------------------------------------------------------------- */

inline abortTest(r) {
  d_step { /* beginAbort, under the gate */
    isInQueue = !R.mbMonitored;
    R.mbAbortStatus = true
  }
  if
  :: isInQueue -> d_step { R.mbLibraryReleased = true; isSomethingNew = true }
  :: else
  fi
}

#define hasEnded(i) \
  (request[i].mbLibraryReleased && !request[i].mbInFlight && request[i].queued == 0 && \
   request[i].inBatch == 0 && request[i].refused == 0 && request[i].executing == 0 && \
   request[i].pending == 0)

proctype Client() {
  bool isInQueue;
  if
  :: CLIENT == ANY -> abortTest(0)
  :: true
  fi;
  (hasEnded(0) && hasEnded(1) && hasEnded(2) && request[0].silent == 0 && !isInPass);
  isOver = true;
  workersAlive == 0;
  d_step { CHECK(no_lock_is_lost, !isDeviceLocked && !mbSystemLocked) }
}

proctype Clock() {
  do
  :: d_step { !mayTell -> mayTell = true; isSomethingNew = true }
  :: isOver -> break
  od
}

init {
  atomic {
    request[0].queued = 1;
    request[1].queued = 1;
    if
    :: REQUESTS == 3 -> request[2].queued = 1
    :: else -> request[2].mbLibraryReleased = true
    fi;
    request[0].passesLeft = PASSES - 1;
    isSomethingNew = true;
    run ExecutionManagerThread();
    run MonitorThread();
    run ExecutionThread(0);
    run ExecutionThread(1);
    run ExecutionThread(2);
    run Client();
    run Clock()
  }
}
