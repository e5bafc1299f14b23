#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "packagekit/Device.h"
#include "packagekit/Environment.h"
#include "packagekit/Support.h"
#include "packagekit/internal/Frame.h"

namespace TarvexDiags::PackageKit {

/// All that a worker process is told that looks for devices.
struct DiscoverySetup {
  DiagnosticMode diagnosticMode = DeviceEnum::IDeviceEnumerator::CUSTOMER;
  std::string resourceString = {};
  unsigned int deviceType = 0;
  std::string configFile = {};
  std::string logFile = {};       ///< empty: no log
  std::uint64_t memoryLimit = 0;  ///< bytes of address space; 0: none
  bool coreDumps = false;

  bool operator==(const DiscoverySetup&) const = default;

  FrameWriter toFrame() const;
  static DiscoverySetup fromFrame(Frame& frame);
};

/// A device as its package has told it.
struct FoundDevice {
  Device device = {};
  std::map<int, Support> support = {};  ///< of each test of the package

  FrameWriter toFrame() const;
  /// Throws FrameError for a device that can't be.
  static FoundDevice fromFrame(Frame& frame);
};

/// What a discovery may tell, so that a package that counts wrong, or wants to do harm, costs the
/// host no more than this. A device at all these bounds fits into a frame.
namespace DiscoveryBounds {

inline constexpr std::size_t kMostDevices = 16 * 1024;
inline constexpr std::size_t kMostBytes = std::size_t{16} << 20U;  ///< all devices together
inline constexpr std::size_t kLongestName = 1024;                  ///< of a device, and its tags
inline constexpr std::size_t kMostComponents = 32;                 ///< of a resource tag
inline constexpr std::size_t kMostProperties = 1024;
inline constexpr std::size_t kLongestKey = 256;
inline constexpr std::size_t kLongestValue = 16 * 1024;
inline constexpr std::size_t kMostPropertyBytes = 256 * 1024;  ///< of a device
inline constexpr std::size_t kMostTests = 1024;
inline constexpr std::size_t kLongestReason = 256;    ///< of a no, and its detail
inline constexpr std::size_t kLongestFailure = 1024;  ///< of the whole discovery

}  // namespace DiscoveryBounds

/// What makes it impossible to offer a device, such as a missing name; empty: nothing.
std::string faultOf(const Device& device);

}  // namespace TarvexDiags::PackageKit
