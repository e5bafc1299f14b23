/* Passes and verdicts: how the dispatcher, the pass threads, the monitor and a client that aborts and
   shuts down agree on which pass of a request a verdict is for. See README.md.

   Request 0 asks for PASSES passes of a package of one KIND, request 1, if there are two, for one
   pass of a careful one on another device. A timed wait is written as a wait for what is waited
   for: a signal only saves time. */

#ifndef KIND
#define KIND STICKY
#endif
#ifndef MODE
#define MODE SERIAL
#endif
#ifndef PASSES
#define PASSES 2
#endif
#ifndef CLIENT
#define CLIENT ANY
#endif
#ifndef REQUESTS
#define REQUESTS 2
#endif

#define SERIAL 1
#define PARALLEL 2

/* What the client does: it may abort request 0, and shuts down at any time or at the end. */
#define ANY 1
#define WATCHING 2 /* it does not abort, and waits until all has ended */

/* When the package reports COMPLETED. */
#define CAREFUL 1   /* as the last act of the run, until its results were taken */
#define STICKY 2    /* from the end of the run until the next one begins */
#define EARLY 3     /* already inside of the run, and then as a sticky one */
#define FORGETFUL 4 /* inside of the run, until its results were taken; never after an abort */

#define N 2
#define kMostLocalEntries 2

/* TestRequest::TestRequestStatus */
#define WAIT 0
#define RUNNING 1
#define REQUEUED 2
#define COMPLETED 3
#define ABORTED 4

/* Diag::DiagnosticStatus::Status, and the verdicts of MonitorThread::queueStatus */
#define PACKAGE_READY 0
#define PACKAGE_EXECUTING 1
#define PACKAGE_COMPLETED 2
#define V_WAIT 1
#define V_DROP 2
#define V_LOCAL 3

/* ---- What holds the pipeline together, each part to be left out alone --------------------- */

#define R request[r]
#define isMarked(r) (request[r].mbAbortStatus || request[r].mbHaltedStatus)
#define isWorkerInside(r) \
  (request[r].mbInFlight && request[r].isEntered && !request[r].mbToBeDropped)

/* All that follows for reports left over from the pass before, at once. */
#ifdef BELIEVES_EVERY_REPORT
#define NO_LOOK_BEFORE_THE_ENTRY
#define NO_LOOK_AT_THE_PASS_INSIDE
#define NO_VERDICT_NUMBER
#define NO_CONCLUSION_NUMBER
#define NO_ABORT_OF_A_WORKER_INSIDE
#define NO_SHUTDOWN_ABORT_OF_WORKERS
#define RECLAIM_AT_EVERY_VERDICT
#endif
/* The look: a COMPLETED is not believed while a pass is in flight that was not entered, ... */
#ifdef NO_LOOK_BEFORE_THE_ENTRY
#define isBeforeItsEntry(r) false
#else
#define isBeforeItsEntry(r) (request[r].mbInFlight && !request[r].isEntered)
#endif
/* ... or, from the second pass on, that has not returned; ... */
#ifdef NO_LOOK_AT_THE_PASS_INSIDE
#define isLaterPassInside(r) false
#else
#define isLaterPassInside(r) (isWorkerInside(r) && request[r].claims > 1)
#endif
/* ... it comes behind the read of the status ... */
#ifdef LOOK_AT_THE_START
#define looksBehindTheStatus false
#else
#define looksBehindTheStatus true
#endif
/* ... and takes no results then. */
#ifdef RESULTS_WITHOUT_BELIEF
#define drainsUnbelieved true
#else
#define drainsUnbelieved false
#endif
/* The verdict's number: nothing is completed or sent back for another pass than was looked at. */
#ifdef NO_VERDICT_NUMBER
#define isVerdictOfAnotherPass(r) false
#else
#define isVerdictOfAnotherPass(r) (request[r].claims != seenClaims)
#endif
/* A pass thread is reclaimed by a verdict only if it was in flight in that same step. */
#ifdef RECLAIM_AT_EVERY_VERDICT
#define reclaimsAlways true
#else
#define reclaimsAlways false
#endif
/* The conclusion's number: only that of the claimed pass ends the wait of SERIAL. */
#ifdef NO_CONCLUSION_NUMBER
#define isConclusionForTheWait true
#else
#define isConclusionForTheWait (concluded == awaitedClaim)
#endif
#define conclusionOf(r) (request[r].claims - (request[r].mbInFlight -> 1 : 0))
#ifdef NO_CONCLUSION_IN_FLIGHT /* instead of the number */
#undef isConclusionForTheWait
#undef conclusionOf
#define isConclusionForTheWait (concluded == 1)
#define conclusionOf(r) (request[r].mbInFlight -> 0 : 1)
#endif
/* An abort tells a package whose pass thread is inside, whatever the status says. */
#ifdef NO_ABORT_OF_A_WORKER_INSIDE
#define isInPackage(r) (request[r].meTestRequestStatus == RUNNING)
#else
#define isInPackage(r) (request[r].meTestRequestStatus == RUNNING || isWorkerInside(r))
#endif
/* shutDown aborts requests with a pass thread as well whose id has left the list. */
#ifdef NO_SHUTDOWN_ABORT_OF_WORKERS
#define shutDownAbortsWorkers false
#else
#define shutDownAbortsWorkers true
#endif
/* It finds them without the lock of the map, which the monitor may hold while it joins one. */
#ifdef SHUTDOWN_ABORT_UNDER_THE_MAP_LOCK
#define findsWorkersUnderMapLock true
#else
#define findsWorkersUnderMapLock false
#endif
/* Results are taken before the verdict: a careful package takes its COMPLETED back then. */
#ifdef NO_RESULTS_BEFORE_THE_VERDICT
#define takesResults false
#else
#define takesResults true
#endif
/* A request that is dropped is released behind the join of its pass thread. */
#ifdef NO_JOIN_AT_THE_DROP
#define joinsAtDrop false
#else
#define joinsAtDrop true
#endif
/* A request that will not run again is finished, whatever its package says. */
#ifdef NO_FORCED_END
#define hasForcedEnd false
#else
#define hasForcedEnd true
#endif
/* Whether a pass may end in a halt. */
#ifdef HALTING
#define mayHalt true
#else
#define mayHalt false
#endif

/* Each check is a variable of its own, so that an error tells its name. */
bool a_verdict_belongs_to_its_pass = true;
bool the_pass_reclaimed_is_the_one_judged = true;
bool no_request_is_dropped_while_its_pass_runs = true;
bool no_library_is_released_while_its_pass_runs = true;
bool serial_mode_runs_one_test_at_a_time = true;
bool an_abort_reaches_the_package_inside = true;
bool a_careful_pass_is_judged_once = true;
#ifdef WATCHED /* the only one that counts */
#define CHECK(name, condition) name = (condition); assert(WATCHED)
#else
#define CHECK(name, condition) name = (condition); assert(name)
#endif

typedef TestRequest {
  byte meTestRequestStatus;
  bool mbAbortStatus;
  bool mbHaltedStatus;
  bool mbToBeDropped;
  bool mbLibraryReleased;
  bool mbMonitored;
  bool isInIdList;
  byte passCount;
  byte requestedPassCount;
  /* guarded by the dispatch gate */
  bool mbInFlight;
  bool isEntered;
  byte claims;
  /* where it stands */
  byte queued;    /* entries on WAIT and PROCESS */
  byte executing; /* entries on EXECUTION */
  byte pending;     /* entries of MonitorThread::mResultPendingTRQueue */
  bool isQuiet;   /* the last poll found nothing to do */
  byte claimsAtQuiet;
  /* its package */
  byte packageStatus;
  bool isTold;        /* abortDiagnostic was called */
  bool isPassInside;  /* runDiagnostic has not returned */
  byte reportedPass;  /* the last pass that reported COMPLETED of its own accord */
  byte judgedPasses;
  bool hasWorker;     /* an entry of mExecutionThreadMap */
  bool isWorkerStarted;
  bool isWorkerEnded;
}
TestRequest request[N];

bool mmtxExecThreadMapCtrlLock;
bool mbTestExecCompleted;
byte mulAwaitedTestRequestId = N;
byte awaitedClaim;
byte testsInside;
bool getState_monitor = true;
bool getState_dispatcher = true;
bool hasMonitorEnded;
bool hasDispatcherEnded;
bool isAbortPlanned;
bool isPatient;

#define setTestRequestStatus(s) \
  if \
  :: R.meTestRequestStatus < COMPLETED -> R.meTestRequestStatus = s \
  :: else \
  fi
#define setAbortStatus \
  R.mbAbortStatus = true; \
  if \
  :: R.meTestRequestStatus != COMPLETED -> R.meTestRequestStatus = ABORTED \
  :: else \
  fi

inline releaseIDiagnostic(r) {
  d_step {
    CHECK(no_library_is_released_while_its_pass_runs, !R.isPassInside);
    R.mbLibraryReleased = true
  }
}

/* ---- ExecutionThread --------------------------------------------------------------------- */

#define isCarefulOrSticky (KIND == CAREFUL || KIND == STICKY || r != 0)
#define takesItsEndBack ((KIND == CAREFUL || KIND == FORGETFUL) && r == 0 || r != 0)
#define forgetsAborts (KIND == FORGETFUL && r == 0)
/* Such a test ends only when its package is told to abort. */
#define mayWaitForItsAbort (r == 0 && !forgetsAborts && (!isPatient || isAbortPlanned))

inline report(r) {
  R.packageStatus = PACKAGE_COMPLETED;
  R.reportedPass = R.claims
}

inline runDiagnostic(r) {
  d_step {
    R.isPassInside = true;
    CHECK(no_library_is_released_while_its_pass_runs, !R.mbLibraryReleased);
    testsInside++;
    CHECK(serial_mode_runs_one_test_at_a_time, MODE != SERIAL || testsInside == 1);
    R.packageStatus = PACKAGE_EXECUTING;
    if
    :: forgetsAborts -> R.isTold = false
    :: else
    fi
  }
  if
  :: isCarefulOrSticky
  :: else ->
     if
     :: d_step { report(r) }
     :: mayWaitForItsAbort -> R.isTold
     fi
  fi;
  if
  :: true
  :: mayWaitForItsAbort -> R.isTold
  fi;
  d_step {
    if
    :: isCarefulOrSticky || R.reportedPass != R.claims && !forgetsAborts -> report(r)
    :: else
    fi;
    if
    :: forgetsAborts && R.isTold -> R.packageStatus = PACKAGE_READY
    :: else
    fi;
    R.isPassInside = false;
    testsInside--
  }
}

proctype ExecutionThread(byte r) {
end_idle:
  do
  :: R.isWorkerStarted ->
     d_step { /* enterPackage, under the gate */
       R.isWorkerStarted = false;
       if
       :: R.mbAbortStatus || R.meTestRequestStatus == COMPLETED || R.mbHaltedStatus ||
          R.mbLibraryReleased ->
          R.mbToBeDropped = true
       :: else ->
          setTestRequestStatus(RUNNING);
          R.mbToBeDropped = false;
          R.isEntered = true
       fi
     }
     if
     :: !R.mbToBeDropped ->
        runDiagnostic(r);
        R.mbToBeDropped = true;
        d_step { setTestRequestStatus(REQUEUED) }
        if
        :: mayHalt && r == 0 -> R.mbHaltedStatus = true
        :: true
        fi
     :: else
     fi;
     R.isWorkerEnded = true
  od
}

/* ---- ExecutionManagerThread -------------------------------------------------------------- */

inline removeExecThreadObject(r) {
  atomic { !mmtxExecThreadMapCtrlLock -> mmtxExecThreadMapCtrlLock = true }
  if
  :: R.hasWorker ->
     atomic {
       R.isWorkerEnded -> /* join */
       R.isWorkerEnded = false;
       R.hasWorker = false;
       R.mbInFlight = false
     }
  :: else
  fi;
  mmtxExecThreadMapCtrlLock = false
}

inline dispatch(r) {
  d_step { /* isStaleEntry, under the gate */
    R.queued--;
    isStale = R.mbMonitored || R.mbInFlight ||
              !R.mbAbortStatus && (R.meTestRequestStatus == COMPLETED || R.mbLibraryReleased)
  }
  if
  :: isStale
  :: else ->
     d_step { /* claimForDispatch, under the gate */
       isGranted = !R.mbAbortStatus && R.meTestRequestStatus != COMPLETED && !R.mbHaltedStatus &&
                   !R.mbLibraryReleased && !R.mbInFlight && getState_dispatcher;
       if
       :: isGranted ->
          R.mbMonitored = true;
          R.mbInFlight = true;
          R.isEntered = false;
          R.claims++
       :: else -> isStale = !R.mbAbortStatus
       fi
     }
     if
     :: isGranted ->
        atomic { /* launch: insert, start and push are one hold of the map's lock */
          !mmtxExecThreadMapCtrlLock ->
          R.hasWorker = true;
          if
          :: MODE == SERIAL ->
             mbTestExecCompleted = false;
             mulAwaitedTestRequestId = r;
             awaitedClaim = R.claims
          :: else
          fi;
          R.isWorkerStarted = true;
          R.executing++
        }
        if
        :: MODE == SERIAL -> (mbTestExecCompleted || !getState_dispatcher) /* waitForVerdict */
        :: else
        fi
     :: !isGranted && !isStale && getState_dispatcher -> R.mbToBeDropped = true /* dropAborted */
     :: else
     fi
  fi;
  isStale = false;
  isGranted = false
}

proctype ExecutionManagerThread() {
  bool isStale, isGranted;
  do
  :: getState_dispatcher && request[0].queued > 0 -> dispatch(0)
  :: getState_dispatcher && request[1].queued > 0 -> dispatch(1)
  :: !getState_dispatcher -> break
  od;
  hasDispatcherEnded = true
}

/* ---- MonitorThread ----------------------------------------------------------------------- */

inline keepPolling(r) {
  d_step {
    if
    :: R.pending < kMostLocalEntries -> R.pending++
    :: else
    fi
  }
}

/* The number of the last pass whose pass thread was reclaimed, then the comparison under
   mmtxTestExecCompletedLock. */
inline concludeTestExec(r) {
  concluded = conclusionOf(r);
  d_step {
    if
    :: mulAwaitedTestRequestId == r && isConclusionForTheWait -> mbTestExecCompleted = true
    :: else
    fi;
    concluded = 0
  }
}

inline checkVerdict(r) {
  CHECK(a_verdict_belongs_to_its_pass, !R.mbInFlight || R.reportedPass == R.claims || isForced);
  CHECK(a_careful_pass_is_judged_once,
        KIND != CAREFUL || isForced || R.judgedPasses + 1 == R.claims);
  R.judgedPasses++
}

inline drop(r) {
  d_step { /* complete, under the gate */
    if
    :: isVerdictOfAnotherPass(r) -> isRefused = true
    :: else ->
       CHECK(no_request_is_dropped_while_its_pass_runs,
             !R.isPassInside || R.reportedPass == R.claims);
       if
       :: R.mbAbortStatus
       :: else -> setTestRequestStatus(COMPLETED)
       fi
    fi
  }
  if
  :: isRefused -> keepPolling(r)
  :: else ->
     R.isInIdList = false;
     if
     :: joinsAtDrop -> removeExecThreadObject(r)
     :: else
     fi;
     concludeTestExec(r);
     /* finish */
     releaseIDiagnostic(r)
  fi
}

inline sendBack(r) {
  d_step { /* beginReturn, under the gate */
    isRefused = isVerdictOfAnotherPass(r);
    if
    :: isRefused
    :: else -> checkVerdict(r)
    fi;
    hasToReclaim = reclaimsAlways || R.mbInFlight
  }
  if
  :: isRefused -> keepPolling(r)
  :: else ->
     if
     :: hasToReclaim ->
        d_step { CHECK(the_pass_reclaimed_is_the_one_judged, R.claims == seenClaims) }
        removeExecThreadObject(r)
     :: else
     fi;
     if
     :: isMarked(r) -> drop(r)
     :: else ->
        d_step {
          R.passCount++;
          R.queued++; /* returnToWait, under the gate */
          if
          :: !R.mbInFlight ->
             setTestRequestStatus(WAIT);
             R.mbMonitored = false
          :: else
          fi
        }
        concludeTestExec(r);
        keepPolling(r)
     fi
  fi
}

/* Reads in the order of MonitorThread::judge. */
inline judge(r) {
  isToBeDropped = R.mbToBeDropped;
  d_step {
    if
    :: (R.mbHaltedStatus || R.mbAbortStatus) && isToBeDropped -> verdict = V_DROP
    :: (R.mbHaltedStatus || R.mbAbortStatus) && !isToBeDropped -> verdict = V_LOCAL
    :: !R.mbHaltedStatus && !R.mbAbortStatus && R.passCount < R.requestedPassCount ->
       verdict = V_WAIT
    :: else -> verdict = V_DROP
    fi
  }
}

#define isBelievable(r) \
  (request[r].packageStatus == PACKAGE_COMPLETED && !isBeforeItsEntry(r) && !isLaterPassInside(r))

inline becomeQuiet(r) {
  R.isQuiet = true;
  R.claimsAtQuiet = R.claims
}

inline getEventsResults(r) {
  d_step { /* willNotRunAgain */
    isForced = hasForcedEnd && isMarked(r) && R.mbToBeDropped;
    seenClaims = R.claims
  }
  isCompleted = R.packageStatus == PACKAGE_COMPLETED && !R.mbLibraryReleased;
  d_step { /* the look, under the gate and behind the status */
    if
    :: looksBehindTheStatus -> seenClaims = R.claims
    :: else
    fi;
    isOver = isForced || isCompleted && !isBeforeItsEntry(r) && !isLaterPassInside(r);
    R.isQuiet = false;
    R.claimsAtQuiet = 0;
    if
    :: !isOver -> becomeQuiet(r)
    :: else
    fi;
    if
    :: drainsUnbelieved && isCompleted && takesItsEndBack && !R.isTold ->
       R.packageStatus = PACKAGE_READY
    :: else
    fi
  }
  if
  :: !isOver -> keepPolling(r)
  :: else ->
     d_step { /* collectResults */
       if
       :: takesResults && takesItsEndBack && R.packageStatus == PACKAGE_COMPLETED && !R.isTold ->
          R.packageStatus = PACKAGE_READY
       :: else
       fi
     }
     judge(r);
     if
     :: verdict == V_WAIT -> sendBack(r)
     :: verdict == V_LOCAL ->
        keepPolling(r);
        keepPolling(r);
        d_step { becomeQuiet(r) }
     :: verdict == V_DROP ->
        drop(r)
     fi
  fi;
  d_step {
    isForced = false; isCompleted = false; isOver = false; seenClaims = 0; isToBeDropped = false;
    verdict = 0; isRefused = false; hasToReclaim = false
  }
}

inline pollEntry(r) {
  if
  :: !R.mbLibraryReleased -> getEventsResults(r)
  :: else ->
     if
     :: R.mbInFlight -> removeExecThreadObject(r)
     :: else
     fi;
     concludeTestExec(r)
  fi
}

/* A poll that would find nothing new once more is left out, so that a request for which nothing
   happens any more shows as a deadlock. */
#define mayPoll(r) \
  (request[r].pending > 0 && \
   (!request[r].isQuiet || request[r].claimsAtQuiet != request[r].claims || \
    request[r].mbLibraryReleased || \
    (isMarked(r) -> request[r].mbToBeDropped && (hasForcedEnd || isBelievable(r)) : \
                    isBelievable(r))))

proctype MonitorThread() {
  bool isForced, isCompleted, isOver, isToBeDropped, isRefused, hasToReclaim;
  byte seenClaims, verdict, concluded;
  do
  :: getState_monitor && request[0].executing > 0 -> request[0].executing--; pollEntry(0)
  :: getState_monitor && request[1].executing > 0 -> request[1].executing--; pollEntry(1)
  :: getState_monitor && mayPoll(0) -> request[0].pending--; pollEntry(0)
  :: getState_monitor && mayPoll(1) -> request[1].pending--; pollEntry(1)
  :: !getState_monitor -> break
  od;
  mbTestExecCompleted = true; /* endRun */
  hasMonitorEnded = true
}

/* ---- A client ---------------------------------------------------------------------------- */

inline abortRequest(r) {
  d_step { /* beginAbort, under the gate */
    if
    :: isInPackage(r) -> branch = 1
    :: !isInPackage(r) && R.mbMonitored -> branch = 2
    :: else -> branch = 3
    fi;
    CHECK(an_abort_reaches_the_package_inside,
          branch == 1 || !isWorkerInside(r) || R.mbAbortStatus);
    setAbortStatus
  }
  if
  :: branch == 1 ->
     d_step { /* abortDiagnostic, under a pin */
       if
       :: !R.mbLibraryReleased ->
          R.isTold = true;
          if
          :: KIND == CAREFUL && !R.isPassInside -> R.packageStatus = PACKAGE_COMPLETED
          :: else
          fi
       :: else
       fi
     }
  :: branch == 2
  :: else -> releaseIDiagnostic(r)
  fi;
  branch = 0
}

inline abortForShutDown(r) {
  if
  :: findsWorkersUnderMapLock -> !mmtxExecThreadMapCtrlLock
  :: else
  fi;
  if
  :: R.isInIdList || shutDownAbortsWorkers && R.hasWorker -> abortRequest(r)
  :: else
  fi
}

#define hasEnded(i) \
  (request[i].mbLibraryReleased && !request[i].mbInFlight && !request[i].hasWorker && \
   request[i].queued == 0 && request[i].executing == 0 && request[i].pending == 0)

proctype Client() {
  byte branch;
  if
  :: isAbortPlanned ->
     abortRequest(0);
     request[0].isInIdList = false
  :: else
  fi;
  if
  :: isPatient -> (hasEnded(0) && hasEnded(1))
  :: else
  fi;
  /* shutDown */
  abortForShutDown(0);
  abortForShutDown(1);
  d_step { request[0].isInIdList = false; request[1].isInIdList = false }
  getState_monitor = false;
  hasMonitorEnded;
  getState_dispatcher = false;
  hasDispatcherEnded;
  /* clearExecThreadObjectMap */
  (!request[0].hasWorker || request[0].isWorkerEnded);
  (!request[1].hasWorker || request[1].isWorkerEnded);
}

init {
  atomic {
    request[0].isInIdList = true;
    request[0].passCount = 1;
    request[0].requestedPassCount = PASSES;
    request[0].queued = 1;
    if
    :: REQUESTS == 2 ->
       request[1].isInIdList = true;
       request[1].passCount = 1;
       request[1].requestedPassCount = 1;
       request[1].queued = 1
    :: else -> request[1].mbLibraryReleased = true
    fi;
    if
    :: CLIENT == ANY -> isAbortPlanned = true
    :: isAbortPlanned = false
    fi;
    if
    :: isPatient = true
    :: CLIENT == ANY -> isPatient = false
    fi;
    run ExecutionManagerThread();
    run MonitorThread();
    run ExecutionThread(0);
    run ExecutionThread(1);
    run Client()
  }
}
