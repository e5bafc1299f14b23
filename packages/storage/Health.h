#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "packages/storage/Disks.h"
#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {

/// @brief An attribute of a disk whose value has fallen to its threshold or below it.
struct BeyondThreshold {
  unsigned int attribute = 0;  ///< its number
  unsigned int value = 0;
  unsigned int threshold = 0;
};

/// @brief What a disk says of itself, of either kind; what a disk does not tell is absent.
struct HealthReport {
  std::vector<std::string> criticalWarnings;  ///< tokens of the package's texts
  bool failing = false;                       ///< the disk's own verdict
  std::string failingText;                    ///< where it says so, in terms that no language has
  std::vector<BeyondThreshold> failingAttributes;  ///< the disk is about to fail
  std::vector<BeyondThreshold> agedAttributes;     ///< the disk is old or much used
  std::vector<unsigned int> pastAttributes;        ///< would be failing, and are so no more
  std::string deviceWarning;                       ///< code of what the disk warns of
  bool predictionIsTest = false;                   ///< it plays that it is about to fail
  std::vector<std::string> unusableAnswers;        ///< commands whose answer is short or garbled
  std::uint64_t mediaErrors = 0;                   ///< data that could not be recovered
  std::uint64_t badSectors = 0;                    ///< reallocated or waiting for it
  unsigned int percentUsed = 0;                    ///< of the rated life; may be above 100
  unsigned int spare = 100;                        ///< spare capacity left, in per cent
  unsigned int spareThreshold = 0;                 ///< below it the disk warns
  int celsius = 0;                                 ///< 0: not told
  std::uint64_t powerOnHours = 0;
};

/// @brief One entry of a disk's error log, or a counter of the kernel's.
struct ErrorLogEntry {
  std::uint64_t count = 0;
  std::string text;
};

/// @brief How the last self-test of the disk ended.
enum class SelfTestEnd { PassedOrNever, Running, Interrupted, Failed };

struct ErrorLog {
  std::string origin;                  ///< where it was read: a token, or a name in no language
  std::uint64_t harmless = 0;          ///< entries that blame a program's request, not the disk
  std::vector<ErrorLogEntry> entries;  ///< the latest first
  /// Commands that the kernel counted as ended with sense data. A sound disk has some: what it does
  /// not know, and what programs that look after disks ask for, end like that too.
  std::uint64_t senseData = 0;
  SelfTestEnd selfTest = SelfTestEnd::PassedOrNever;
  unsigned int selfTestStatus = 0;            ///< the disk's code for it
  std::optional<unsigned int> selfTestHours;  ///< that the disk had been on
  std::optional<std::uint64_t> firstBadLba;   ///< that the self-test could not read
  std::vector<std::string> unusableAnswers;   ///< as for HealthReport
};

/// @brief Reads a disk's health; a seam, so that tests can bring sick disks.
class HealthReader {
 public:
  HealthReader() = default;
  HealthReader(const HealthReader&) = delete;
  HealthReader& operator=(const HealthReader&) = delete;
  virtual ~HealthReader() = default;

  /// @brief Both throw NotSupported when the disk does not tell or this user may not ask,
  /// SilentCommand when it does not answer, and std::system_error with ENODEV when it has left.
  virtual HealthReport health() = 0;
  virtual ErrorLog errorLog() = 0;
};

/// @brief The reader for a disk. Throws NotSupported where there is none, as for virtual disks, and
/// as the reader itself.
std::unique_ptr<HealthReader> makeHealthReader(const Disk& disk);

/// @brief Replaces the names that the kernel cut short by those that an ATA disk gives itself;
/// leaves others as they are. Throws as the reader.
void describeByItself(Disk& disk);

/// @brief Why the disk has no health to read; nothing when it has. For discovery: opens nothing.
std::optional<Common::Reason> whyNoHealth(const Disk& disk);

/// @brief From these on there is a warning.
struct HealthLimits {
  std::uint64_t percentUsed;  ///< of the rated life
  long celsius;
};

/// @brief Tells what is wrong with the disk by its own account, and a summary.
void judgeHealth(const HealthReport& health, const HealthLimits& limits, const std::string& disk,
                 RunJournal& journal);
/// @param allowedEntries  more are a warning
void judgeErrorLog(const ErrorLog& log, std::uint64_t allowedEntries, const std::string& disk,
                   RunJournal& journal);

/// @brief Tells what the disk is, and compares the capacity that it had when it was enumerated with
/// what it answers now, where it can be opened. Another one is a warning: a disk that loses blocks
/// looks like one that somebody has resized.
void identify(const Disk& disk, std::uint64_t bytesByDevice, RunJournal& journal);

}  // namespace TarvexDiags::Storage
