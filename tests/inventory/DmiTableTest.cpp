// The firmware's table of the machine's parts, sound and broken.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "inventory/DmiTable.h"
#include "tests/inventory/RecordedMachine.h"

namespace TarvexDiags::Inventory {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

MemoryModule onlyModule(const std::string& table) {
  const std::vector<MemoryModule> modules = memoryModules(parseDmiTable(table));
  EXPECT_THAT(modules, SizeIs(1));
  return modules.empty() ? MemoryModule() : modules.front();
}

/// A memory device whose numbers are put in by the test.
std::string withNumber(std::size_t offset, std::uint64_t value, std::size_t bytes) {
  std::string table = dmiModule({.locator = "A1", .serial = "1"});
  for (std::size_t index = 0; index < bytes; ++index) {
    table[offset + index] = static_cast<char>(value >> (8 * index));
  }
  return table;
}

TEST(DmiTable, tells_what_a_module_is) {
  const MemoryModule module = onlyModule(
      dmiModule({.locator = "DIMM_A1", .megabytes = 16384, .serial = "8F00"}) + dmiEnd());
  EXPECT_EQ(module.locator, "DIMM_A1");
  EXPECT_EQ(module.bank, "NODE 0");
  EXPECT_EQ(module.isPopulated, true);
  EXPECT_EQ(module.bytes, 16ULL << 30U);
  EXPECT_EQ(module.ratedSpeed, 4800U);
  EXPECT_EQ(module.configuredSpeed, 4800U);
  EXPECT_EQ(module.technology, "DDR5");
  EXPECT_EQ(module.maker, "Maker of Modules");
  EXPECT_EQ(module.serial, "8F00");
  EXPECT_EQ(module.part, "M321R2GA3BB6");
}

TEST(DmiTable, reads_sizes_in_kilobytes_and_in_the_field_for_large_ones) {
  EXPECT_EQ(onlyModule(withNumber(0x0C, 0x8000 | 512, 2)).bytes, 512U << 10U);
  std::string table = withNumber(0x0C, 0x7FFF, 2);
  table.replace(0x1C, 4, std::string("\x00\x00\x02\x80", 4));  // the highest bit is reserved
  EXPECT_EQ(onlyModule(table).bytes, 128ULL << 30U);
}

TEST(DmiTable, reads_speeds_in_the_fields_for_high_ones) {
  std::string table = withNumber(0x15, 0xFFFF, 2);
  table.replace(0x54, 4, std::string("\x00\x00\x01\x00", 4));
  EXPECT_EQ(onlyModule(table).ratedSpeed, 65536U);
  table = withNumber(0x20, 0xFFFF, 2);
  table.replace(0x58, 4, std::string("\x80\x38\x01\x00", 4));
  EXPECT_EQ(onlyModule(table).configuredSpeed, 80000U);
}

TEST(DmiTable, tells_an_empty_place_from_one_that_firmware_does_not_know) {
  const MemoryModule empty = onlyModule(withNumber(0x0C, 0, 2));
  EXPECT_EQ(empty.isPopulated, false);
  EXPECT_THAT(empty.part, IsEmpty()) << "what an empty place tells of its module is filling";
  EXPECT_EQ(onlyModule(withNumber(0x0C, 0xFFFF, 2)).isPopulated, std::nullopt);
}

TEST(DmiTable, takes_structures_that_are_shorter_than_those_of_today) {
  std::string old = dmiStructure(17, std::string(0x15 - 4, '\0'), {"A1"});
  old[0x10] = 1;
  old[0x0C] = 1;
  const MemoryModule module = onlyModule(old + dmiEnd());
  EXPECT_EQ(module.locator, "A1");
  EXPECT_EQ(module.bytes, 1U << 20U);
  EXPECT_EQ(module.ratedSpeed, 0U);
  EXPECT_THAT(module.maker, IsEmpty());
}

TEST(DmiTable, takes_a_string_that_is_not_there_for_none) {
  std::string table = dmiModule({.locator = "A1", .serial = "1"});
  table[0x18] = 77;
  EXPECT_THAT(onlyModule(table).serial, IsEmpty());
}

TEST(DmiTable, ends_at_its_end_and_at_the_first_structure_that_does_not_fit) {
  const std::string module = dmiModule({.locator = "A1", .serial = "1"});
  EXPECT_THAT(parseDmiTable(module + dmiEnd() + module), SizeIs(2)) << "the end is one, too";
  EXPECT_THAT(parseDmiTable(module + std::string("\x11\x03\x00\x00\x00\x00", 6)), SizeIs(1));
  const std::string table = module + module;
  for (std::size_t length = 0; length < table.size(); ++length) {
    EXPECT_THAT(parseDmiTable(table.substr(0, length)), SizeIs(length < module.size() ? 0 : 1))
        << length;
  }
}

}  // namespace
}  // namespace TarvexDiags::Inventory
