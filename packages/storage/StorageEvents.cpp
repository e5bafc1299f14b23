#include "packages/storage/StorageEvents.h"

#include <utility>

namespace TarvexDiags::Storage {

Severity severityOf(StorageEvent event) {
  const auto code = static_cast<unsigned int>(event);
  if (code < 100) {
    return Severity::information;
  }
  return code < 200 ? Severity::warning : Severity::error;
}

void report(RunJournal& journal, StorageEvent event, std::vector<std::string> parameters) {
  journal.report(severityOf(event), static_cast<unsigned int>(event), std::move(parameters));
}

}  // namespace TarvexDiags::Storage
