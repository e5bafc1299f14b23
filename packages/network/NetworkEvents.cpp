#include "packages/network/NetworkEvents.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace TarvexDiags::Network {

Severity severityOf(NetworkEvent event) {
  return Common::severityOfCode(static_cast<unsigned int>(event));
}

void requireFaultOfConnection(int error, const std::string& interface) {
  constexpr std::array faults{EPIPE,        ECONNRESET, ECONNABORTED, ECONNREFUSED, ETIMEDOUT,
                              EHOSTUNREACH, EHOSTDOWN,  EPROTO,       EIO};
  if (std::find(faults.begin(), faults.end(), error) == faults.end()) {
    throw std::system_error(error, std::generic_category(), interface);
  }
}

void report(RunJournal& journal, NetworkEvent event, std::vector<std::string> parameters) {
  journal.report(severityOf(event), static_cast<unsigned int>(event), std::move(parameters));
}

}  // namespace TarvexDiags::Network
