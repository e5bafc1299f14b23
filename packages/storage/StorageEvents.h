#pragma once

#include <string>
#include <vector>

#include "packages/common/RunJournal.h"

namespace TarvexDiags::Storage {

using Common::NotSupported;
using Common::RunJournal;
using Common::Severity;

/// @brief The codes of the package's events, as storage.cfg lists them: below 100 information, from
/// 100 on warnings, from 200 on errors. The comment names the parameters, in order. Addresses are
/// numbers of logical blocks; the size of such a block is always told with them.
enum class StorageEvent : unsigned int {
  identity = 1,         ///< disk, model, serial number, firmware, bytes, logical and physical block
  scanned = 2,          ///< disk, bytes read, rate
  randomRead = 3,       ///< disk, reads, reads a second, median, 99 %, slowest latency
  stable = 4,           ///< disk, bytes compared
  changedByOthers = 5,  ///< disk, block, bytes in a block; another program wrote meanwhile
  latency = 6,          ///< disk, reads, median, 99 %, 99.9 %, slowest
  writtenAndVerified = 7,  ///< disk, bytes, rate of writing, rate of reading back
  health = 8,              ///< disk, hours on, degrees Celsius, per cent used, bad sectors
  errorLogRead = 9,        ///< disk, where it was read, entries

  unusual = 100,              ///< disk, warnings: closes a test without a verdict
  recoveredRead = 101,        ///< disk, first block, blocks, bytes in a block, cause
  stalls = 102,               ///< disk, count, worst latency, its block, bytes in a block
  unsettled = 103,            ///< disk, block, bytes in a block; others wrote, or it is not known
  worn = 104,                 ///< disk, per cent of the rated life used
  temperature = 105,          ///< disk, degrees Celsius
  badSectors = 106,           ///< disk, count
  errorLogEntries = 107,      ///< disk, count, description of the latest
  selfTestInterrupted = 108,  ///< disk, status of the last self-test
  markedReadOnly = 109,       ///< disk
  pastAttribute = 110,        ///< disk
  recoveredVerify = 111,      ///< disk, offset in the file, block, bytes in a block
  noSpace = 112,              ///< disk, cause
  lowSpare = 113,             ///< disk, spare left in per cent, threshold
  slowerThanAsked = 114,      ///< disk, rate, rate asked for
  sizeChanged = 115,          ///< disk, bytes when enumerated, bytes now

  failed = 200,           ///< disk, errors: closes a test that failed
  unreadable = 201,       ///< disk, first block, blocks, bytes in a block, cause
  unreadableTotal = 202,  ///< disk, blocks, bytes in a block, places
  unstable = 203,         ///< disk, block, bytes in a block, different contents, reads
  slowBlock = 204,        ///< disk, block, bytes in a block, latency, median of all
  miscompare = 205,       ///< disk, offset, block, byte, expected, found, differing bits
  misdirected = 206,      ///< disk, offset, block, offset whose data was found
  lostWrite = 207,        ///< disk, offset, block
  writeFailed = 208,      ///< disk, offset, bytes, cause
  criticalWarning = 209,  ///< disk, what the disk warns of
  healthFailing = 210,    ///< disk, what the disk says
  mediaErrors = 211,      ///< disk, count
  selfTestFailed = 213,   ///< disk, status of the last self-test
};

/// @brief The severity that the code's number stands for.
Severity severityOf(StorageEvent event);

/// @brief Reports an event of this package with its severity.
void report(RunJournal& journal, StorageEvent event, std::vector<std::string> parameters);

}  // namespace TarvexDiags::Storage
