#pragma once

#include <functional>
#include <optional>

#include "packages/storage/BlockSource.h"

namespace TarvexDiags::Storage {

/**
 * @brief Keeps as many transfers in flight as the source has slots, until there is no next one,
 * then waits for the rest. No transfer is in flight when it returns or throws what a callback
 * threw.
 *
 * @param next the next transfer for the given free slot, or nothing when all were handed out; asked
 *        again for each free slot until it says nothing.
 * @param done called for each transfer that ended; the slot's buffer is free again afterwards.
 */
void transferAll(BlockSource& source,
                 const std::function<std::optional<Transfer>(unsigned int slot)>& next,
                 const std::function<void(const Transfer&, const Completion&)>& done);

/** @brief One transfer alone; the source must have none in flight. */
Completion transferOne(BlockSource& source, const Transfer& transfer);

/** @brief Throws NotSupported when the disk is smaller than the given number of bytes. */
void requireSize(const BlockSource& source, std::uint64_t bytes, const std::string& disk);

/** @brief Whether the transfer moved all its bytes. */
inline bool succeeded(const Transfer& transfer, const Completion& completion) {
  return completion.error == 0 && completion.length == transfer.length;
}

/** @brief Whether the cause means that the disk left, not that a block is bad. */
bool meansGone(int error);

}  // namespace TarvexDiags::Storage
