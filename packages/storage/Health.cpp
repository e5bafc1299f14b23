#include "packages/storage/Health.h"

#include <fmt/format.h>

namespace TarvexDiags::Storage {
namespace {

std::vector<std::string> parametersOf(const std::string& disk, const BeyondThreshold& found) {
  return {disk, std::to_string(found.attribute), std::to_string(found.value),
          std::to_string(found.threshold)};
}

void tellAttributes(const HealthReport& health, const std::string& disk, RunJournal& journal) {
  for (const BeyondThreshold& found : health.agedAttributes) {
    report(journal, StorageEvent::AgedAttribute, parametersOf(disk, found));
  }
  std::string past;
  for (const unsigned int attribute : health.pastAttributes) {
    past += (past.empty() ? "" : ", ") + std::to_string(attribute);
  }
  if (!past.empty()) {
    report(journal, StorageEvent::PastAttribute, {disk, past});
  }
}

void tellAnswers(const std::vector<std::string>& unusable, const std::string& disk,
                 RunJournal& journal) {
  for (const std::string& command : unusable) {
    report(journal, StorageEvent::UnusableAnswer, {disk, command});
  }
}

void tellSelfTest(const ErrorLog& log, const std::string& disk, RunJournal& journal) {
  const std::string status = fmt::format("{:X}h", log.selfTestStatus);
  const auto orUnknown = [](const auto& number) {
    return number ? std::to_string(*number) : std::string("?");
  };
  if (log.selfTest == SelfTestEnd::Failed) {
    report(journal, StorageEvent::SelfTestFailed,
           {disk, status, orUnknown(log.selfTestHours), orUnknown(log.firstBadLba)});
  } else if (log.selfTest == SelfTestEnd::Interrupted) {
    report(journal, StorageEvent::SelfTestInterrupted,
           {disk, status, orUnknown(log.selfTestHours)});
  }
}

}  // namespace

void judgeHealth(const HealthReport& health, const HealthLimits& limits, const std::string& disk,
                 RunJournal& journal) {
  for (const std::string& warning : health.criticalWarnings) {
    report(journal, StorageEvent::CriticalWarning, {disk, warning});
  }
  if (health.failing) {
    report(journal, StorageEvent::HealthFailing, {disk, health.failingText});
  }
  for (const BeyondThreshold& found : health.failingAttributes) {
    report(journal, StorageEvent::AttributeFailing, parametersOf(disk, found));
  }
  if (health.mediaErrors > 0) {
    report(journal, StorageEvent::MediaErrors, {disk, std::to_string(health.mediaErrors)});
  }
  tellAnswers(health.unusableAnswers, disk, journal);
  tellAttributes(health, disk, journal);
  if (!health.deviceWarning.empty()) {
    report(journal, StorageEvent::DeviceWarning, {disk, health.deviceWarning});
  }
  if (health.predictionIsTest) {
    report(journal, StorageEvent::PredictionIsTest, {disk});
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
  tellSelfTest(log, disk, journal);
  tellAnswers(log.unusableAnswers, disk, journal);
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
