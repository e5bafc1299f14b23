#include "packagekit/Caretaker.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "packagekit/internal/Caretakers.h"
#include "packagekit/internal/ReaperRecord.h"

namespace TarvexDiags::PackageKit {

namespace {

std::atomic<pid_t> listener{0};

}  // namespace

void announceCaretakersTo(pid_t reaper) noexcept {
  listener = reaper;
}

void announceCaretaker(pid_t process) noexcept {
  const pid_t reaper = listener;
  // Who has another parent is no worker, or has lost its reaper and with it the right to the
  // number.
  if (reaper > 0 && getppid() == reaper) {
    sigqueue(reaper, caretakerForReaper(), sigval{.sival_int = process});
  }
}

}  // namespace TarvexDiags::PackageKit
