#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TarvexDiags::Inventory {

/// @brief One structure of the firmware's table of the machine's parts, by the System Management
/// BIOS reference specification (DSP0134) 3.6, section 6.1.2. Valid as long as the table's bytes.
class DmiStructure {
 public:
  /// @param area the formatted area, its header of four bytes included.
  /// @param strings those behind it, with the zero behind each.
  DmiStructure(std::string_view area, std::string_view strings)
      : m_area(area), m_strings(strings) {}

  std::uint8_t type() const { return static_cast<std::uint8_t>(m_area[0]); }
  std::uint16_t handle() const { return static_cast<std::uint16_t>(*number(2, 2)); }

  /// @brief A number of one, two, four or eight bytes, the lowest first; nothing when the structure
  /// is too short for it, as those of older firmware are.
  std::optional<std::uint64_t> number(std::size_t offset, std::size_t bytes) const;

  /// @brief The string whose number stands at that place; empty when there is none.
  std::string_view text(std::size_t offset) const;

 private:
  std::string_view m_area;
  std::string_view m_strings;
};

/// @brief The structures of a table up to its end or to the first that does not fit into it.
/// @param table the bytes as the kernel shows them (/sys/firmware/dmi/tables/DMI).
std::vector<DmiStructure> parseDmiTable(std::string_view table);

/// @brief A place for a memory module (type 17), as firmware tells of it.
struct MemoryModule {
  std::string locator;              ///< as printed on the board
  std::string bank;                 ///< may be empty
  std::optional<bool> isPopulated;  ///< nothing: firmware does not know
  std::uint64_t bytes = 0;
  std::uint64_t ratedSpeed = 0;       ///< in megatransfers a second; 0: not told
  std::uint64_t configuredSpeed = 0;  ///< the same
  std::string technology;             ///< "DDR5"; empty when not told
  std::string maker;
  std::string part;
  std::string serial;
  std::uint64_t array = 0;  ///< handle of the array of places that it belongs to
  /// Of several that must be filled with the like: the number of their set; 0: firmware names none.
  std::uint64_t set = 0;
};

/// @brief The places for memory modules, in the table's order.
std::vector<MemoryModule> memoryModules(const std::vector<DmiStructure>& structures);

}  // namespace TarvexDiags::Inventory
