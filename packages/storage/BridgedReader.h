#pragma once

#include <memory>

#include "packages/storage/Health.h"

namespace TarvexDiags::Storage {

/// @brief For a disk that is described as ATA: asks it so, and by SCSI's own means where that is
/// not possible. Some bridges and emulations describe an ATA disk and pass no command on.
/// @param ata, scsi readers of the same disk
std::unique_ptr<HealthReader> makeBridgedReader(std::unique_ptr<HealthReader> ata,
                                                std::unique_ptr<HealthReader> scsi);

}  // namespace TarvexDiags::Storage
