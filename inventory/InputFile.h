#pragma once

#include <cstddef>
#include <string>

namespace TarvexDiags::Inventory {

/// @brief The first bytes of a file that somebody named, one more at most than is allowed, so that
/// one which is too long can be told. A pipe is read to its end, and is empty where nobody writes
/// to it: nothing waits for a writer to come.
/// @throws std::system_error naming a file that cannot be read.
std::string readInput(const std::string& file, std::size_t most);

}  // namespace TarvexDiags::Inventory
