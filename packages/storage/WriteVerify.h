#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "packages/storage/BlockSource.h"
#include "packages/storage/Figures.h"
#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {

struct WriteVerifyOptions {
  std::uint64_t seed = 0;
  /// Where a place of the file lies on the disk, in bytes, for the reports; may be empty.
  std::function<std::optional<std::uint64_t>(std::uint64_t offset)> placeOnDisk = {};
};

struct WriteVerifyFigures {
  std::uint64_t bytes = 0;  ///< written and read back
  std::uint64_t faultySectors = 0;
  Nanoseconds writing{0};  ///< with the flush to the medium
  Nanoseconds verifying{0};
};

/// @brief Writes the whole source with data that is unique to each sector, brings it to the medium,
/// reads it back and compares checksums. Sectors that differ are read again and described: garbled
/// (which byte, what was expected and found), misplaced (whose data it is), or never written.
///
/// Only ever given a file: see overFile.
WriteVerifyFigures writeAndVerify(BlockSource& source, const WriteVerifyOptions& options,
                                  const std::string& disk, RunJournal& journal);

}  // namespace TarvexDiags::Storage
