#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstring>

#include "inventory/Inventory.h"

namespace TarvexDiags::Inventory {

namespace {

/// One of ethtool's calls. @return whether the driver answered.
bool carryOut(int socket, const std::string& interface, void* request) {
  ifreq call{};
  if (interface.size() >= sizeof call.ifr_name) {
    return false;
  }
  std::memcpy(call.ifr_name, interface.data(), interface.size());
  call.ifr_data = static_cast<char*>(request);
  return ioctl(socket, SIOCETHTOOL, &call) == 0;
}

std::string nameOfPort(unsigned int port) {
  switch (port) {
    case PORT_TP:
      return "TP";
    case PORT_AUI:
      return "AUI";
    case PORT_BNC:
      return "BNC";
    case PORT_MII:
      return "MII";
    case PORT_FIBRE:
      return "FIBRE";
    case PORT_DA:
      return "DA";
    default:
      return "";
  }
}

/// The settings have words of bits behind them, whose number the driver tells, negative, to whom
/// asks with another.
unsigned int portOf(int socket, const std::string& interface) {
  constexpr std::size_t kMasks = 3;
  alignas(ethtool_link_settings)
      std::array<char, sizeof(ethtool_link_settings) + kMasks * SCHAR_MAX * sizeof(__u32)>
          request{};
  ethtool_link_settings settings{};
  settings.cmd = ETHTOOL_GLINKSETTINGS;
  for (int tries = 0; tries < 2; ++tries) {
    std::memcpy(request.data(), &settings, sizeof settings);
    if (!carryOut(socket, interface, request.data())) {
      return PORT_OTHER;
    }
    ethtool_link_settings answer{};
    std::memcpy(&answer, request.data(), sizeof answer);
    if (answer.link_mode_masks_nwords > 0) {
      return answer.port;
    }
    settings.link_mode_masks_nwords = static_cast<__s8>(-answer.link_mode_masks_nwords);
  }
  return PORT_OTHER;
}

}  // namespace

DriverFacts askDriver(const std::string& interface) {
  DriverFacts facts;
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) {
    return facts;
  }
  ethtool_drvinfo driver{};
  driver.cmd = ETHTOOL_GDRVINFO;
  if (carryOut(socket, interface, &driver)) {
    facts.firmware.assign(driver.fw_version, strnlen(driver.fw_version, sizeof driver.fw_version));
  }
  facts.port = nameOfPort(portOf(socket, interface));
  close(socket);
  return facts;
}

}  // namespace TarvexDiags::Inventory
