#pragma once

#include <netinet/in.h>

#include <functional>
#include <memory>

#include "packagekit/UniqueDescriptor.h"
#include "packages/network/DatagramDiagnostic.h"
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

/// @brief A TCP connection from one end to the other. Throws std::system_error.
std::unique_ptr<StreamLink> connectStream(const End& from, const End& to);

/// @brief The same over the address 127.0.0.1.
std::unique_ptr<StreamLink> connectOverLoopback();

/// @brief UDP sockets that know only each other. Throws std::system_error.
std::unique_ptr<DatagramLink> connectDatagrams(const End& from, const End& to);

}  // namespace TarvexDiags::Network
