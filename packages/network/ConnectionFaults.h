#pragma once

#include <string>

namespace TarvexDiags::Network {

/// @brief Throws std::system_error unless the errno of a failed send or receive says that the
/// connection is at fault: a lack of memory, a packet filter that forbids or an interface that was
/// switched off say nothing about it.
void requireFaultOfConnection(int error, const std::string& interface);

}  // namespace TarvexDiags::Network
