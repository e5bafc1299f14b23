#include "packagekit/internal/WorkerSupervisor.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "packagekit/contract/SettingRule.h"

namespace TarvexDiags::PackageKit {

namespace {

// A flood of one kind shall not keep the others waiting.
constexpr int kReadsInARow = 16;
// How often a host looks for the end of a process where the kernel has no descriptors for them.
constexpr int kLookMilliseconds = 20;
constexpr int kLongestPoll = 60'000;
constexpr std::chrono::seconds kLongestDrain{1};
// How often is looked whether the kernel holds what is to end, and what is at its test.
constexpr std::chrono::milliseconds kLookAtEnd{100};
constexpr std::chrono::milliseconds kLookAtTest{1000};
constexpr std::chrono::milliseconds kLookBehindAbort{50};
// What is on its way out is held for moments, too.
constexpr double kShortestHold = 0.5;      // seconds
constexpr double kGraceBesideTests = 0.3;  // seconds, for a worker that loads or ends

}  // namespace

WorkerSupervisor::WorkerSupervisor(const WorkerLimits& limits, RunControl& control)
    : m_limits(limits), m_control(control) {}

WorkerEnd WorkerSupervisor::supervise(WorkerProcess& process, FrameWriter setup) {
  m_process = &process;
  m_end.pid = process.pid();
  m_toldAt = Clock::now();
  m_outgoing = setup.bytes();
  flushOutgoing();
  allow(m_limits.start);
  while (m_stage != Stage::GivenUp && !process.hasEnded()) {
    followControl();
    lookWhetherHeld();
    remindWhenDue();
    escalateWhenDue();
    waitForSomething();
    readOutput();
    readFrames();
  }
  if (m_stage != Stage::GivenUp) {
    // What a test left behind could keep talking for ever.
    process.killRest();
  }
  drain();
  m_end.lastLines = m_tail.lines();
  if (m_stage == Stage::GivenUp) {
    m_end.isGivenUp = true;
    process.giveUp();
  } else {
    m_end.process = process.reap();
    m_end.poison = process.poison();
  }
  m_process = nullptr;
  return std::move(m_end);
}

std::string WorkerSupervisor::linesSoFar() {
  readOutput();
  return m_tail.lines();
}

void WorkerSupervisor::followControl() {
  m_control.clearWake();
  m_isAborted = m_control.isAborted();
  if (m_isAborted && m_stage == Stage::Killed) {
    hurry();
  }
  if (m_stage != Stage::Running) {
    return;
  }
  // One that has told all is on its way out: a signal would not make the kernel give its memory
  // back any sooner, but would make it look like one that hangs.
  if (m_isAborted && !m_end.isComplete) {
    askToStop();
  } else {
    pause(m_control.isSuspended());
  }
}

// Who wants to end may wait for less than was allowed before.
void WorkerSupervisor::hurry() {
  const auto soon = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(killGrace()));
  m_deadline = std::min(m_deadline.value_or(soon), soon);
}

// Time stands still for a suspended worker.
void WorkerSupervisor::pause(bool on) {
  if (on == m_isPaused) {
    return;
  }
  m_isPaused = on;
  m_process->signalGroup(on ? SIGSTOP : SIGCONT);
  const auto now = Clock::now();
  if (on) {
    m_left.reset();
    if (m_deadline) {
      m_left = *m_deadline - now;
    }
    m_deadline.reset();
  } else if (m_left) {
    m_deadline = now + *m_left;
  }
}

// What a worker said before it was suspended may be read afterwards: its time begins later then.
void WorkerSupervisor::allow(double seconds) {
  m_deadline.reset();
  m_left.reset();
  if (seconds > 0) {
    m_left = std::chrono::duration_cast<Clock::duration>(
        std::min(std::chrono::duration<double>(seconds), kLongestTime));
    if (!m_isPaused) {
      m_deadline = Clock::now() + *m_left;
    }
  }
}

// There is little to do from here, but memory is given back slowly when there is much of it, also
// by one that was asked to stop.
void WorkerSupervisor::setComplete() {
  m_end.isComplete = true;
  if (isRunning() || isAskedToStop()) {
    allow(m_limits.exit);
  }
}

void WorkerSupervisor::remindAfter(std::chrono::duration<double> time) {
  m_reminder = Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
}

void WorkerSupervisor::remindWhenDue() {
  if (m_reminder && Clock::now() >= *m_reminder) {
    m_reminder.reset();
    remind();
  }
}

void WorkerSupervisor::escalateWhenDue() {
  if (!m_deadline || Clock::now() < *m_deadline) {
    return;
  }
  switch (m_stage) {
    case Stage::Running:
      m_end.isTimedOut = true;
      // One that has not loaded its package, or is past its last test, has no ear for a request.
      if (isInTest()) {
        askToStop();
      } else {
        terminate();
      }
      break;
    case Stage::AskedToStop:
      terminate();
      break;
    case Stage::Terminated:
      escalateTo(Stage::Killed, SIGKILL, killGrace());
      break;
    case Stage::Killed:
      m_stage = Stage::GivenUp;
      break;
    case Stage::GivenUp:
      break;
  }
}

void WorkerSupervisor::askToStop() {
  pause(false);
  m_stage = Stage::AskedToStop;
  m_outgoing += FrameWriter(FrameType::Stop).bytes();
  flushOutgoing();
  // Where no test runs there is nothing to tidy up, and it takes no time to hear the request.
  const double longest = isInTest() ? m_limits.abortGrace : kGraceBesideTests;
  allow(std::max(std::min(m_limits.abortGrace, longest), 1e-3));
}

void WorkerSupervisor::terminate() {
  pause(false);
  escalateTo(Stage::Terminated, SIGTERM, m_limits.termGrace);
}

void WorkerSupervisor::escalateTo(Stage stage, int signal, double grace) {
  m_stage = stage;
  m_end.isKilledByHost = true;
  m_process->signalGroup(signal);
  allow(std::max(grace, 1e-3));
}

// The kernel tells nobody that a process is at its end but for threads that it holds itself: the
// socket stays open with them, and nothing can be waited for.
void WorkerSupervisor::lookWhetherHeld() {
  const auto now = Clock::now();
  if (m_isPaused || now < m_nextLook) {
    return;
  }
  m_nextLook = now + lookLength();
  if (!m_process->isHeldInKernel()) {
    m_heldSince.reset();
    return;
  }
  m_heldSince = m_heldSince.value_or(now);
  if (now - *m_heldSince >= longestHold()) {
    // For what it has started.
    m_process->signalGroup(SIGKILL);
    m_stage = Stage::GivenUp;
  }
}

// Whoever aborted one that has told all has nothing to wait for: a read that the disk takes its
// time for ends without them.
std::chrono::duration<double> WorkerSupervisor::longestHold() const {
  return isLeaving() ? std::chrono::duration<double>(kLookBehindAbort)
                     : std::chrono::duration<double>(std::max(killGrace(), kShortestHold));
}

std::chrono::milliseconds WorkerSupervisor::lookLength() const {
  if (isLeaving()) {
    return kLookBehindAbort;
  }
  const bool isAtTest = m_stage == Stage::Running && !m_end.isComplete && !m_heldSince;
  return isAtTest ? kLookAtTest : kLookAtEnd;
}

int WorkerSupervisor::pollTimeout() const {
  std::chrono::milliseconds timeout{m_process->processDescriptor() < 0 ? kLookMilliseconds
                                                                       : kLongestPoll};
  const auto boundBy = [&timeout](Clock::time_point end) {
    timeout = std::clamp(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()),
                         std::chrono::milliseconds(0), timeout);
  };
  for (const auto& moment : {m_deadline, m_reminder}) {
    if (moment) {
      boundBy(*moment);
    }
  }
  if (!m_isPaused) {
    boundBy(m_nextLook);
  }
  return static_cast<int>(timeout.count());
}

void WorkerSupervisor::waitForSomething() {
  if (m_stage == Stage::GivenUp) {
    return;
  }
  const short socketEvents = static_cast<short>(POLLIN | (m_outgoing.empty() ? 0 : POLLOUT));
  pollfd sources[] = {{m_socketIsOpen ? m_process->socket() : -1, socketEvents, 0},
                      {m_process->output(), POLLIN, 0},
                      {m_process->processDescriptor(), POLLIN, 0},
                      {m_control.wakeDescriptor(), POLLIN, 0},
                      {m_isAborted ? -1 : m_control.endDescriptor(), POLLIN, 0}};
  poll(sources, std::size(sources), pollTimeout());
  if ((sources[0].revents & POLLOUT) != 0) {
    flushOutgoing();
  }
}

bool WorkerSupervisor::readOutput() {
  char bytes[4096];
  for (int count = 0; count < kReadsInARow; ++count) {
    const ssize_t size =
        m_process->output() < 0 ? 0 : ::read(m_process->output(), bytes, sizeof bytes);
    if (size <= 0) {
      if (size == 0) {
        m_process->closeOutput();
      }
      return false;
    }
    m_tail.add(bytes, static_cast<std::size_t>(size));
  }
  return true;
}

bool WorkerSupervisor::readFrames() {
  char bytes[16384];
  for (int count = 0; count < kReadsInARow && m_socketIsOpen; ++count) {
    const ssize_t size = ::recv(m_process->socket(), bytes, sizeof bytes, 0);
    if (size <= 0) {
      m_socketIsOpen = size < 0 && (errno == EAGAIN || errno == EINTR);
      return false;
    }
    m_reader.add(bytes, static_cast<std::size_t>(size));
    takeFrames();
  }
  return m_socketIsOpen;
}

void WorkerSupervisor::takeFrames() {
  try {
    for (Frame frame; m_reader.next(frame);) {
      m_toldAt = std::clamp(frame.time(), m_toldAt, Clock::now());
      handle(frame);
    }
  } catch (const FrameError& error) {
    breakProtocol(error.what());
  }
}

void WorkerSupervisor::flushOutgoing() {
  while (!m_outgoing.empty()) {
    const ssize_t size = ::send(m_process->socket(), m_outgoing.data(), m_outgoing.size(),
                                MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size < 0) {
      if (errno != EAGAIN && errno != EINTR) {
        // Nobody reads any more: the end of the process tells the rest.
        m_outgoing.clear();
      }
      return;
    }
    m_outgoing.erase(0, static_cast<std::size_t>(size));
  }
}

void WorkerSupervisor::breakProtocol(const std::string& what) {
  m_socketIsOpen = false;
  m_end.protocolError = what;
  if (m_stage == Stage::Running || m_stage == Stage::AskedToStop) {
    pause(false);
    escalateTo(Stage::Killed, SIGKILL, killGrace());
  }
}

// One that was given up may talk for ever.
void WorkerSupervisor::drain() {
  const auto end = Clock::now() + kLongestDrain;
  while (readFrames() && Clock::now() < end) {
  }
  while (readOutput() && Clock::now() < end) {
  }
}

}  // namespace TarvexDiags::PackageKit
