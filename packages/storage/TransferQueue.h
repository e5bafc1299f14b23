#pragma once

#include <functional>
#include <optional>

#include "packages/storage/BlockSource.h"

namespace TarvexDiags::Storage {

/// @brief Keeps as many transfers in flight as the source has slots, until there is no next one,
/// then waits for the rest. No transfer is in flight when it returns or throws what a callback
/// threw.
///
/// @param next the next transfer for the given free slot, or nothing when all were handed out;
/// asked
///        again for each free slot until it says nothing.
/// @param done called for each transfer that ended; the slot's buffer is free again afterwards.
void transferAll(BlockSource& source,
                 const std::function<std::optional<Transfer>(unsigned int slot)>& next,
                 const std::function<void(const Transfer&, const Completion&)>& done);

/// @brief One transfer alone; the source must have none in flight.
Completion transferOne(BlockSource& source, const Transfer& transfer);

/// @brief Throws NotSupported when the disk is smaller than the given number of bytes.
void requireSize(const BlockSource& source, std::uint64_t bytes, const std::string& disk);

/// @brief Whether the transfer moved all its bytes.
inline bool succeeded(const Transfer& transfer, const Completion& completion) {
  return completion.error == 0 && completion.length == transfer.length;
}

/// @brief Throws std::system_error unless the errno of a failed transfer (0: a short one) says that
/// the disk or the way to it is at fault: a disk that left, a lack of memory or of a permission, a
/// request that the kernel refuses say nothing about the disk's blocks.
void requireFaultOfDisk(int error, const std::string& disk);

}  // namespace TarvexDiags::Storage
