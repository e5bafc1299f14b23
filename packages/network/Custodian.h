#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/types.h>

#include <filesystem>
#include <string>

#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::Network {

/// @brief A process that puts an interface back into its namespace as soon as the one that took it
/// away says so or has died, by whatever signal: it outlives both the test and its host.
///
/// It is in a session of its own, so that nothing that is meant for the test's process hits it, and
/// holds both namespaces open, so that the kernel does not end the other one before.
class Custodian {
 public:
  struct Charge {
    int home;  ///< descriptor of the namespace that the interface belongs to
    int away;  ///< descriptor of the one that it is taken to
    std::string interface;
    bool wasUp;
    std::filesystem::path record;  ///< removed when the interface is back
  };

  /// @brief From here on the interface may be taken away. Throws std::system_error.
  explicit Custodian(const Charge& charge);
  Custodian(const Custodian&) = delete;
  Custodian& operator=(const Custodian&) = delete;

  /// @brief Has the interface put back, and waits for it.
  ~Custodian();

 private:
  /// What the process needs, laid out before it is forked: afterwards it may not allocate.
  struct Order {
    int home = -1;
    int away = -1;
    int pipe = -1;   ///< ends with the process that took the interface
    int ready = -1;  ///< takes a byte when the process is in its place
    bool wasUp = false;
    ifreq interface = {};
    std::string record;
  };

  [[noreturn]] static void serve(const Order& order);
  static bool putBack(const Order& order);
  static void moveHome(const Order& order);
  static bool switchOn(const Order& order);

  Order m_order;
  PackageKit::UniqueDescriptor m_pipe;  ///< the end that says by its closing that it is time
  pid_t m_process = -1;
};

}  // namespace TarvexDiags::Network
