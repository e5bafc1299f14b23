#include "packages/storage/AtaCommands.h"

#include <utility>

#include "packages/storage/AtaRecords.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief The command as SCSI carries it. The registers are asked for only where they are the
/// answer: not every adapter gives them beside data.
ScsiCommand passThrough(const AtaCommand& command, bool hasData) {
  constexpr std::uint8_t noData = 3 << 1;
  constexpr std::uint8_t dataIn = 4 << 1;
  constexpr std::uint8_t longAddress = 1;
  constexpr std::uint8_t blocksInByCount = 0x0E;
  constexpr std::uint8_t registersWanted = 0x20;
  const std::uint8_t count = hasData ? 1 : 0;
  const auto protocol = static_cast<std::uint8_t>((hasData ? dataIn : noData) |
                                                  (command.hasLongAddress ? longAddress : 0));
  return {
      {0x85, protocol, hasData ? blocksInByCount : registersWanted, 0, command.feature, 0, count, 0,
       command.lbaLow, command.pageHigh, command.lbaMiddle, 0, command.lbaHigh, 0, command.code, 0},
      hasData ? kAtaBlock : 0};
}

}  // namespace

std::optional<std::vector<std::uint8_t>> AtaCommands::read(const AtaCommand& command) {
  ScsiAnswer answer = execute(command, true);
  if (answer.status != 0) {
    return std::nullopt;
  }
  return std::move(answer.data);
}

std::optional<bool> AtaCommands::thresholdExceeded() {
  constexpr AtaCommand returnStatus = smartCommand("SMART RETURN STATUS", 0xDA);
  const auto registers = senseFrom(execute(returnStatus, false).sense).registers;
  // The disk leaves the address as it was, or turns it over.
  if (registers && registers->lbaMiddle == 0x4F && registers->lbaHigh == 0xC2) {
    return false;
  }
  if (registers && registers->lbaMiddle == 0xF4 && registers->lbaHigh == 0x2C) {
    return true;
  }
  return std::nullopt;
}

bool AtaCommands::isInStandby() {
  constexpr AtaCommand checkPowerMode{.name = "CHECK POWER MODE", .code = 0xE5};
  constexpr std::uint8_t ready = 0x40;
  constexpr std::uint8_t failed = 0x01;
  constexpr std::uint8_t lastOfStandby = 0x01;  // 00h, and 01h for the kinds of it
  const auto registers = senseFrom(execute(checkPowerMode, false).sense).registers;
  // Some translations answer with registers that are all zero. A disk is ready even in standby.
  return registers && (registers->status & (ready | failed)) == ready &&
         registers->count <= lastOfStandby;
}

ScsiAnswer AtaCommands::execute(const AtaCommand& command, bool hasData) {
  return executeSettled(m_channel, passThrough(command, hasData));
}

}  // namespace TarvexDiags::Storage
