#include "packages/network/NetworkEvents.h"

#include <utility>

namespace TarvexDiags::Network {

Severity severityOf(NetworkEvent event) {
  return Common::severityOfCode(static_cast<unsigned int>(event));
}

void report(RunJournal& journal, NetworkEvent event, std::vector<std::string> parameters) {
  journal.report(severityOf(event), static_cast<unsigned int>(event), std::move(parameters));
}

}  // namespace TarvexDiags::Network
