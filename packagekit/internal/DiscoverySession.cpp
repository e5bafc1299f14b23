#include "packagekit/internal/DiscoverySession.h"

#include <signal.h>

#include <algorithm>
#include <utility>

#include "packagekit/contract/Texts.h"
#include "packagekit/internal/OutputTail.h"
#include "packagekit/internal/ProcessTexts.h"

namespace TarvexDiags::PackageKit {

namespace {

constexpr double kLongestKillGrace = 0.5;  // of one that was asked to end

// Words of all workers are tokens, those of discovery alone are English.
std::string whatItTold(const std::string& protocolError) {
  const bool isToken = std::find(Contract::kWords.begin(), Contract::kWords.end(), protocolError) !=
                       Contract::kWords.end();
  return isToken ? "what is no message (" + protocolError + ")" : protocolError;
}

}  // namespace

DiscoverySession::DiscoverySession(const DiscoverySetup& setup, const WorkerLimits& limits,
                                   RunControl& control, std::function<void()> tellSlow,
                                   std::chrono::milliseconds patience)
    : WorkerSupervisor(limits, control),
      m_setup(setup),
      m_limits(limits),
      m_control(control),
      m_tellSlow(std::move(tellSlow)),
      m_patience(patience) {}

Discovered DiscoverySession::run(WorkerProcess& process) {
  remindAfter(m_patience);
  WorkerEnd end = supervise(process, m_setup.toFrame());
  Discovered found;
  if (end.isGivenUp) {
    found.unkillable = end.pid;
  }
  std::string reason = whyThereIsNone(end);
  if (end.isGivenUp && !m_control.isAborted()) {
    reason += "; its process " + std::to_string(end.pid) + " cannot be ended";
  }
  if (reason.empty()) {
    found.devices = std::move(m_devices);
  } else {
    found.failure = std::move(reason);
    found.lastLines = std::move(end.lastLines);
  }
  return found;
}

// A client that wants to end waits for nothing: what was killed dies without it.
double DiscoverySession::killGrace() const {
  const double longest = m_limits.killGrace;
  return m_control.isAborted() ? std::min(longest, kLongestKillGrace) : longest;
}

void DiscoverySession::handle(Frame& frame) {
  switch (frame.type()) {
    case FrameType::Ready:
      setReady();
      return;
    case FrameType::DeviceFound:
      handleDevice(frame);
      return;
    case FrameType::DiscoveryEnd:
      handleEnd(frame);
      return;
    default:
      throw FrameError("a frame that tells of no device");
  }
}

void DiscoverySession::handleDevice(Frame& frame) {
  m_bytes += frame.size();
  if (!soFar().isReady || m_hasToldAll) {
    throw FrameError("a device that is not due");
  }
  if (m_devices.size() == DiscoveryBounds::kMostDevices || m_bytes > DiscoveryBounds::kMostBytes) {
    throw FrameError("too many devices");
  }
  m_devices.push_back(FoundDevice::fromFrame(frame));
}

void DiscoverySession::handleEnd(Frame& frame) {
  if (!soFar().isReady || m_hasToldAll || frame.number() != m_devices.size()) {
    throw FrameError("the end of another discovery");
  }
  m_failure = toValidUtf8(frame.text().substr(0, DiscoveryBounds::kLongestFailure));
  m_hasToldAll = true;
  if (isRunning()) {
    allow(m_limits.exit);
  }
}

std::string DiscoverySession::whyThereIsNone(const WorkerEnd& end) const {
  const bool isSignalled = end.process.kind == ProcessEnd::Kind::Signalled;
  const bool hasEndedWell = !end.isGivenUp && !isSignalled && end.process.number == 0;
  if (m_hasToldAll && hasEndedWell && end.protocolError.empty()) {
    return m_failure;
  }
  if (m_control.isAborted()) {
    return kEndedOnRequest;
  }
  if (!end.protocolError.empty()) {
    return "its process told " + whatItTold(end.protocolError);
  }
  if (end.isTimedOut) {
    return "it was not done within " + secondsText(m_hasToldAll ? m_limits.exit : m_limits.start) +
           " s";
  }
  if (end.poison) {
    return "it met memory with an uncorrectable error";
  }
  if (isSignalled) {
    return (end.process.number == SIGKILL ? "its process was killed by "
                                          : "its process crashed with ") +
           signalName(end.process.number);
  }
  return "its process ended early with exit status " + exitStatusOf(end.process);
}

}  // namespace TarvexDiags::PackageKit
