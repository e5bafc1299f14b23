#pragma once

#include <cstdint>
#include <vector>

namespace TarvexDiags::Network {

/// @brief As long as it lives, others come before those who really connect to any socket of this
/// process: strangers who leave at once, or errors of the network.
class Callers {
 public:
  /// @param strangers so many first, then the errors, each as errno
  explicit Callers(std::uint64_t strangers, std::vector<int> errors = {});
  Callers(const Callers&) = delete;
  Callers& operator=(const Callers&) = delete;
  ~Callers();

  /// @brief Those that have not come yet.
  static std::uint64_t left();
};

}  // namespace TarvexDiags::Network
