#include "diagctl/session/Interruption.h"

#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstring>

#include "diagctl/report/ExitStatus.h"
#include "diagctl/terminal/Keyboard.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd::Interruption {

namespace {

RunRequests wanted;
volatile std::sig_atomic_t lastSignal = 0;
volatile std::sig_atomic_t endsInOrder = 0;
char directoryToRemove[PATH_MAX] = "";

/// How the program leaves: a shell, which takes the place of this process, may do what a handler
/// may not. In that order: removes a directory, tells a line on either stream, ends with a code.
/// Empty for nothing.
constexpr const char* kLeave =
    R"([ -z "$0" ] || /bin/rm -rf -- "$0"; printf %s "$2"; printf %s "$3" >&2; exit "$1")";
char lineWhenCutShort[256] = "";
char reasonWhenCutShort[256] = "";
volatile std::sig_atomic_t codeWhenCutShort = 0;

[[noreturn]] void leave(int code, const char* line, const char* reason) {
  holdBlocksBack();
  Keyboard::restoreTerminal();
  if (directoryToRemove[0] != '\0' || line[0] != '\0' || reason[0] != '\0') {
    const char text[] = {static_cast<char>('0' + code / 100),
                         static_cast<char>('0' + code / 10 % 10),
                         static_cast<char>('0' + code % 10), '\0'};
    execl("/bin/sh", "sh", "-c", kLeave, directoryToRemove, text, line, reason, nullptr);
  }
  _exit(code);
}

[[noreturn]] void leave(int number) {
  leave(ExitCode::kSignalBase + number, "", "");
}

// Poisoned memory and the like are no file's affair.
void handleLostPage(int number, siginfo_t* info, void* /*context*/) {
  if (info->si_code == BUS_ADRERR) {
    leave(codeWhenCutShort, lineWhenCutShort, reasonWhenCutShort);
  }
  std::signal(number, SIG_DFL);
  std::raise(number);
}

template <std::size_t kSize>
void copy(const std::string& text, char (&place)[kSize]) {
  place[text.copy(place, kSize - 1)] = '\0';
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
  // Both are told as errors of the writes that they are for.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

void endWhenCutShort(int code, const std::string& line) {
  codeWhenCutShort = code;
  copy(line.empty() ? line : line + "\n", lineWhenCutShort);
  copy(tr("diagctl: a library or another file in use was cut short; what was under way has no "
          "verdict\n"),
       reasonWhenCutShort);
  struct sigaction action = {};
  action.sa_sigaction = handleLostPage;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGBUS, &action, nullptr);
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
