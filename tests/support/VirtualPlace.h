#pragma once

#include <cstddef>
#include <cstring>

namespace TarvexDiags::TestSupport {

/// The place of a virtual operation in its class's table, as the platform's C++ ABI stores it in a
/// pointer to member. A virtual destructor that comes first takes places 0 and 1.
template <typename Operation>
std::size_t placeOf(Operation operation) {
  std::size_t words[2];
  static_assert(sizeof(operation) == sizeof(words));
  std::memcpy(words, &operation, sizeof(words));
  return (words[0] - 1) / sizeof(void*);
}

}  // namespace TarvexDiags::TestSupport
