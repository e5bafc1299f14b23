// Reads any bytes as the firmware's table of the machine's parts.
//
// Nothing lies outside of the table, structures stand behind each other, the texts of modules are
// clean, and a table that is cut off loses only structures at its end.

#include <cstdint>
#include <string>
#include <string_view>

#include "inventory/DmiTable.h"
#include "inventory/Facts.h"
#include "tests/fuzz/Input.h"

namespace {

using namespace TarvexDiags::Fuzz;
using namespace TarvexDiags::Inventory;

void expectWithin(const DmiStructure& structure, std::string_view table) {
  for (std::size_t offset = 0; offset < UINT8_MAX; ++offset) {
    const std::string_view text = structure.text(offset);
    expect(text.empty() || (text.data() >= table.data() &&
                            text.data() + text.size() <= table.data() + table.size()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string table = textOf(data, size);
  const std::vector<DmiStructure> structures = parseDmiTable(table);
  for (const DmiStructure& structure : structures) {
    expectWithin(structure, table);
  }
  for (const MemoryModule& module : memoryModules(structures)) {
    for (const std::string* text :
         {&module.locator, &module.bank, &module.maker, &module.part, &module.serial}) {
      expect(cleaned(*text) == *text);
    }
    expect(module.isPopulated != false || module.bytes == 0);
  }
  const std::vector<DmiStructure> fewer =
      parseDmiTable(std::string_view(table).substr(0, table.size() / 2));
  expect(fewer.size() <= structures.size());
  for (std::size_t index = 0; index < fewer.size(); ++index) {
    expect(fewer[index].type() == structures[index].type() &&
           fewer[index].handle() == structures[index].handle());
  }
  return 0;
}
