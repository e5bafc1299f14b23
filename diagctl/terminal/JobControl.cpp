#include "diagctl/terminal/JobControl.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "diagctl/terminal/Keyboard.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd::JobControl {

namespace {

std::atomic<unsigned long> timesContinued{0};

void handleStop(int number);

void handle(int number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

// Stops as the system would, which is not at all where no shell could continue the program.
void handleStop(int number) {
  const int error = errno;
  holdBlocksBack();
  Keyboard::restoreTerminal();
  handle(number, SIG_DFL);
  raise(number);
  sigset_t stop;
  sigset_t before;
  sigemptyset(&stop);
  sigaddset(&stop, number);
  pthread_sigmask(SIG_UNBLOCK, &stop, &before);  // stands still here
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  handle(number, handleStop);
  letBlocksBeDrawn();
  ++timesContinued;
  errno = error;
}

void handleContinue(int /*number*/) {
  ++timesContinued;
}

}  // namespace

void begin() {
  struct sigaction present = {};
  sigaction(SIGTSTP, nullptr, &present);
  if (present.sa_handler != SIG_IGN) {
    handle(SIGTSTP, handleStop);
  }
  handle(SIGCONT, handleContinue);
}

unsigned long continuations() {
  return timesContinued;
}

bool isInForeground(int descriptor) {
  return tcgetpgrp(descriptor) == getpgrp();
}

}  // namespace TarvexDiags::FrontEnd::JobControl
