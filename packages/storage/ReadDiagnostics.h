#pragma once

#include <cstdint>
#include <string>

#include "packages/storage/BlockSource.h"
#include "packages/storage/Figures.h"
#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {

/// @brief What a run of reads came to.
struct ReadFigures {
  std::uint64_t bytes = 0;
  std::uint64_t reads = 0;
  std::uint64_t unreadableBlocks = 0;
  Nanoseconds elapsed{0};
};

struct ScanOptions {
  std::uint64_t bytes = 0;  ///< how much to read, spread evenly over the disk; 0: all of it
  std::uint64_t zone = std::uint64_t{64} << 20;  ///< read in one go when not everything is read
  double minimumRate = 0;                        ///< bytes a second; slower is a warning
};

/// @brief Reads the disk, or zones spread over it with the first and the last block among them, in
/// order and with slots() reads of a slot's size in flight. Tells unreadable blocks.
ReadFigures scanSequentially(BlockSource& source, const ScanOptions& options,
                             const std::string& disk, RunJournal& journal);

struct RandomOptions {
  std::uint64_t reads = 0;
  std::uint64_t seed = 0;
};

/// @brief Reads of a slot's size from random places all over the disk, slots() in flight.
ReadFigures readRandomly(BlockSource& source, const RandomOptions& options, const std::string& disk,
                         RunJournal& journal);

struct StabilityOptions {
  std::uint64_t bytes = 0;  ///< how much to compare, in windows spread over the disk; 0: all of it
  std::uint64_t window = std::uint64_t{64} << 20;  ///< read twice, one round after the other
  unsigned int repeats = 5;                        ///< further reads of a block that differed
};

/// @brief Reads windows twice and compares checksums. A block that differs is read again several
/// times. Contents that changed while nothing at all was written to the disk are an error; a block
/// that changed once while another program wrote is information. There is no verdict on one that
/// keeps changing under others' writes, or where nobody knows what others write.
ReadFigures checkStability(BlockSource& source, const StabilityOptions& options,
                           const std::string& disk, RunJournal& journal);

struct LatencyOptions {
  std::uint64_t reads = 0;
  std::uint64_t seed = 0;
  Nanoseconds limit{0};             ///< slower is an outlier, if also
  double factor = 1;                ///< this many times slower than the median
  std::uint64_t allowedStalls = 0;  ///< outliers that do not repeat and are still no warning
  unsigned int repeats = 3;         ///< further reads of a slow block
};

/// @brief Reads one block at a time at random places and looks for outliers. One that is slow each
/// time is an error; stalls that do not repeat are a warning when there are more than allowed.
ReadFigures findSlowBlocks(BlockSource& source, const LatencyOptions& options,
                           const std::string& disk, RunJournal& journal);

}  // namespace TarvexDiags::Storage
