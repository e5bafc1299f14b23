#pragma once

#include <cstdint>

namespace TarvexDiags::PackageKit {

/// Where a worker writes down the poisoned memory that it met, in its signal handler: a page that
/// it shares with the host. The socket would not do, as another thread may be in the midst of a
/// frame.
struct PoisonRecord {
  static constexpr std::uint64_t kBegun = 0x504f49534f4e0001;
  static constexpr std::uint64_t kWhole = 0x504f49534f4e0002;

  std::uint64_t state = 0;            ///< written last; anything but kWhole: there is no record
  std::uint64_t virtualAddress = 0;   ///< in the worker
  std::uint64_t physicalAddress = 0;  ///< 0: not known, for lack of a permission

  bool isWhole() const { return state == kWhole; }
};

/// The descriptor of the page in a worker that starts. It is closed before the package is loaded.
inline constexpr int kPoisonDescriptor = 4;

}  // namespace TarvexDiags::PackageKit
