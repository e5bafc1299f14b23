#include "packagekit/internal/WorkerSession.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "packagekit/contract/KitCodes.h"
#include "packagekit/contract/Measurement.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::PackageKit {

namespace {

Diag::DiagnosticEvent::EventType eventTypeOf(Frame& frame) {
  return static_cast<Diag::DiagnosticEvent::EventType>(
      frame.number(Diag::DiagnosticEvent::ERROR_EVENT));
}

unsigned int codeOf(Frame& frame) {
  return static_cast<unsigned int>(frame.number(std::numeric_limits<unsigned int>::max()));
}

// Of the kit's events a test raises measurements, and where they are wanted lines of the log and
// how fast it is.
bool mayBeRaised(Diag::DiagnosticEvent::EventType type, unsigned int code,
                 const std::vector<std::string>& parameters, const PassSetup& setup) {
  if (!Contract::isKitCode(code)) {
    return true;
  }
  if (type != Diag::DiagnosticEvent::INFORMATION_EVENT) {
    return false;
  }
  switch (code) {
    case TEST_MEASUREMENT:
      return parameters.size() == Contract::kMeasurementDetails;
    case TEST_LOG_LINE:
      return setup.tellsLog && parameters.size() == 1;
    case TEST_THROUGHPUT:
      return setup.tellsThroughput && parameters.size() == Contract::kThroughputDetails;
    default:
      return false;
  }
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
  const std::size_t parameters = report.code == DEVICE_VANISHED ? 2 : 1;
  return isTroubleOfTest(report.code) && report.parameters.size() == parameters;
}

}  // namespace

WorkerSession::WorkerSession(const PassSetup& setup, const SessionLimits& limits,
                             RunControl& control, SessionObserver& observer)
    : WorkerSupervisor(limits, control), m_setup(setup), m_limits(limits), m_observer(observer) {}

SessionEnd WorkerSession::run(WorkerProcess& process) {
  return {supervise(process, m_setup.toFrame()), m_current, m_testsEnded};
}

void WorkerSession::handle(Frame& frame) {
  switch (frame.type()) {
    case FrameType::Ready:
      setReady();
      return;
    case FrameType::TestBegin:
      handleTestBegin(frame);
      return;
    case FrameType::Progress:
      m_observer.testProgressed(static_cast<unsigned int>(frame.number(100)), toldAt());
      return;
    case FrameType::Event: {
      const auto type = eventTypeOf(frame);
      const unsigned int code = codeOf(frame);
      auto parameters = frame.texts();
      if (!m_current || !mayBeRaised(type, code, parameters, m_setup)) {
        throw FrameError(Contract::kEventNotAllowed);
      }
      m_observer.eventRaised(type, code, std::move(parameters), toldAt());
      return;
    }
    case FrameType::TestEnd:
      handleTestEnd(frame);
      return;
    case FrameType::PassEnd:
      handlePassEnd();
      return;
    default:
      break;
  }
  throw FrameError(Contract::kFrameUnknown);
}

void WorkerSession::handleTestBegin(Frame& frame) {
  const std::uint64_t position = frame.number();
  if (!soFar().isReady || soFar().isComplete || m_current || position != m_testsEnded ||
      position >= m_setup.testIds.size()) {
    throw FrameError(Contract::kTestNotDue);
  }
  m_current = position;
  if (isRunning()) {
    allow(m_limits.tests[position]);
  } else if (isAskedToStop()) {
    allow(std::max(m_limits.abortGrace, 1e-3));
  }
  m_observer.testBegan(position, toldAt());
}

void WorkerSession::handleTestEnd(Frame& frame) {
  TestReport report;
  report.position = frame.number();
  if (!m_current || report.position != *m_current) {
    throw FrameError(Contract::kEndNotDue);
  }
  report.ending =
      static_cast<TestEnding>(frame.number(static_cast<std::uint64_t>(TestEnding::Trouble)));
  report.code = codeOf(frame);
  report.parameters = frame.texts();
  if (!mayBeTold(report)) {
    throw FrameError(Contract::kVerdictNotAllowed);
  }
  report.isTimedOut = soFar().isTimedOut;
  report.lastLines = linesSoFar();
  report.time = toldAt();
  m_current.reset();
  ++m_testsEnded;
  if (isRunning()) {
    allow(m_limits.exit);
  }
  m_observer.testEnded(report);
}

void WorkerSession::handlePassEnd() {
  if (soFar().isComplete || m_current || m_testsEnded == 0) {
    throw FrameError(Contract::kPassEndNotDue);
  }
  setComplete();
}

}  // namespace TarvexDiags::PackageKit
