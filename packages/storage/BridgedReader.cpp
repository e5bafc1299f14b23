#include "packages/storage/BridgedReader.h"

#include <utility>

#include "packages/storage/AtaReader.h"
#include "packages/storage/HealthRecords.h"

namespace TarvexDiags::Storage {
namespace {

class BridgedReader final : public HealthReader {
 public:
  BridgedReader(std::unique_ptr<HealthReader> ata, std::unique_ptr<HealthReader> scsi,
                std::string disk, std::filesystem::path sysfs)
      : m_ata(std::move(ata)),
        m_scsi(std::move(scsi)),
        m_disk(std::move(disk)),
        m_sysfs(std::move(sysfs)) {}

  HealthReport health() override { return either(&HealthReader::health); }

  ErrorLog errorLog() override {
    try {
      return either(&HealthReader::errorLog);
    } catch (const NotSupported&) {
      if (auto counters = countersOf(m_disk, m_sysfs)) {
        return std::move(*counters);
      }
      throw;
    }
  }

 private:
  /// @brief Where neither is possible, the reason is that of ATA.
  template <class Report>
  Report either(Report (HealthReader::*read)()) {
    try {
      return ((*m_ata).*read)();
    } catch (const NotAta& reason) {
      try {
        return ((*m_scsi).*read)();
      } catch (const NotSupported&) {
        throw NotSupported(reason);
      }
    }
  }

  std::unique_ptr<HealthReader> m_ata;
  std::unique_ptr<HealthReader> m_scsi;
  std::string m_disk;
  std::filesystem::path m_sysfs;
};

}  // namespace

std::unique_ptr<HealthReader> makeBridgedReader(std::unique_ptr<HealthReader> ata,
                                                std::unique_ptr<HealthReader> scsi,
                                                const std::string& disk,
                                                const std::filesystem::path& sysfs) {
  return std::make_unique<BridgedReader>(std::move(ata), std::move(scsi), disk, sysfs);
}

}  // namespace TarvexDiags::Storage
