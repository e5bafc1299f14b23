#include "packagekit/internal/WorkerSession.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Measurement.h"
#include "packagekit/contract/SettingRule.h"
#include "packagekit/contract/Texts.h"

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
// What is on its way out is held for moments, too.
constexpr double kShortestHold = 0.5;      // seconds
constexpr double kGraceBesideTests = 0.3;  // seconds, for a worker that loads or ends

Diag::DiagnosticEvent::EventType eventTypeOf(Frame& frame) {
  return static_cast<Diag::DiagnosticEvent::EventType>(
      frame.number(Diag::DiagnosticEvent::ERROR_EVENT));
}

unsigned int codeOf(Frame& frame) {
  return static_cast<unsigned int>(frame.number(std::numeric_limits<unsigned int>::max()));
}

// Of the kit's events a test raises measurements alone.
bool mayBeRaised(Diag::DiagnosticEvent::EventType type, unsigned int code,
                 const std::vector<std::string>& parameters) {
  return !Contract::isKitCode(code) ||
         (code == TEST_MEASUREMENT && type == Diag::DiagnosticEvent::INFORMATION_EVENT &&
          parameters.size() == Contract::kMeasurementDetails);
}

// What of a test's trouble its own process sees; the rest is the host's to tell.
bool isTroubleOfTest(unsigned int code) {
  switch (code) {
    case OUT_OF_MEMORY:
    case NO_PERMISSION:
    case DEVICE_VANISHED:
    case TEST_THREW:
    case SYSTEM_CALL_FAILED:
    case TEST_UNKNOWN:
    case OPEN_MODE_REFUSED:
    case TAKEN_AWAY:
      return true;
    default:
      return false;
  }
}

bool mayBeTold(const TestReport& report) {
  switch (report.ending) {
    case TestEnding::Passed:
    case TestEnding::Stopped:
      return report.code == 0 && report.parameters.empty();
    case TestEnding::Unusual:
    case TestEnding::Failed:
      return !Contract::isKitCode(report.code);
    case TestEnding::NotSupported:
      return report.code == TEST_NOT_SUPPORTED && report.parameters.size() == 2;
    case TestEnding::Trouble:
      break;
  }
  return isTroubleOfTest(report.code) && report.parameters.size() == 1;
}

}  // namespace

WorkerSession::WorkerSession(const PassSetup& setup, const SessionLimits& limits,
                             RunControl& control, SessionObserver& observer)
    : m_setup(setup), m_limits(limits), m_control(control), m_observer(observer) {}

SessionEnd WorkerSession::run(WorkerProcess& process) {
  m_process = &process;
  m_end.pid = process.pid();
  m_outgoing = m_setup.toFrame().bytes();
  flushOutgoing();
  allow(m_limits.start);
  while (m_stage != Stage::GivenUp && !process.hasEnded()) {
    followControl();
    lookWhetherHeld();
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

void WorkerSession::followControl() {
  m_control.clearWake();
  if (m_stage != Stage::Running) {
    return;
  }
  // One that has told all is on its way out: a signal would not make the kernel give its memory
  // back any sooner, but would make it look like one that hangs.
  if (m_control.isAborted() && !m_end.isComplete) {
    askToStop();
  } else {
    pause(m_control.isSuspended());
  }
}

// Time stands still for a suspended worker.
void WorkerSession::pause(bool on) {
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
void WorkerSession::allow(double seconds) {
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

void WorkerSession::escalateWhenDue() {
  if (!m_deadline || Clock::now() < *m_deadline) {
    return;
  }
  switch (m_stage) {
    case Stage::Running:
      m_end.isTimedOut = true;
      // One that has not loaded its package, or is past its last test, has no ear for a request.
      if (m_end.current) {
        askToStop();
      } else {
        terminate();
      }
      break;
    case Stage::AskedToStop:
      terminate();
      break;
    case Stage::Terminated:
      escalateTo(Stage::Killed, SIGKILL, m_limits.killGrace);
      break;
    case Stage::Killed:
      m_stage = Stage::GivenUp;
      break;
    case Stage::GivenUp:
      break;
  }
}

void WorkerSession::askToStop() {
  pause(false);
  m_stage = Stage::AskedToStop;
  m_outgoing += FrameWriter(FrameType::Stop).bytes();
  flushOutgoing();
  // Where no test runs there is nothing to tidy up, and it takes no time to hear the request.
  const double longest = m_end.current ? m_limits.abortGrace : kGraceBesideTests;
  allow(std::max(std::min(m_limits.abortGrace, longest), 1e-3));
}

void WorkerSession::terminate() {
  pause(false);
  escalateTo(Stage::Terminated, SIGTERM, m_limits.termGrace);
}

void WorkerSession::escalateTo(Stage stage, int signal, double grace) {
  m_stage = stage;
  m_end.isKilledByHost = true;
  m_process->signalGroup(signal);
  allow(std::max(grace, 1e-3));
}

// The kernel tells nobody that a process is at its end but for threads that it holds itself: the
// socket stays open with them, and nothing can be waited for.
void WorkerSession::lookWhetherHeld() {
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
  if (now - *m_heldSince >=
      std::chrono::duration<double>(std::max(m_limits.killGrace, kShortestHold))) {
    // For what it has started.
    m_process->signalGroup(SIGKILL);
    m_stage = Stage::GivenUp;
  }
}

std::chrono::milliseconds WorkerSession::lookLength() const {
  const bool isAtTest = m_stage == Stage::Running && !m_end.isComplete && !m_heldSince;
  return isAtTest ? kLookAtTest : kLookAtEnd;
}

int WorkerSession::pollTimeout() const {
  std::chrono::milliseconds timeout{m_process->processDescriptor() < 0 ? kLookMilliseconds
                                                                       : kLongestPoll};
  const auto boundBy = [&timeout](Clock::time_point end) {
    timeout = std::clamp(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()),
                         std::chrono::milliseconds(0), timeout);
  };
  if (m_deadline) {
    boundBy(*m_deadline);
  }
  if (!m_isPaused) {
    boundBy(m_nextLook);
  }
  return static_cast<int>(timeout.count());
}

void WorkerSession::waitForSomething() {
  if (m_stage == Stage::GivenUp) {
    return;
  }
  const short socketEvents = static_cast<short>(POLLIN | (m_outgoing.empty() ? 0 : POLLOUT));
  pollfd sources[] = {{m_socketIsOpen ? m_process->socket() : -1, socketEvents, 0},
                      {m_process->output(), POLLIN, 0},
                      {m_process->processDescriptor(), POLLIN, 0},
                      {m_control.wakeDescriptor(), POLLIN, 0}};
  poll(sources, std::size(sources), pollTimeout());
  if ((sources[0].revents & POLLOUT) != 0) {
    flushOutgoing();
  }
}

bool WorkerSession::readOutput() {
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

bool WorkerSession::readFrames() {
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

void WorkerSession::takeFrames() {
  try {
    for (Frame frame; m_reader.next(frame);) {
      handle(frame);
    }
  } catch (const FrameError& error) {
    breakProtocol(error.what());
  }
}

void WorkerSession::handle(Frame& frame) {
  switch (frame.type()) {
    case FrameType::Ready:
      m_end.isReady = true;
      return;
    case FrameType::TestBegin:
      handleTestBegin(frame);
      return;
    case FrameType::Progress:
      m_observer.testProgressed(static_cast<unsigned int>(frame.number(100)));
      return;
    case FrameType::Event: {
      const auto type = eventTypeOf(frame);
      const unsigned int code = codeOf(frame);
      auto parameters = frame.texts();
      if (!m_end.current || !mayBeRaised(type, code, parameters)) {
        throw FrameError(Contract::kEventNotAllowed);
      }
      m_observer.eventRaised(type, code, std::move(parameters));
      return;
    }
    case FrameType::TestEnd:
      handleTestEnd(frame);
      return;
    case FrameType::PassEnd:
      handlePassEnd();
      return;
    case FrameType::Setup:
    case FrameType::Stop:
      break;
  }
  throw FrameError(Contract::kFrameUnknown);
}

void WorkerSession::handleTestBegin(Frame& frame) {
  const std::uint64_t position = frame.number();
  if (!m_end.isReady || m_end.isComplete || m_end.current || position != m_end.testsEnded ||
      position >= m_setup.testIds.size()) {
    throw FrameError(Contract::kTestNotDue);
  }
  m_end.current = position;
  if (m_stage == Stage::Running) {
    allow(m_limits.tests[position]);
  } else if (m_stage == Stage::AskedToStop) {
    allow(std::max(m_limits.abortGrace, 1e-3));
  }
  m_observer.testBegan(position);
}

void WorkerSession::handleTestEnd(Frame& frame) {
  TestReport report;
  report.position = frame.number();
  if (!m_end.current || report.position != *m_end.current) {
    throw FrameError(Contract::kEndNotDue);
  }
  report.ending =
      static_cast<TestEnding>(frame.number(static_cast<std::uint64_t>(TestEnding::Trouble)));
  report.code = codeOf(frame);
  report.parameters = frame.texts();
  if (!mayBeTold(report)) {
    throw FrameError(Contract::kVerdictNotAllowed);
  }
  report.isTimedOut = m_end.isTimedOut;
  readOutput();
  report.lastLines = m_tail.lines();
  m_end.current.reset();
  ++m_end.testsEnded;
  if (m_stage == Stage::Running) {
    allow(m_limits.exit);
  }
  m_observer.testEnded(report);
}

// There is little to do from here, but memory is given back slowly when there is much of it, also
// by one that was asked to stop.
void WorkerSession::handlePassEnd() {
  if (m_end.isComplete || m_end.current || m_end.testsEnded == 0) {
    throw FrameError(Contract::kPassEndNotDue);
  }
  m_end.isComplete = true;
  if (m_stage == Stage::Running || m_stage == Stage::AskedToStop) {
    allow(m_limits.exit);
  }
}

void WorkerSession::flushOutgoing() {
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

void WorkerSession::breakProtocol(const std::string& what) {
  m_socketIsOpen = false;
  m_end.protocolError = what;
  if (m_stage == Stage::Running || m_stage == Stage::AskedToStop) {
    pause(false);
    escalateTo(Stage::Killed, SIGKILL, m_limits.killGrace);
  }
}

// One that was given up may talk for ever.
void WorkerSession::drain() {
  const auto end = Clock::now() + kLongestDrain;
  while (readFrames() && Clock::now() < end) {
  }
  while (readOutput() && Clock::now() < end) {
  }
}

}  // namespace TarvexDiags::PackageKit
