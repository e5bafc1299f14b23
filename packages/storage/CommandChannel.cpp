#include "packages/storage/CommandChannel.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "packagekit/UniqueDescriptor.h"
#include "packages/storage/Refusal.h"
#include "packages/storage/StorageEvents.h"
#include "packages/storage/TransferQueue.h"

namespace TarvexDiags::Storage {
namespace {

constexpr std::size_t kMostSense = 252;
constexpr std::uint8_t kCheckCondition = 2;

/// @brief Results of the host adapter, as the kernel numbers them.
enum HostStatus : unsigned short int { NoConnection = 1, TimedOut = 3, BadTarget = 4 };

/// @brief Whether the command ended because its time was up. What recovers an ATA disk ends it as
/// aborted; only the time that it took tells that.
bool wasSilent(const sg_io_hdr_t& ended) {
  return ended.host_status == TimedOut || (ended.status == kCheckCondition &&
                                           tookItsTime(std::chrono::milliseconds(ended.duration)));
}

class SgChannel final : public CommandChannel {
 public:
  explicit SgChannel(const Disk& disk)
      : m_name(disk.name),
        m_device(open(disk.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)) {
    if (!m_device) {
      refuse(m_name, Reasons::kCannotBeAsked, errno);
    }
  }

  ScsiAnswer execute(const ScsiCommand& command) override {
    std::array<std::uint8_t, 16> block = command.block;
    std::vector<std::uint8_t> data(command.answerBytes);
    std::array<std::uint8_t, kMostSense> sense{};
    sg_io_hdr_t call{};
    call.interface_id = 'S';
    call.dxfer_direction = data.empty() ? SG_DXFER_NONE : SG_DXFER_FROM_DEV;
    call.cmdp = block.data();
    call.cmd_len = command.blockBytes;
    call.dxferp = data.data();
    call.dxfer_len = static_cast<unsigned int>(data.size());
    call.sbp = sense.data();
    call.mx_sb_len = kMostSense;
    call.timeout = static_cast<unsigned int>(std::chrono::milliseconds(kCommandPatience).count());
    if (ioctl(m_device.get(), SG_IO, &call) != 0) {
      refuse(m_name, Reasons::kCommandRefused, errno);
    }
    return answerOf(call, m_name);
  }

 private:
  std::string m_name;
  PackageKit::UniqueDescriptor m_device;
};

AtaRegisters registersOfDescriptor(Record descriptor) {
  AtaRegisters registers;
  registers.error = byteAt(descriptor, 3);
  registers.count = byteAt(descriptor, 5);
  registers.lbaMiddle = byteAt(descriptor, 9);
  registers.lbaHigh = byteAt(descriptor, 11);
  registers.status = byteAt(descriptor, 13);
  return registers;
}

std::optional<AtaRegisters> registersAmongDescriptors(Record sense) {
  constexpr std::uint8_t ataStatusReturn = 9;
  constexpr std::size_t descriptorBytes = 14;
  for (std::size_t at = 8; at + descriptorBytes <= sense.size(); at += 2U + byteAt(sense, at + 1)) {
    if (byteAt(sense, at) == ataStatusReturn) {
      return registersOfDescriptor(partOf(sense, at, descriptorBytes));
    }
  }
  return std::nullopt;
}

Sense senseOfFixedFormat(Record sense) {
  constexpr std::uint8_t registersAvailable = 0x1D;
  Sense told;
  told.key = static_cast<std::uint8_t>(byteAt(sense, 2) & 0x0F);
  told.code = byteAt(sense, 12);
  told.qualifier = byteAt(sense, 13);
  if (told.code == 0 && told.qualifier == registersAvailable) {
    AtaRegisters registers;
    registers.error = byteAt(sense, 3);
    registers.status = byteAt(sense, 4);
    registers.count = byteAt(sense, 6);
    registers.lbaMiddle = byteAt(sense, 10);
    registers.lbaHigh = byteAt(sense, 11);
    told.registers = registers;
  }
  return told;
}

}  // namespace

ScsiCommand::ScsiCommand(std::initializer_list<std::uint8_t> bytes, std::size_t mostAnswered)
    : blockBytes(static_cast<std::uint8_t>(std::min(bytes.size(), block.size()))),
      answerBytes(mostAnswered) {
  std::copy_n(bytes.begin(), blockBytes, block.begin());
}

bool tookItsTime(std::chrono::nanoseconds taken) {
  return taken >= kCommandPatience - std::chrono::milliseconds(100);
}

Sense senseFrom(Record sense) {
  const int format = byteAt(sense, 0) & 0x7F;
  if (format == 0x70 || format == 0x71) {
    return senseOfFixedFormat(sense);
  }
  Sense told;
  if (format == 0x72 || format == 0x73) {
    told.key = static_cast<std::uint8_t>(byteAt(sense, 1) & 0x0F);
    told.code = byteAt(sense, 2);
    told.qualifier = byteAt(sense, 3);
    told.registers = registersAmongDescriptors(sense);
  }
  return told;
}

ScsiAnswer answerOf(const sg_io_hdr_t& ended, const std::string& disk) {
  if (wasSilent(ended)) {
    throw SilentCommand(kCommandPatience);
  }
  if (ended.host_status == NoConnection || ended.host_status == BadTarget) {
    throwVanished(disk, Reasons::kNoConnection, fmt::format("host status {}", ended.host_status));
  }
  if (ended.host_status != 0) {
    throw NotSupported(Reasons::kCommandRefused, fmt::format("host status {}", ended.host_status));
  }
  ScsiAnswer answer;
  answer.status = ended.status;
  const auto* const data = static_cast<const std::uint8_t*>(ended.dxferp);
  const auto missing =
      static_cast<unsigned int>(std::clamp(ended.resid, 0, static_cast<int>(ended.dxfer_len)));
  if (data != nullptr) {
    answer.data.assign(data, data + (ended.dxfer_len - missing));
  }
  if (ended.sbp != nullptr) {
    answer.sense.assign(ended.sbp, ended.sbp + std::min(ended.sb_len_wr, ended.mx_sb_len));
  }
  return answer;
}

ScsiAnswer executeSettled(CommandChannel& channel, const ScsiCommand& command) {
  constexpr std::uint8_t unitAttention = 6;
  ScsiAnswer answer = channel.execute(command);
  const bool tellsOfChange =
      answer.status == kCheckCondition && senseFrom(answer.sense).key == unitAttention;
  return tellsOfChange ? channel.execute(command) : answer;
}

std::unique_ptr<CommandChannel> openChannel(const Disk& disk) {
  return std::make_unique<SgChannel>(disk);
}

}  // namespace TarvexDiags::Storage
