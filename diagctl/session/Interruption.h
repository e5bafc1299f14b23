#pragma once

#include <atomic>
#include <string>

namespace TarvexDiags::FrontEnd {

/// What a person or a signal wants of a run under way. Set by any thread, a signal handler
/// included, and read by the runner.
struct RunRequests {
  std::atomic<bool> abortAll{false};
  std::atomic<bool> suspendAll{false};
  std::atomic<bool> resumeAll{false};
  std::atomic<unsigned long> abortStep{0};  ///< number of the step to abort, from 1; 0: none
};

/// Interrupt, end and hang-up signals: the first ends the run in order, the second leaves at once.
/// A closed pipe is told by the write that fails, so that the run still ends in order. A signal
/// that the program was started to ignore, as by nohup, stays ignored.
namespace Interruption {

/// Catches the signals from now on.
void begin();
/// A directory that is removed when a signal ends the program at once; the last one named counts.
/// @param directory empty for none.
void removeWhenLeaving(const std::string& directory);
/// What the program leaves with when a file that it has mapped, such as a library, is cut short: no
/// signal tells who did it, and nothing that lies in the file can go on.
/// @param code of its exit. @param line for standard output; empty for none.
void endWhenCutShort(int code, const std::string& line);
/// What signals and keys want of the run.
RunRequests& requests();
/// The signal that came, 0 for none.
int signal();

}  // namespace Interruption

}  // namespace TarvexDiags::FrontEnd
