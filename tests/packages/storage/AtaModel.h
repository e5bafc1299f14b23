#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "packages/storage/AtaRecords.h"
#include "packages/storage/CommandChannel.h"

namespace TarvexDiags::Storage {

/// @brief A block that a device sends, built field by field.
class AtaBlock {
 public:
  using Bytes = std::vector<std::uint8_t>;

  AtaBlock& number(std::size_t at, std::uint64_t value, std::size_t width) {
    for (std::size_t place = 0; place < width; ++place) {
      m_bytes.at(at + place) = static_cast<std::uint8_t>(value >> 8 * place);
    }
    return *this;
  }
  AtaBlock& word(std::size_t at, std::uint16_t value) { return number(2 * at, value, 2); }
  AtaBlock& bit(std::size_t at, unsigned int bit) {
    m_bytes.at(2 * at + bit / 8) |= static_cast<std::uint8_t>(1U << bit % 8);
    return *this;
  }
  /// @brief A text as devices send it, the two characters of each word swapped.
  AtaBlock& text(std::size_t first, std::size_t last, std::string value) {
    value.resize(2 * (last - first + 1), ' ');
    for (std::size_t at = 0; at < value.size(); ++at) {
      m_bytes.at(2 * first + (at ^ 1U)) = static_cast<std::uint8_t>(value[at]);
    }
    return *this;
  }
  /// @brief The bytes, with a checksum at their end that fits.
  Bytes sealed() const {
    Bytes bytes = m_bytes;
    unsigned int sum = 0;
    std::for_each(bytes.begin(), bytes.end() - 1, [&](std::uint8_t byte) { sum += byte; });
    bytes.back() = static_cast<std::uint8_t>(0U - sum);
    return bytes;
  }
  const Bytes& bytes() const { return m_bytes; }

 private:
  Bytes m_bytes = Bytes(kAtaBlock);
};

/// @brief What a command is known by: its code, its feature or log, and the page of a log.
struct AtaAddress {
  unsigned int code;
  unsigned int selector = 0;
  unsigned int page = 0;
  auto operator<=>(const AtaAddress&) const = default;
};

/// @brief A disk of ATA behind a translation, which answers what a test gives it and refuses the
/// rest. Sound as it is made: 4711 hours on, 35 degrees Celsius.
class AtaModel : public CommandChannel {
 public:
  using Bytes = AtaBlock::Bytes;
  using Address = AtaAddress;
  static constexpr Address kIdentify{0xEC};
  static constexpr Address kPowerMode{0xE5};
  static constexpr Address kData{0xB0, 0xD0};
  static constexpr Address kThresholds{0xB0, 0xD1};
  static constexpr Address kErrors{0xB0, 0x01};
  static constexpr Address kSelfTests{0xB0, 0x06};
  static constexpr Address generalLog(unsigned int log, unsigned int page = 0) {
    return {0x2F, log, page};
  }

  AtaModel() {
    identity.text(10, 19, "  WD-0815").text(23, 26, "80.00A80").text(27, 46, "Model of a disk");
    identity.number(2 * 60, 0x0FFFFFFF, 4).bit(82, 0).bit(83, 14).bit(84, 14).bit(85, 0);
    identity.bit(87, 14);
    data.number(0, 16, 2);
    thresholds.number(0, 16, 2);
    attribute(9, 100, 4711).attribute(194, 100, 35);
  }

  AtaModel& attribute(unsigned int id, unsigned int value, std::uint64_t raw,
                      unsigned int threshold = 0, bool foretellsFailure = true,
                      std::optional<unsigned int> worst = {}) {
    const std::size_t at = 2 + 12 * m_attributes++;
    data.number(at, id, 1).number(at + 1, foretellsFailure ? 1 : 0, 2).number(at + 3, value, 1);
    data.number(at + 4, worst.value_or(value), 1).number(at + 5, raw, 6);
    thresholds.number(at, id, 1).number(at + 1, threshold, 1);
    return *this;
  }
  AtaModel& withoutAttributes() {
    data = AtaBlock().number(0, 16, 2);
    thresholds = AtaBlock().number(0, 16, 2);
    m_attributes = 0;
    return *this;
  }
  AtaModel& selfTestStatus(unsigned int status) {
    data.number(363, status << 4, 1);
    return *this;
  }
  /// @brief Sends these bytes, whatever the model would have sent.
  AtaModel& answers(const Address& command, Bytes bytes) {
    m_answers[command] = std::move(bytes);
    return *this;
  }
  /// @brief Lists the log in the directory of the general logs, with so many pages.
  AtaModel& hasLog(unsigned int log, unsigned int pages) {
    identity.bit(84, 5);
    m_directory.word(0, 1).word(log, static_cast<std::uint16_t>(pages));
    return *this;
  }

  ScsiAnswer execute(const ScsiCommand& command) override {
    const Address address = addressOf(command);
    asked.push_back(address);
    if (silentFrom && asked.size() > *silentFrom) {
      throw SilentCommand(kCommandPatience);
    }
    if (changesToTell > 0) {
      --changesToTell;
      return {.status = 2, .data = {}, .sense = {0x70, 0, 6, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x29, 0}};
    }
    if (address.code == 0xB0 && address.selector == 0xDA) {
      return registers(1);
    }
    if (address == kPowerMode) {
      return givesBlankRegisters ? blankRegisters() : registers(powerMode);
    }
    const Bytes bytes = bytesOf(address);
    return bytes.empty() && m_answers.count(address) == 0
               ? refusal()
               : ScsiAnswer{.status = 0, .data = bytes, .sense = {}};
  }

  AtaBlock identity;
  AtaBlock data;
  AtaBlock thresholds;
  bool exceeded = false;
  std::uint8_t powerMode = 0xFF;  ///< active; 0: standby
  bool tellsInFixedFormat = false;
  bool tellsRegisters = true;
  bool givesBlankRegisters = false;  ///< for the power mode
  bool knowsPassThrough = true;
  std::optional<std::size_t> silentFrom;  ///< as many commands are answered
  int changesToTell = 0;                  ///< instead of an answer
  std::vector<Address> asked;

 private:
  static Address addressOf(const ScsiCommand& command) {
    const auto& block = command.block;
    Address address{block[14]};
    if (address.code == 0xB0) {
      address.selector = block[4] == 0xD5 ? block[8] : block[4];
    } else if (address.code == 0x2F) {
      address.selector = block[8];
      address.page = block[10] + 256U * block[9];
    }
    return address;
  }

  Bytes bytesOf(const Address& address) const {
    if (!knowsPassThrough) {
      return {};
    }
    if (const auto found = m_answers.find(address); found != m_answers.end()) {
      return found->second;
    }
    if (address == kIdentify) {
      return identity.bytes();
    }
    if (address == generalLog(0) && m_directory.bytes()[0] != 0) {
      return m_directory.bytes();
    }
    return address == kData         ? data.sealed()
           : address == kThresholds ? thresholds.sealed()
                                    : Bytes();
  }

  ScsiAnswer refusal() const {
    return {.status = 2,
            .data = {},
            .sense = knowsPassThrough ? Bytes{0x72, 0x0B, 0, 0, 0, 0, 0, 14, 9, 12, 0,
                                              4,    0,    1, 0, 0, 0, 0, 0,  0, 0,  0x51}
                                      : Bytes{0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0}};
  }

  ScsiAnswer registers(std::uint8_t count) const {
    const std::uint8_t middle = exceeded ? 0xF4 : 0x4F;
    const std::uint8_t high = exceeded ? 0x2C : 0xC2;
    if (!tellsRegisters || !knowsPassThrough) {
      return refusal();
    }
    return {.status = 2,
            .data = {},
            .sense = tellsInFixedFormat
                         ? Bytes{0x70, 0, 1, 0, 0x50, 0, count, 10, 0, 0, middle, high, 0, 0x1D}
                         : Bytes{0x72, 1, 0,     0x1D, 0, 0, 0,      14, 9,    12, 0,
                                 0,    0, count, 0,    0, 0, middle, 0,  high, 0,  0x50}};
  }

  static ScsiAnswer blankRegisters() {
    Bytes sense{0x72, 1, 0, 0x1D, 0, 0, 0, 14, 9, 12};
    sense.resize(22);
    return {.status = 2, .data = {}, .sense = sense};
  }

  AtaBlock m_directory;
  std::map<Address, Bytes> m_answers;
  std::size_t m_attributes = 0;
};

}  // namespace TarvexDiags::Storage
