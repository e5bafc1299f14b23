#pragma once

#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <vector>

#include "diagctl/report/EventRelay.h"
#include "diagctl/report/Forecast.h"
#include "diagctl/report/Output.h"
#include "diagctl/report/Progress.h"
#include "diagctl/session/Interruption.h"
#include "diagctl/terminal/Keyboard.h"
#include "diagctl/terminal/Keys.h"

namespace TarvexDiags::FrontEnd {

/// What a run has to do by the packages' descriptions, which its start does not wait for, and how
/// its tests stand to each other.
struct Schedule {
  std::vector<Load> loads;  ///< of the requests, in their order
  bool isSerial = false;
};

/// Tells a run to whoever follows it, on threads of their own, so that neither the run nor the
/// keyboard waits for any of them. What people see stands in the files already; what else may wait
/// for a reader is told by itself. What shows the progress goes with standard output, as both may
/// be one terminal.
class RunFollowers {
 public:
  /// @param outputs and requests outlive this; the latter get what is typed. @param isQuiet shows
  /// no progress, and reads no keys.
  RunFollowers(Outputs& outputs, const Schedule& schedule, bool isQuiet, RunRequests& requests);

  /// The run is to end before its time. From any thread.
  void announceEnding();

  /// From the thread of the run.
  void tell(const RunEvent& event);

  /// Waits until everything was told.
  void finish();

 private:
  void tellFiles(const RunEvent& event);
  void tellPeople(const RunEvent& event);
  void takeKey(const Key& key);
  void pressKeys();
  void lookAround();

  Outputs& m_outputs;
  RunRequests& m_requests;
  const bool m_isQuiet;
  Progress m_progress;  ///< touched by the thread that tells people, but for the ending
  std::mutex m_lock;
  std::vector<Key> m_keys;         ///< that were typed and not yet pressed, under the lock
  std::list<EventRelay> m_others;  ///< which stay where they are
  EventRelay m_people;
  EventRelay m_files;
  std::optional<Keyboard> m_keyboard;  ///< last: its thread uses the others
};

}  // namespace TarvexDiags::FrontEnd
