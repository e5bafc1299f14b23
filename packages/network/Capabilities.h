#pragma once

namespace TarvexDiags::Network {

/// @brief Whether this process may change interfaces (CAP_NET_ADMIN).
bool mayAdministrateNetwork();

/// @brief Whether this process may make namespaces (CAP_SYS_ADMIN).
bool mayMakeNamespaces();

}  // namespace TarvexDiags::Network
