#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "packages/network/NetworkEvents.h"
#include "packages/network/Pace.h"

namespace TarvexDiags::Network {

/// @brief An event that is to be reported, with its parameters.
struct Finding {
  NetworkEvent event;
  std::vector<std::string> parameters;
};

/// @brief The way that a test's own data takes: by which interface it goes, and what it says about
/// the hardware when nothing gets through. Thread-safe as far as the given function is.
class Path {
 public:
  enum class Medium {
    Wire,     ///< what doesn't get through was lost by cable or adapter
    Loopback  ///< no hardware takes part: a packet filter is in the way
  };

  /// @param presence throws when the interface has gone (std::system_error with ENODEV) or was
  ///   switched off meanwhile (NotSupported); it may be asked from any thread of the test
  explicit Path(std::string interface, Medium medium = Medium::Wire,
                std::function<void()> presence = {});

  const std::string& interface() const { return m_interface; }

  /// @brief Throws when the interface is no longer there, or not in service.
  void requirePresence() const;

  /// @brief What it means that a send or a receive ended with this errno. Throws std::system_error
  /// when that says nothing about the path, as a lack of memory; and as requirePresence.
  Finding broken(int error) const { return judged(NetworkEvent::ConnectionBroken, error); }

  /// @brief The same for a connection that could not be made.
  Finding notConnected(int error) const { return judged(NetworkEvent::NotConnected, error); }

  /// @brief What it means that so little arrived for so long, at this place of the stream. Throws
  /// as requirePresence.
  Finding slow(const Pace::Fault& fault, std::uint64_t position) const;

  /// @brief What it means that a path needed more time than it gets, and carried so many bytes in
  /// it: nothing, but when they are few. Throws as requirePresence.
  std::optional<Finding> poor(const PaceLimits& limits, std::uint64_t bytes) const;

  /// @brief What it means that so many of the datagrams sent have not arrived, from the first one
  /// on. Throws as requirePresence.
  Finding lost(std::uint64_t count, std::uint64_t first, std::uint64_t sent) const;

 private:
  Finding judged(NetworkEvent event, int error) const;
  Finding filtered(int error) const;
  bool isLoopback() const { return m_medium == Medium::Loopback; }

  std::string m_interface;
  Medium m_medium;
  std::function<void()> m_presence;
};

/// @brief For people: "117.5 MB/s".
std::string rateText(double bytesPerSecond);

}  // namespace TarvexDiags::Network
