#pragma once

#include <netinet/in.h>

#include <chrono>
#include <functional>
#include <memory>

#include "packagekit/UniqueDescriptor.h"
#include "packages/network/DatagramDiagnostic.h"
#include "packages/network/Patience.h"
#include "packages/network/StreamDiagnostic.h"

namespace TarvexDiags::Network {

/// @brief Does something in the namespace of an end; by default simply does it.
using Inside = std::function<void(const std::function<void()>&)>;

/// @brief One end of a connection: its address, and where its socket is to be made.
struct End {
  in_addr address{};
  Inside inside = [](const std::function<void()>& action) { action(); };
};

/// @brief The address 127.0.0.1, in the caller's namespace.
End loopbackEnd();

/// @brief How long to wait for connections, and whom to ask meanwhile whether to go on. Copies
/// share one patience: it is for all connections that are made with them.
struct ConnectLimits {
  std::shared_ptr<Patience> patience = std::make_shared<Patience>(kMostPatience);
  std::function<bool()> stopRequested = [] { return false; };

  /// A connection is made at once or, after lost packets, within seconds.
  static constexpr std::chrono::seconds kMostPatience{5};
};

/// @brief A TCP connection from one end to the other; null when a stop was requested. Who else
/// connects meanwhile is turned away. Throws std::system_error, with ETIMEDOUT when the patience is
/// over.
std::unique_ptr<StreamLink> connectStream(const End& from, const End& to,
                                          const ConnectLimits& limits = {});

/// @brief The same over the address 127.0.0.1.
std::unique_ptr<StreamLink> connectOverLoopback(const ConnectLimits& limits = {});

/// @brief UDP sockets that know only each other: what others send is passed over. Throws
/// std::system_error. The ends are used as long as the link is.
std::unique_ptr<DatagramLink> connectDatagrams(const End& from, const End& to);

}  // namespace TarvexDiags::Network
