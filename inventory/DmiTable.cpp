#include "inventory/DmiTable.h"

#include <algorithm>
#include <iterator>

#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

namespace {

constexpr std::size_t kHeader = 4;
constexpr std::uint8_t kEndOfTable = 127;
constexpr std::uint8_t kMemoryDevice = 17;

// Offsets of a memory device, section 7.18.
constexpr std::size_t kArray = 0x04;
constexpr std::size_t kSize = 0x0C;
constexpr std::size_t kSet = 0x0F;
constexpr std::size_t kLocator = 0x10;
constexpr std::size_t kBank = 0x11;
constexpr std::size_t kTechnology = 0x12;
constexpr std::size_t kSpeed = 0x15;
constexpr std::size_t kMaker = 0x17;
constexpr std::size_t kSerial = 0x18;
constexpr std::size_t kPart = 0x1A;
constexpr std::size_t kExtendedSize = 0x1C;
constexpr std::size_t kConfiguredSpeed = 0x20;
constexpr std::size_t kExtendedSpeed = 0x54;
constexpr std::size_t kExtendedConfiguredSpeed = 0x58;

constexpr std::uint64_t kSetUnknown = 0xFF;
constexpr std::uint64_t kSizeUnknown = 0xFFFF;
constexpr std::uint64_t kSizeIsExtended = 0x7FFF;
constexpr std::uint64_t kInKilobytes = 0x8000;
constexpr std::uint64_t kSpeedIsExtended = 0xFFFF;
constexpr std::uint64_t kBitsOfExtended = 0x7FFF'FFFF;

struct Technology {
  std::uint64_t number;
  const char* name;
};

// Table 77 of section 7.18.2: those that machines of the last twenty years have.
constexpr Technology kTechnologies[] = {
    {0x0F, "SDRAM"}, {0x12, "DDR"},    {0x13, "DDR2"},   {0x18, "DDR3"},   {0x1A, "DDR4"},
    {0x1B, "LPDDR"}, {0x1C, "LPDDR2"}, {0x1D, "LPDDR3"}, {0x1E, "LPDDR4"}, {0x20, "HBM"},
    {0x21, "HBM2"},  {0x22, "DDR5"},   {0x23, "LPDDR5"}, {0x24, "HBM3"},
};

std::string technologyOf(const DmiStructure& structure) {
  const std::uint64_t number = structure.number(kTechnology, 1).value_or(0);
  const auto* const found =
      std::find_if(std::begin(kTechnologies), std::end(kTechnologies),
                   [&](const Technology& technology) { return technology.number == number; });
  return found == std::end(kTechnologies) ? "" : found->name;
}

std::uint64_t sizeOf(const DmiStructure& structure, std::uint64_t size) {
  constexpr std::uint64_t kKilobyte = 1024;
  if (size == kSizeIsExtended) {
    return (structure.number(kExtendedSize, 4).value_or(0) & kBitsOfExtended) * kKilobyte *
           kKilobyte;
  }
  return (size & kInKilobytes) != 0 ? (size & ~kInKilobytes) * kKilobyte
                                    : size * kKilobyte * kKilobyte;
}

std::uint64_t speedOf(const DmiStructure& structure, std::size_t place, std::size_t extended) {
  const std::uint64_t speed = structure.number(place, 2).value_or(0);
  return speed == kSpeedIsExtended ? structure.number(extended, 4).value_or(0) & kBitsOfExtended
                                   : speed;
}

MemoryModule moduleOf(const DmiStructure& structure) {
  MemoryModule module;
  module.locator = cleaned(structure.text(kLocator));
  module.bank = cleaned(structure.text(kBank));
  const auto size = structure.number(kSize, 2);
  if (size && *size != kSizeUnknown) {
    module.bytes = sizeOf(structure, *size);
    module.isPopulated = *size != 0;
  }
  if (!module.isPopulated.value_or(true)) {
    return module;  // what an empty place tells of its module is filling
  }
  module.ratedSpeed = speedOf(structure, kSpeed, kExtendedSpeed);
  module.configuredSpeed = speedOf(structure, kConfiguredSpeed, kExtendedConfiguredSpeed);
  module.technology = technologyOf(structure);
  module.maker = cleaned(structure.text(kMaker));
  module.part = cleaned(structure.text(kPart));
  module.serial = cleaned(structure.text(kSerial));
  module.array = structure.number(kArray, 2).value_or(0);
  const std::uint64_t set = structure.number(kSet, 1).value_or(0);
  module.set = set == kSetUnknown ? 0 : set;
  return module;
}

/// The strings behind a structure end with an empty one; without any there are two zeros.
std::size_t endOfStrings(std::string_view table, std::size_t begin) {
  const std::size_t end = table.find(std::string_view("\0\0", 2), begin);
  return end == std::string_view::npos ? end : end + 2;
}

}  // namespace

std::optional<std::uint64_t> DmiStructure::number(std::size_t offset, std::size_t bytes) const {
  if (offset > m_area.size() || bytes > m_area.size() - offset) {
    return std::nullopt;
  }
  std::uint64_t value = 0;
  for (std::size_t index = bytes; index > 0; --index) {
    value = (value << 8U) | static_cast<unsigned char>(m_area[offset + index - 1]);
  }
  return value;
}

std::string_view DmiStructure::text(std::size_t offset) const {
  std::uint64_t number = this->number(offset, 1).value_or(0);
  std::string_view rest = m_strings;
  for (; number > 1 && !rest.empty(); --number) {
    const std::size_t end = rest.find('\0');
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return number == 1 ? rest.substr(0, rest.find('\0')) : "";
}

std::vector<DmiStructure> parseDmiTable(std::string_view table) {
  std::vector<DmiStructure> structures;
  for (std::size_t begin = 0; table.size() - begin >= kHeader;) {
    const auto length = static_cast<unsigned char>(table[begin + 1]);
    if (length < kHeader || length > table.size() - begin) {
      break;
    }
    const std::size_t end = endOfStrings(table, begin + length);
    if (end == std::string_view::npos) {
      break;
    }
    structures.emplace_back(table.substr(begin, length),
                            table.substr(begin + length, end - begin - length));
    if (structures.back().type() == kEndOfTable) {
      break;
    }
    begin = end;
  }
  return structures;
}

std::vector<MemoryModule> memoryModules(const std::vector<DmiStructure>& structures) {
  std::vector<MemoryModule> modules;
  for (const DmiStructure& structure : structures) {
    if (structure.type() == kMemoryDevice) {
      modules.push_back(moduleOf(structure));
    }
  }
  return modules;
}

}  // namespace TarvexDiags::Inventory
