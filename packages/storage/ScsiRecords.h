#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "packages/storage/RecordBytes.h"

namespace TarvexDiags::Storage {

/// @brief Log pages of SCSI devices, by their codes.
enum class LogPage : std::uint8_t {
  Supported = 0x00,
  WriteErrors = 0x02,
  ReadErrors = 0x03,
  VerifyErrors = 0x05,
  Temperature = 0x0D,
  SelfTests = 0x10,
  SolidState = 0x11,
  BackgroundScan = 0x15,
  InformationalExceptions = 0x2F,
};

/// @brief The pages that the device has. Each of these is nothing for a record that is not that
/// page or ends before what it should tell.
std::optional<std::vector<std::uint8_t>> supportedPagesFrom(Record page);

/// @brief Errors of a page of counters that could not be corrected; 0 where it does not count them.
std::optional<std::uint64_t> uncorrectedErrorsFrom(Record page, LogPage code);

/// @brief What the device warns of.
struct InformationalException {
  std::uint8_t code = 0;  ///< additional sense code; 0: of nothing
  std::uint8_t qualifier = 0;
  int celsius = 0;  ///< 0: not told
};
std::optional<InformationalException> informationalExceptionFrom(Record page);

/// @brief Degrees Celsius; 0 when the device does not know.
std::optional<int> temperatureFrom(Record page);
std::optional<unsigned int> percentUsedFrom(Record page);
std::optional<std::uint64_t> powerOnHoursFrom(Record page);

struct ScsiSelfTest {
  std::uint8_t result = 0;  ///< 0: passed; 1, 2: interrupted; 3 to 7: failed; 15: running
  std::uint16_t hours = 0;  ///< that the device had been on
  std::optional<std::uint64_t> firstBadLba;
};
struct ScsiSelfTestLog {
  std::optional<ScsiSelfTest> latest;  ///< nothing when there was none
};
std::optional<ScsiSelfTestLog> selfTestsFrom(Record page);

}  // namespace TarvexDiags::Storage
