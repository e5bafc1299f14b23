#pragma once

#include "packages/common/RunJournal.h"
#include "packages/storage/StorageReasons.h"

namespace TarvexDiags::Storage {

using Common::NotSupported;
using Common::RunJournal;

/// @brief The codes of the package's events, as storage.cfg lists them: below 100 information, from
/// 100 on warnings, from 200 on errors. The comment names the parameters, in order. Addresses are
/// numbers of logical blocks; the size of such a block is always told with them.
enum class StorageEvent : unsigned int {
  Identity = 1,         ///< disk, model, serial number, firmware, bytes, logical and physical block
  Scanned = 2,          ///< disk, bytes read, rate
  RandomRead = 3,       ///< disk, reads, reads a second, median, 99 %, slowest latency
  Stable = 4,           ///< disk, bytes compared
  ChangedByOthers = 5,  ///< disk, block, bytes in a block; another program wrote meanwhile
  Latency = 6,          ///< disk, reads, median, 99 %, 99.9 %, slowest
  WrittenAndVerified = 7,  ///< disk, bytes, rate of writing, rate of reading back
  Health = 8,              ///< disk, hours on, degrees Celsius, per cent used, bad sectors
  ErrorLogRead = 9,        ///< disk, where it was read, entries
  SenseData = 10,          ///< disk, commands that the kernel counted as ended with sense data

  RecoveredRead = 101,        ///< disk, first block, blocks, bytes in a block, cause
  Stalls = 102,               ///< disk, count, worst latency, its block, bytes in a block
  Unsettled = 103,            ///< disk, block, bytes in a block; others wrote, or it is not known
  Worn = 104,                 ///< disk, per cent of the rated life used
  Temperature = 105,          ///< disk, degrees Celsius
  BadSectors = 106,           ///< disk, count
  ErrorLogEntries = 107,      ///< disk, count, description of the latest
  SelfTestInterrupted = 108,  ///< disk, status of the last self-test, hours on
  MarkedReadOnly = 109,       ///< disk
  PastAttribute = 110,        ///< disk, numbers of the attributes
  RecoveredVerify = 111,      ///< disk, offset in the file, block, sectors
  NoSpace = 112,              ///< disk, cause
  LowSpare = 113,             ///< disk, spare left in per cent, threshold
  SlowerThanAsked = 114,      ///< disk, rate, rate asked for
  SizeChanged = 115,          ///< disk, bytes when enumerated, bytes now
  UnusableAnswer = 116,       ///< disk, command whose answer is short or garbled
  AgedAttribute = 117,        ///< disk, number of the attribute, value, threshold
  DeviceWarning = 118,        ///< disk, code of the warning
  PredictionIsTest = 119,     ///< disk

  Unreadable = 201,        ///< disk, first block, blocks, bytes in a block, cause
  UnreadableTotal = 202,   ///< disk, blocks, bytes in a block, places, all of them
  Unstable = 203,          ///< disk, block, bytes in a block, different contents, reads
  SlowBlock = 204,         ///< disk, block, bytes in a block, latency, median of all
  Miscompare = 205,        ///< disk, offset, block, byte, expected, found, differing bits, sectors
  Misdirected = 206,       ///< disk, offset, block, offset whose data was found, sectors
  LostWrite = 207,         ///< disk, offset, block, sectors
  WriteFailed = 208,       ///< disk, offset, bytes, cause
  CriticalWarning = 209,   ///< disk, what the disk warns of
  HealthFailing = 210,     ///< disk, where it says so: "S.M.A.R.T." or a sense code
  MediaErrors = 211,       ///< disk, count
  FaultySectors = 212,     ///< disk, sectors, ranges, all of them
  SelfTestFailed = 213,    ///< disk, status of the last self-test, hours on, first bad block
  NoAnswer = 214,          ///< disk, block or "?", bytes in a block, seconds
  AttributeFailing = 215,  ///< disk, number of the attribute, value, threshold
};

}  // namespace TarvexDiags::Storage
