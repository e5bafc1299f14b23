#include "diagctl/command/RedactionKey.h"

#include <cerrno>
#include <cstddef>

#include "diagctl/report/OutputFile.h"
#include "inventory/InputFile.h"
#include "inventory/Redaction.h"

namespace TarvexDiags::FrontEnd {

std::string keyOf(const RedactionWishes& wishes) {
  if (!wishes.keyFile) {
    return Inventory::Redactor::drawKey();
  }
  constexpr std::size_t kMostBytes = 1UL << 20U;
  std::string key = Inventory::readInput(*wishes.keyFile, kMostBytes);
  if (key.empty() || key.size() > kMostBytes) {
    failWith(key.empty() ? ENODATA : EFBIG, *wishes.keyFile);
  }
  return key;
}

}  // namespace TarvexDiags::FrontEnd
