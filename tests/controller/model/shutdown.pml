/* Shut-down and the calls inside: how client calls that do not take the big lock, shutDown,
   resetDiagController and getDiagControllerStatus keep off what is torn down. See README.md. */

/* ---- What keeps the calls and the tear-down apart, each part to be left out alone ----------- */

/* A call counts itself in before it reads the phase. */
#ifdef COUNT_BEHIND_THE_PHASE
#define countsFirst false
#else
#define countsFirst true
#endif
/* New calls are turned away before shutDown waits for those inside, ... */
#ifdef NO_TURNING_AWAY
#define turnsAway false
#else
#define turnsAway true
#endif
/* ... which it does, ... */
#ifdef NO_WAIT_FOR_CALLS
#define waitsForCalls false
#else
#define waitsForCalls true
#endif
/* ... and until the phase has been set. */
#ifdef TURN_AWAY_UNTIL_TEAR_DOWN
#define turnsAwayUntilPhase false
#else
#define turnsAwayUntilPhase true
#endif
/* A call of a counted call is neither counted nor turned away. */
#ifdef COUNT_INNER_CALLS
#define countsInnerCalls true
#else
#define countsInnerCalls false
#endif
/* Who waits for the progress lock does not count, ... */
#ifdef COUNT_WHILE_WAITING
#define countsWhileWaiting true
#else
#define countsWhileWaiting false
#endif
/* ... and asks behind it whether the controller still lives the same life. */
#ifdef NO_LOOK_AT_THE_LIFE
#define looksAtLife false
#else
#define looksAtLife true
#endif
/* The reference to a request is dropped before the call counts itself out. */
#ifdef KEEP_THE_REQUEST
#define dropsRequest false
#else
#define dropsRequest true
#endif
/* A thread's stamp is read, and the thread deleted, under a small lock. */
#ifdef NO_LOCK_AROUND_THE_STAMP
#define locksAroundStamp false
#else
#define locksAroundStamp true
#endif
/* A shut-down waits for the big lock before it looks at anything. */
#ifdef NO_BIG_LOCK
#define takesBigLock false
#else
#define takesBigLock true
#endif

bool no_call_uses_what_was_torn_down = true;
bool no_call_counts_during_the_tear_down = true;
bool an_answer_is_of_the_life_that_was_asked = true;
bool an_inner_call_is_not_turned_away = true;
bool no_stamp_is_read_of_a_deleted_thread = true;
bool only_one_thread_tears_down = true;
#ifdef WATCHED /* the only one that counts */
#define CHECK(name, condition) name = (condition); assert(WATCHED)
#else
#define CHECK(name, condition) name = (condition); assert(name)
#endif

#define UNINITIALISED 0
#define ACTIVE 1

byte phase = ACTIVE;
byte life = 1;         /* raised by each initialize */
bool isBuilt = true;   /* managers, catalogue, settings and requests exist */
bool hasThreads = true;
bool isPointerSet = true; /* mpMoniThread, mpExecMgrThread */
byte callsInside;
bool isTurningAway;
bool mmtxApiPhaseLock;
bool mmtxDiagProgressLock;
bool threadLock;
byte tearingDown;

#define lock(mutex) atomic { !mutex -> mutex = true }
#define unlock(mutex) mutex = false

#define useManagers \
  CHECK(no_call_uses_what_was_torn_down, isBuilt)

/* Counts in if calls are let in. */
inline countIn() {
  d_step {
    isIn = !isTurningAway;
    if
    :: isIn -> callsInside++
    :: else
    fi
  }
}
inline countOut() {
  d_step {
    if
    :: isIn -> callsInside--
    :: else
    fi;
    isIn = false
  }
}
inline enterCall() {
  if
  :: countsFirst ->
     countIn();
     isAllowed = isIn && phase == ACTIVE
  :: else ->
     isAllowed = phase == ACTIVE;
     if
     :: isAllowed -> countIn(); isAllowed = isIn
     :: else
     fi
  fi
}

/* A counted call, such as getRequestStatus, or one that makes another, such as getEstimatedTime. */
proctype CountedCall(bool hasInnerCall) {
  bool isIn, isAllowed;
  do
  :: enterCall();
     if
     :: isAllowed ->
        d_step { useManagers }
        if
        :: hasInnerCall && countsInnerCalls ->
           d_step { CHECK(an_inner_call_is_not_turned_away, !isTurningAway) }
        :: else
        fi;
        d_step { useManagers }
     :: else
     fi;
     countOut();
     isAllowed = false
  :: break
  od
}

/* getDiagnosticStatus and getDiagnosticProgress. The first keeps the progress lock when the
   package is gone, and who waits for it then waits for ever: that is how the call behaves. */
proctype ProgressCall() {
  bool isIn, isAllowed;
  byte seenLife;
  bool hasRequest;
  enterCall();
  if
  :: isAllowed ->
     d_step { useManagers; seenLife = life; hasRequest = true }
     if
     :: dropsRequest -> hasRequest = false
     :: else
     fi;
     if
     :: countsWhileWaiting
     :: else -> countOut()
     fi;
end_blocked:
     lock(mmtxDiagProgressLock);
     if
     :: countsWhileWaiting
     :: else -> enterCall()
     fi;
     if
     :: isAllowed && (!looksAtLife || life == seenLife) ->
        d_step {
          useManagers;
          CHECK(an_answer_is_of_the_life_that_was_asked, life == seenLife)
        }
        if
        :: unlock(mmtxDiagProgressLock)
        :: true /* kept */
        fi
     :: else -> unlock(mmtxDiagProgressLock)
     fi
  :: else
  fi;
  if
  :: hasRequest -> d_step { CHECK(no_call_uses_what_was_torn_down, isBuilt && life == seenLife) }
  :: else
  fi;
  countOut()
}

/* abortTest and its like: under the big lock, where the managers are looked for again. */
proctype LockedCall() {
  if
  :: phase == ACTIVE ->
     lock(mmtxApiPhaseLock);
     if
     :: isBuilt -> d_step { useManagers }
     :: else
     fi;
     unlock(mmtxApiPhaseLock)
  :: else
  fi
}

proctype getDiagControllerStatus() {
  bool hasThread;
  if
  :: locksAroundStamp -> lock(threadLock)
  :: else
  fi;
  hasThread = isPointerSet;
  if
  :: hasThread -> d_step { CHECK(no_stamp_is_read_of_a_deleted_thread, hasThreads) }
  :: else
  fi;
  if
  :: locksAroundStamp -> unlock(threadLock)
  :: else
  fi
}

inline shutDown() {
  if
  :: hasThreads ->
     /* stopped and joined, without the small lock */
     if
     :: locksAroundStamp -> lock(threadLock)
     :: else
     fi;
     hasThreads = false; /* delete and null */
     isPointerSet = false;
     if
     :: locksAroundStamp -> unlock(threadLock)
     :: else
     fi
  :: else
  fi;
  isTurningAway = turnsAway;
  !waitsForCalls || callsInside == 0;
  d_step {
    tearingDown++;
    CHECK(only_one_thread_tears_down, tearingDown == 1);
    isBuilt = false;
    CHECK(no_call_counts_during_the_tear_down, callsInside == 0)
  }
  tearingDown--;
  if
  :: turnsAwayUntilPhase
  :: else -> isTurningAway = false
  fi;
  phase = UNINITIALISED;
  isTurningAway = false
}

/* A second initialize makes the controller ready for calls at once: enumeration is left out. */
inline initialize() {
  isBuilt = true;
  hasThreads = true;
  if
  :: locksAroundStamp -> lock(threadLock); isPointerSet = true; unlock(threadLock)
  :: else -> isPointerSet = true
  fi;
  life++;
  phase = ACTIVE
}

proctype Closer(bool isReset) {
  if
  :: takesBigLock -> lock(mmtxApiPhaseLock)
  :: else
  fi;
  shutDown();
  if
  :: isReset -> initialize()
  :: else
  fi;
  if
  :: takesBigLock -> unlock(mmtxApiPhaseLock)
  :: else
  fi
}

/* Who calls while two threads shut down, one of them to start again. */
#define COUNTED 1
#define PROGRESS 2
#define OTHERS 3
#define ALL 4
#ifndef CALLS
#define CALLS ALL
#endif

init {
  atomic {
    if
    :: CALLS == COUNTED || CALLS == ALL -> run CountedCall(true)
    :: else
    fi;
    if
    :: CALLS == COUNTED -> run CountedCall(false)
    :: else
    fi;
    if
    :: CALLS == PROGRESS || CALLS == ALL ->
       run ProgressCall();
       run ProgressCall()
    :: else
    fi;
    if
    :: CALLS == OTHERS || CALLS == ALL ->
       run LockedCall();
       run getDiagControllerStatus()
    :: else
    fi;
    run Closer(true);
    run Closer(false)
  }
}
