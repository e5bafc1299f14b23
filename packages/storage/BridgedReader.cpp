#include "packages/storage/BridgedReader.h"

#include <utility>

namespace TarvexDiags::Storage {
namespace {

class BridgedReader final : public HealthReader {
 public:
  BridgedReader(std::unique_ptr<HealthReader> ata, std::unique_ptr<HealthReader> scsi)
      : m_ata(std::move(ata)), m_scsi(std::move(scsi)) {}

  HealthReport health() override { return either(&HealthReader::health); }
  ErrorLog errorLog() override { return either(&HealthReader::errorLog); }

 private:
  /// @brief Where neither is possible, the reason is that of ATA.
  template <class Report>
  Report either(Report (HealthReader::*read)()) {
    try {
      return ((*m_ata).*read)();
    } catch (const NotSupported& reason) {
      try {
        return ((*m_scsi).*read)();
      } catch (const NotSupported&) {
        throw NotSupported(reason);
      }
    }
  }

  std::unique_ptr<HealthReader> m_ata;
  std::unique_ptr<HealthReader> m_scsi;
};

}  // namespace

std::unique_ptr<HealthReader> makeBridgedReader(std::unique_ptr<HealthReader> ata,
                                                std::unique_ptr<HealthReader> scsi) {
  return std::make_unique<BridgedReader>(std::move(ata), std::move(scsi));
}

}  // namespace TarvexDiags::Storage
