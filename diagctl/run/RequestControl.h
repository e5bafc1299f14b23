#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "diagctl/run/RequestWatch.h"
#include "diagctl/session/Interruption.h"

namespace TarvexDiags::FrontEnd {

/// Why a run ends before its last test has.
enum class Ending { None, Interrupted, TimeUsedUp, Failed };

/// Ends, suspends and resumes the requests of a run as somebody wants it, whoever judges them
/// meanwhile: what that one needs to know of it waits to be fetched. All calls are for any thread.
class RequestControl {
 public:
  /// A request that was aborted.
  struct Abort {
    unsigned long requestId = 0;
    bool wasRunning = false;
  };
  struct Aborts {
    std::vector<Abort> requests;
    unsigned long step = 0;  ///< that a person ended, by its number; 0: none
  };

  /// @param controller and wishes outlive this. @param onEnding called once, by whoever notices
  /// that the run is to end, before anything is aborted.
  RequestControl(DiagCtrl::DiagnosticController& controller, RunRequests& wishes,
                 std::function<void()> onEnding);

  /// Starts the clock. @param totalSeconds after which the run ends; nothing: never.
  void start(std::optional<unsigned long> totalSeconds);

  /// Carries out what has been wished for since the last turn. Called again and again.
  void takeTurn();

  /// From now on the request is one of the run's. In a run that is ending it is aborted.
  /// @param step its number, for a person who ends one.
  void add(unsigned long requestId, unsigned long step);
  /// Nothing more comes of the request.
  void remove(unsigned long requestId);

  /// Ends the run: aborts all requests. Does nothing in a run that is ending.
  void end(Ending why);
  Ending ending() const { return m_ending; }
  bool isEnding() const { return m_ending != Ending::None; }

  bool isSuspended(unsigned long requestId) const;

  /// What was aborted since the last call. Noted before the abort, so that whoever fetches messages
  /// first and then this knows of each abort that a message may follow from.
  Aborts takeAborts();

 private:
  struct Request {
    unsigned long step = 0;
    bool isSuspended = false;
    bool isAborted = false;
  };
  enum class Hold { None, Suspended, Resumed };
  using Requests = std::map<unsigned long, Request>;

  bool isTimeUsedUp() const;
  void abortAll() TARVEXDIAGS_REQUIRES(m_lock);
  void abortStep(unsigned long step) TARVEXDIAGS_REQUIRES(m_lock);
  void abort(Requests::value_type& request, bool isRunning) TARVEXDIAGS_REQUIRES(m_lock);
  void suspendOrResume() TARVEXDIAGS_REQUIRES(m_lock);

  DiagCtrl::DiagnosticController& m_controller;
  RequestWatch m_watch;
  RunRequests& m_wishes;
  std::function<void()> m_onEnding;
  std::atomic<Ending> m_ending{Ending::None};
  std::chrono::steady_clock::time_point m_start;
  std::optional<unsigned long> m_totalSeconds;
  mutable System::Mutex m_lock;
  Requests m_requests TARVEXDIAGS_GUARDED_BY(m_lock);
  Aborts m_aborts TARVEXDIAGS_GUARDED_BY(m_lock);
  Hold m_hold TARVEXDIAGS_GUARDED_BY(m_lock) = Hold::None;  ///< what a person wants of all
};

}  // namespace TarvexDiags::FrontEnd
