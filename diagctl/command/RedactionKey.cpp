#include "diagctl/command/RedactionKey.h"

#include <cerrno>
#include <fstream>
#include <iterator>

#include "diagctl/report/OutputFile.h"
#include "inventory/Redaction.h"

namespace TarvexDiags::FrontEnd {

std::string keyOf(const RedactionWishes& wishes) {
  if (!wishes.keyFile) {
    return Inventory::Redactor::drawKey();
  }
  errno = 0;
  std::ifstream file(*wishes.keyFile, std::ios::binary);
  std::string key{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.is_open() || file.bad()) {
    failWith(errno, *wishes.keyFile);
  }
  if (key.empty()) {
    failWith(ENODATA, *wishes.keyFile);
  }
  return key;
}

}  // namespace TarvexDiags::FrontEnd
