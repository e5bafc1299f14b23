#pragma once

#include <net/if.h>

#include <string>

#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::Network {

/// @brief Sets an interface's address, mask and flags, in the calling thread's namespace. All of it
/// throws std::system_error.
class InterfaceSetter {
 public:
  explicit InterfaceSetter(const std::string& interface);

  /// @param request SIOCSIFADDR or SIOCSIFNETMASK
  void setAddress(unsigned long request, const char* text);
  void switchOn();
  void switchOff();

 private:
  void changeFlags(short set, short cleared);
  ifreq named() const;
  void call(unsigned long request, ifreq& envelope);

  PackageKit::UniqueDescriptor m_socket;
  std::string m_interface;
};

}  // namespace TarvexDiags::Network
