#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "packages/network/NetworkEvents.h"

namespace TarvexDiags::Network {

enum class Duplex { Unknown, Half, Full };

/// @brief What the driver says of the connection.
struct LinkMode {
  std::optional<unsigned int> megabits;  ///< speed; nothing when the driver does not know
  Duplex duplex = Duplex::Unknown;
  /// The fastest mode that both ends offer, where the driver tells both lists.
  std::optional<unsigned int> bestCommonMegabits;
};

struct DriverInfo {
  std::string driver;
  std::string version;
  std::string firmware;
  std::string bus;
  unsigned int selfTests = 0;  ///< parts of its self-test; 0: it has none
};

struct SelfTestPart {
  std::string name;
  std::uint64_t result = 0;  ///< 0 is good
};

struct SelfTestResult {
  bool failed = false;
  std::vector<SelfTestPart> parts;
};

/// @brief An interface's driver; a seam, so that tests can bring faulty ones.
class LinkControl {
 public:
  LinkControl() = default;
  LinkControl(const LinkControl&) = delete;
  LinkControl& operator=(const LinkControl&) = delete;
  virtual ~LinkControl() = default;

  /// @brief Throws NotSupported when the driver does not tell.
  virtual LinkMode mode() = 0;
  /// @brief Throws NotSupported when the driver does not tell.
  virtual DriverInfo driver() = 0;
  /// @brief Runs the driver's self-test. The offline one takes the interface out of service
  /// meanwhile. Throws NotSupported when there is none or this user may not run it.
  virtual SelfTestResult selfTest(bool offline) = 0;
};

/// @brief Through the ethtool calls of the kernel, in the calling thread's namespace.
std::unique_ptr<LinkControl> makeLinkControl(const std::string& interface);

}  // namespace TarvexDiags::Network
