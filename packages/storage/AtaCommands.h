#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "packages/storage/CommandChannel.h"

namespace TarvexDiags::Storage {

/// @brief A command of ATA that asks for a block of data, or for the registers after it.
struct AtaCommand {
  const char* name = "";
  std::uint8_t code = 0;
  std::uint8_t feature = 0;
  std::uint8_t lbaLow = 0;
  std::uint8_t lbaMiddle = 0;
  std::uint8_t lbaHigh = 0;
  std::uint8_t pageHigh = 0;  ///< the upper half of a log's page
  bool hasLongAddress = false;
};

/// @brief One of S.M.A.R.T., which answers to a certain address alone.
constexpr AtaCommand smartCommand(const char* name, std::uint8_t feature, std::uint8_t log = 0) {
  return {.name = name,
          .code = 0xB0,
          .feature = feature,
          .lbaLow = log,
          .lbaMiddle = 0x4F,
          .lbaHigh = 0xC2};
}

/// @brief A page of one of the logs that are read by 48-bit commands.
constexpr AtaCommand generalLog(const char* name, std::uint8_t log, std::uint16_t page = 0) {
  return {.name = name,
          .code = 0x2F,
          .lbaLow = log,
          .lbaMiddle = static_cast<std::uint8_t>(page & 0xFF),
          .pageHigh = static_cast<std::uint8_t>(page >> 8),
          .hasLongAddress = true};
}

constexpr AtaCommand kIdentify{.name = "IDENTIFY DEVICE", .code = 0xEC};

/// @brief Sends commands of ATA through a channel of SCSI.
class AtaCommands {
 public:
  explicit AtaCommands(CommandChannel& channel) : m_channel(channel) {}

  /// @brief What the disk sends, which may be less than a block; nothing when it refuses. Throws as
  /// the channel, like the next.
  std::optional<std::vector<std::uint8_t>> read(const AtaCommand& command);

  /// @brief Whether the disk says that a threshold is exceeded; nothing when it does not tell.
  std::optional<bool> thresholdExceeded();

  /// @brief Whether the medium stands still; false when the disk does not tell.
  bool isInStandby();

 private:
  ScsiAnswer execute(const AtaCommand& command, bool hasData);

  CommandChannel& m_channel;
};

}  // namespace TarvexDiags::Storage
