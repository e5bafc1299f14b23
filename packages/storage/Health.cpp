#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

void judgeHealth(const HealthReport& health, const HealthLimits& limits, const std::string& disk,
                 RunJournal& journal) {
  for (const std::string& warning : health.criticalWarnings) {
    report(journal, StorageEvent::CriticalWarning, {disk, warning});
  }
  if (health.failing) {
    report(journal, StorageEvent::HealthFailing, {disk, health.failingText});
  }
  if (health.mediaErrors > 0) {
    report(journal, StorageEvent::MediaErrors, {disk, std::to_string(health.mediaErrors)});
  }
  if (health.attributeFailedInThePast) {
    report(journal, StorageEvent::PastAttribute, {disk});
  }
  if (health.badSectors > 0) {
    report(journal, StorageEvent::BadSectors, {disk, std::to_string(health.badSectors)});
  }
  if (health.spare < health.spareThreshold) {
    report(journal, StorageEvent::LowSpare,
           {disk, std::to_string(health.spare), std::to_string(health.spareThreshold)});
  }
  if (health.percentUsed >= limits.percentUsed) {
    report(journal, StorageEvent::Worn, {disk, std::to_string(health.percentUsed)});
  }
  if (health.celsius >= limits.celsius) {
    report(journal, StorageEvent::Temperature, {disk, std::to_string(health.celsius)});
  }
  report(journal, StorageEvent::Health,
         {disk, std::to_string(health.powerOnHours), std::to_string(health.celsius),
          std::to_string(health.percentUsed), std::to_string(health.badSectors)});
}

void judgeErrorLog(const ErrorLog& log, std::uint64_t allowedEntries, const std::string& disk,
                   RunJournal& journal) {
  if (log.selfTest == SelfTestEnd::Failed) {
    report(journal, StorageEvent::SelfTestFailed, {disk, log.selfTestText});
  } else if (log.selfTest == SelfTestEnd::Interrupted) {
    report(journal, StorageEvent::SelfTestInterrupted, {disk, log.selfTestText});
  }
  if (log.senseData > 0) {
    report(journal, StorageEvent::SenseData, {disk, std::to_string(log.senseData)});
  }
  std::uint64_t total = 0;
  for (const ErrorLogEntry& entry : log.entries) {
    total += entry.count;
  }
  if (total > allowedEntries) {
    report(journal, StorageEvent::ErrorLogEntries,
           {disk, std::to_string(total), log.entries.front().text});
  } else {
    report(journal, StorageEvent::ErrorLogRead,
           {disk, log.origin, std::to_string(total + log.harmless)});
  }
}

void identify(const Disk& disk, std::uint64_t bytesByDevice, RunJournal& journal) {
  const auto orUnknown = [](const std::string& text) { return text.empty() ? "?" : text; };
  report(journal, StorageEvent::Identity,
         {disk.name, orUnknown(disk.model), orUnknown(disk.serial), orUnknown(disk.firmware),
          std::to_string(disk.bytes), std::to_string(disk.logicalBlock),
          std::to_string(disk.physicalBlock)});
  if (disk.readOnly) {
    report(journal, StorageEvent::MarkedReadOnly, {disk.name});
  }
  if (bytesByDevice != 0 && bytesByDevice != disk.bytes) {
    report(journal, StorageEvent::SizeChanged,
           {disk.name, std::to_string(disk.bytes), std::to_string(bytesByDevice)});
  }
}

}  // namespace TarvexDiags::Storage
