#include "diagctl/session/Interruption.h"

#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/terminal/Keyboard.h"

namespace TarvexDiags::FrontEnd::Interruption {

namespace {

RunRequests wanted;
volatile std::sig_atomic_t lastSignal = 0;
volatile std::sig_atomic_t endsInOrder = 0;
char directoryToRemove[PATH_MAX] = "";

// A handler may call little: a shell, which takes the place of this process, may do anything.
[[noreturn]] void leave(int number) {
  Keyboard::restoreTerminal();
  const int code = ExitCode::kSignalBase + number;
  if (directoryToRemove[0] != '\0') {
    const char text[] = {static_cast<char>('0' + code / 100),
                         static_cast<char>('0' + code / 10 % 10),
                         static_cast<char>('0' + code % 10), '\0'};
    execl("/bin/sh", "sh", "-c", R"(/bin/rm -rf -- "$0"; exit "$1")", directoryToRemove, text,
          nullptr);
  }
  _exit(code);
}

void handle(int number) {
  if (endsInOrder == 0 || lastSignal != 0) {
    leave(number);
  }
  lastSignal = number;
  wanted.abortAll = true;
}

void catchSignals() {
  struct sigaction action = {};
  action.sa_handler = handle;
  action.sa_flags = SA_RESTART;  // a write that is cut short would cost all that is written later
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present = {};
    sigaction(number, nullptr, &present);
    if (present.sa_handler != SIG_IGN) {  // nohup and the like ask for that
      sigaction(number, &action, nullptr);
    }
  }
}

}  // namespace

void begin() {
  endsInOrder = 1;
  catchSignals();
  std::signal(SIGPIPE, SIG_IGN);
}

void removeWhenLeaving(const std::string& directory) {
  directoryToRemove[0] = '\0';  // a signal may come between
  if (!directory.empty() && directory.size() < sizeof directoryToRemove) {
    std::strcpy(directoryToRemove + 1, directory.c_str() + 1);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    directoryToRemove[0] = directory[0];
    catchSignals();
  }
}

RunRequests& requests() {
  return wanted;
}

int signal() {
  return lastSignal;
}

}  // namespace TarvexDiags::FrontEnd::Interruption
