#include "packages/network/ConnectionFaults.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace TarvexDiags::Network {

void requireFaultOfConnection(int error, const std::string& interface) {
  constexpr std::array kFaults{EPIPE,        ECONNRESET, ECONNABORTED, ECONNREFUSED, ETIMEDOUT,
                               EHOSTUNREACH, EHOSTDOWN,  EPROTO,       EIO};
  if (std::find(kFaults.begin(), kFaults.end(), error) == kFaults.end()) {
    throw std::system_error(error, std::generic_category(), interface);
  }
}

}  // namespace TarvexDiags::Network
