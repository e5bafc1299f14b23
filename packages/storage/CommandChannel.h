#pragma once

#include <scsi/sg.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "packages/storage/Disks.h"
#include "packages/storage/RecordBytes.h"

namespace TarvexDiags::Storage {

/// @brief A command that asks a disk for something and changes nothing on it.
struct ScsiCommand {
  /// @param mostAnswered bytes that the disk may send; 0 for a command without data
  ScsiCommand(std::initializer_list<std::uint8_t> bytes, std::size_t mostAnswered);

  std::array<std::uint8_t, 16> block{};  ///< the command descriptor block
  std::uint8_t blockBytes;               ///< of it: 6, 10, 12 or 16
  std::size_t answerBytes;
};

/// @brief What came back.
struct ScsiAnswer {
  std::uint8_t status = 0;          ///< 0: good
  std::vector<std::uint8_t> data;   ///< as many bytes as were received
  std::vector<std::uint8_t> sense;  ///< why the status is not good; may be empty
};

/// @brief The registers of an ATA device after a command, as its translation tells them.
struct AtaRegisters {
  std::uint8_t error = 0;
  std::uint8_t status = 0;
  std::uint8_t count = 0;
  std::uint8_t lbaMiddle = 0;
  std::uint8_t lbaHigh = 0;
};

/// @brief Sense data of either format. All zero when there is none that can be read.
struct Sense {
  std::uint8_t key = 0;
  std::uint8_t code = 0;
  std::uint8_t qualifier = 0;
  std::optional<AtaRegisters> registers;
};
Sense senseFrom(Record sense);

/// @brief The disk has not answered a command in time.
class SilentCommand : public std::exception {
 public:
  explicit SilentCommand(std::chrono::seconds patience) : m_patience(patience) {}
  const char* what() const noexcept override { return "the disk does not answer"; }
  std::chrono::seconds patience() const { return m_patience; }

 private:
  std::chrono::seconds m_patience;
};

/// @brief How long a disk may take for one command.
constexpr std::chrono::seconds kCommandPatience{5};

/// @brief Whether a command that has ended took all of that, as far as the kernel's clock tells.
bool tookItsTime(std::chrono::nanoseconds taken);

/// @brief The way of commands to a disk; a seam, so that tests can bring disks of their own. Of one
/// thread.
class CommandChannel {
 public:
  CommandChannel() = default;
  CommandChannel(const CommandChannel&) = delete;
  CommandChannel& operator=(const CommandChannel&) = delete;
  virtual ~CommandChannel() = default;

  /// @brief Throws SilentCommand, NotSupported when the kernel or this user's rights refuse the
  /// command, and std::system_error with ENODEV when the disk has left.
  virtual ScsiAnswer execute(const ScsiCommand& command) = 0;
};

/// @brief Executes the command, and once more when a change, such as a reset, was told instead of
/// its answer: each is told once.
ScsiAnswer executeSettled(CommandChannel& channel, const ScsiCommand& command);

/// @brief The kernel's way to a disk. Throws as execute().
std::unique_ptr<CommandChannel> openChannel(const Disk& disk);

using ChannelOpener = std::function<std::unique_ptr<CommandChannel>()>;

/// @brief What the kernel's account of an ended command means. Throws as execute().
ScsiAnswer answerOf(const sg_io_hdr_t& ended, const std::string& disk);

}  // namespace TarvexDiags::Storage
