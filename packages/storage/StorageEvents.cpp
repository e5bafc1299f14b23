#include "packages/storage/StorageEvents.h"

#include <utility>

namespace TarvexDiags::Storage {

Severity severityOf(StorageEvent event) {
  return Common::severityOfCode(static_cast<unsigned int>(event));
}

void report(RunJournal& journal, StorageEvent event, std::vector<std::string> parameters) {
  journal.report(severityOf(event), static_cast<unsigned int>(event), std::move(parameters));
}

}  // namespace TarvexDiags::Storage
