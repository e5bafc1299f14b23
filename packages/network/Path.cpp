#include "packages/network/Path.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace TarvexDiags::Network {
namespace {

bool isFaultOfPath(int error) {
  constexpr std::array kFaults{EPIPE,       ECONNRESET,   ECONNABORTED, ECONNREFUSED,
                               ETIMEDOUT,   EHOSTUNREACH, ENETUNREACH,  EHOSTDOWN,
                               EINPROGRESS, EPROTO,       EIO};
  return std::find(kFaults.begin(), kFaults.end(), error) != kFaults.end();
}

/// @brief How a packet filter answers a sender that it forbids to send.
bool isForbidden(int error) {
  return error == EPERM || error == EACCES;
}

}  // namespace

Path::Path(std::string interface, Medium medium, std::function<void()> presence)
    : m_interface(std::move(interface)), m_medium(medium), m_presence(std::move(presence)) {}

void Path::requirePresence() const {
  if (m_presence) {
    m_presence();
  }
}

Finding Path::judged(NetworkEvent event, int error) const {
  requirePresence();
  if (isLoopback() && (isFaultOfPath(error) || isForbidden(error))) {
    return filtered(error);
  }
  if (!isFaultOfPath(error)) {
    throw std::system_error(error, std::generic_category(), m_interface);
  }
  return {event, {m_interface, std::generic_category().message(error)}};
}

Finding Path::slow(const Pace::Fault& fault, std::uint64_t position) const {
  requirePresence();
  if (isLoopback()) {
    return filtered(ETIMEDOUT);
  }
  const auto seconds = fmt::format("{:.1f}", std::chrono::duration<double>(fault.time).count());
  if (fault.kind == Pace::Fault::Kind::Stalled) {
    return {NetworkEvent::Stalled, {m_interface, seconds, std::to_string(position)}};
  }
  return {NetworkEvent::Trickled, {m_interface, std::to_string(fault.bytes), seconds}};
}

std::optional<Finding> Path::poor(const PaceLimits& limits, std::uint64_t bytes) const {
  const double seconds = std::chrono::duration<double>(limits.whole).count();
  if (static_cast<double>(bytes) >= limits.poorRate * seconds) {
    return std::nullopt;
  }
  requirePresence();
  const std::string text = rateText(static_cast<double>(bytes) / seconds);
  return isLoopback()
             ? Finding{NetworkEvent::PathFiltered, {m_interface, text}}
             : Finding{NetworkEvent::PoorRate, {m_interface, text, fmt::format("{:.1f}", seconds)}};
}

std::string rateText(double bytesPerSecond) {
  return fmt::format("{:.1f} MB/s", bytesPerSecond / 1e6);
}

Finding Path::lost(std::uint64_t count, std::uint64_t first, std::uint64_t sent) const {
  requirePresence();
  if (isLoopback()) {
    return {NetworkEvent::PathFiltered,
            {m_interface, std::to_string(count) + " / " + std::to_string(sent)}};
  }
  return {NetworkEvent::DatagramsLost, {m_interface, std::to_string(count), std::to_string(first)}};
}

Finding Path::filtered(int error) const {
  return {NetworkEvent::PathFiltered, {m_interface, std::generic_category().message(error)}};
}

}  // namespace TarvexDiags::Network
