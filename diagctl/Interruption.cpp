#include "diagctl/Interruption.h"

#include <signal.h>
#include <unistd.h>

#include <csignal>

#include "diagctl/ExitStatus.h"
#include "diagctl/Keyboard.h"

namespace TarvexDiags::DiagCtl::Interruption {

namespace {

RunRequests wanted;
volatile std::sig_atomic_t lastSignal = 0;

void handle(int number) {
  if (lastSignal != 0) {
    Keyboard::restoreTerminal();
    _exit(ExitCode::signalBase + number);
  }
  lastSignal = number;
  wanted.abortAll = true;
}

}  // namespace

void begin() {
  struct sigaction action = {};
  action.sa_handler = handle;
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    sigaction(number, &action, nullptr);
  }
  std::signal(SIGPIPE, SIG_IGN);
}

RunRequests& requests() {
  return wanted;
}

int signal() {
  return lastSignal;
}

}  // namespace TarvexDiags::DiagCtl::Interruption
