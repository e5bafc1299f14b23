/* The processes of one test: host, reaper, worker, a child of the worker that has left its group,
   and a caretaker, which has something to put back. How an order of the host reaches the worker
   whenever it comes, and how all of them end with it, however the host and the worker end. */

/* ---- What holds them together, each part to be left out alone ------------------------------- */

/* Orders are blocked from the spawn on, and wait for the reaper. */
#ifdef NO_BLOCK_FROM_THE_SPAWN
#define blocksFromSpawn false
#else
#define blocksFromSpawn true
#endif
/* Who comes first, the reaper that begins or the host that gives it up, is decided in one step. */
#ifdef NO_REFUSAL
#define hostRefuses false
#else
#define hostRefuses true
#endif
/* A process asks for its parent's death, and then looks whether it has a parent. */
#ifdef NO_LOOK_AT_THE_PARENT
#define looksAtParent false
#else
#define looksAtParent true
#endif
/* Orphans below become the reaper's children. */
#ifdef NO_ADOPTION
#define adopts false
#else
#define adopts true
#endif
/* The reaper hears what the worker has said before it kills what is left. */
#ifdef KILL_BEFORE_HEARING
#define hearsFirst false
#else
#define hearsFirst true
#endif
/* It ends when nothing is left. */
#ifdef END_WITH_THE_WORKER
#define waitsForAll false
#else
#define waitsForAll true
#endif

#ifdef WATCHED
#define CHECK(name, condition) name = (condition); assert(WATCHED)
#else
#define CHECK(name, condition) name = (condition); assert(name)
#endif
bool no_order_kills_who_is_to_obey = true;
bool nothing_outlives_the_reaper = true;
bool a_caretaker_finishes = true;
bool a_worker_dies_with_its_reaper = true;

/* ---- The processes -------------------------------------------------------------------------- */

mtype = { ABSENT, ALIVE, ENDED };
mtype host = ALIVE;
mtype reaper = ABSENT;
mtype worker = ABSENT;
mtype child = ABSENT;
mtype caretaker = ABSENT;

mtype = { NOTHING, BEGUN, REFUSED };
mtype record = NOTHING;       /* shared by host and reaper */
bool isMasked;                /* the reaper takes its signals one by one */
bool killIsOrdered;           /* waits at the reaper */
bool hostHasGone;             /* the same, sent by the kernel */
bool asksForHost, asksForReaper;
bool announcementIsSent, isAnnounced;
bool hasPutBack;
bool isKilledByStranger;

/* What the kernel does when a process ends, whoever ended it. */
inline endHost() {
  host = ENDED;
  if
  :: asksForHost && reaper == ALIVE -> hostHasGone = true
  :: else
  fi
}

inline endReaper() {
  reaper = ENDED;
  if
  :: asksForReaper && worker == ALIVE -> worker = ENDED
  :: else
  fi
}

/* Dies, or orders the end, at any time. */
proctype Host() {
  atomic {
    reaper = ALIVE;
    isMasked = blocksFromSpawn;
    run Reaper()
  };
  if
  :: d_step { endHost() }
  :: true ->
     /* a suspension comes at any time */
     d_step { CHECK(no_order_kills_who_is_to_obey, reaper != ALIVE || isMasked) };
     if
     :: hostRefuses ->
        if
        :: d_step { record == NOTHING -> record = REFUSED; endReaper() }
        :: record != NOTHING -> killIsOrdered = true
        fi
     :: else ->
        /* a look, and the signal some time behind it */
        if
        :: record == NOTHING -> d_step { endReaper() }
        :: record != NOTHING -> killIsOrdered = true
        fi
     fi
  fi;
  host == ENDED || reaper == ENDED;
  if
  :: d_step {
       host == ALIVE && !isKilledByStranger ->
       CHECK(nothing_outlives_the_reaper, child != ALIVE && caretaker != ALIVE)
     }
  :: else
  fi
}

/* Kills the reaper, which nothing keeps anybody from. */
proctype Stranger() {
end_too_late:
  d_step {
    reaper == ALIVE;
    isKilledByStranger = true;
    endReaper()
  }
}

proctype Reaper() {
  {
    isMasked = true;
    asksForHost = true;
    if
    :: d_step { looksAtParent && host == ENDED -> endReaper() }
    :: else
    fi;
    if
    :: d_step { record == NOTHING -> record = BEGUN }
    :: d_step { record == REFUSED -> endReaper() }
    fi;
    atomic { worker = ALIVE; run Worker() };
    if
    :: d_step { killIsOrdered || hostHasGone -> worker = ENDED }
    :: worker == ENDED
    fi;
    if
    :: hearsFirst -> isAnnounced = announcementIsSent
    :: else
    fi;
    do
    :: d_step { adopts && child == ALIVE -> child = ENDED }
    :: d_step {
         adopts && caretaker == ALIVE && !isAnnounced ->
         caretaker = ENDED;
         CHECK(a_caretaker_finishes, !announcementIsSent || hasPutBack)
       }
    :: !adopts || !waitsForAll || (child != ALIVE && caretaker != ALIVE) -> break
    od;
    true;
    d_step {
      CHECK(nothing_outlives_the_reaper, child != ALIVE && caretaker != ALIVE);
      endReaper()
    }
  } unless { reaper == ENDED }
}

proctype Worker() {
  {
    asksForReaper = true;
    if
    :: d_step { looksAtParent && reaper == ENDED -> worker = ENDED }
    :: else
    fi;
    d_step { CHECK(a_worker_dies_with_its_reaper, reaper == ALIVE) };
    if
    :: child = ALIVE
    :: true
    fi;
    if
    :: atomic { caretaker = ALIVE; run Caretaker() };
       announcementIsSent = true
    :: true
    fi;
    if
    :: true -> worker = ENDED
    :: true -> worker == ENDED /* hangs until it is ended */
    fi
  } unless { worker == ENDED }
}

proctype Caretaker() {
  {
    worker == ENDED;
    d_step { hasPutBack = true; caretaker = ENDED }
  } unless { caretaker == ENDED }
}

init {
  atomic {
    run Host();
#ifdef STRANGER
    run Stranger()
#endif
  }
}
