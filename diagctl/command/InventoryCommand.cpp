#include "diagctl/command/InventoryCommand.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "diagctl/command/JsonAnswers.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/OutputFile.h"
#include "diagctl/report/WrittenFile.h"
#include "inventory/Inventory.h"
#include "inventory/Redaction.h"

namespace TarvexDiags::FrontEnd {

namespace {

/// @throws std::system_error naming a file that cannot be read or is empty.
std::string keyOf(const std::optional<std::string>& keyFile) {
  if (!keyFile) {
    return Inventory::Redactor::drawKey();
  }
  errno = 0;
  std::ifstream file(*keyFile, std::ios::binary);
  std::string key{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.is_open() || file.bad()) {
    failWith(errno, *keyFile);
  }
  if (key.empty()) {
    failWith(ENODATA, *keyFile);
  }
  return key;
}

/// @throws std::system_error naming a folder that is none, or below which no machine lies.
void requireMachine(const std::filesystem::path& root) {
  std::error_code failure;
  if (!std::filesystem::is_directory(root, failure)) {
    failWith(failure ? failure.value() : ENOTDIR, root.string());
  }
  const std::string proc = (root / "proc").string();
  const std::string sys = (root / "sys").string();
  if (access(proc.c_str(), F_OK) != 0 && access(sys.c_str(), F_OK) != 0) {
    failWith(errno, sys);
  }
}

Inventory::Json takeInventory(const InventoryOptions& options) {
  requireMachine(options.root);
  const Inventory::SystemFiles files(options.root);
  const bool isThisMachine = options.root == InventoryOptions().root;
  const Inventory::AskDriver ask =
      isThisMachine ? Inventory::AskDriver(Inventory::askDriver) : nullptr;
  Inventory::Json inventory = Inventory::takeInventory(files, ask);
  if (!options.isRedacted && !options.keyFile) {
    return inventory;
  }
  Inventory::Redactor redactor(keyOf(options.keyFile));
  redactor.learn(inventory);
  return redactor.redacted(inventory);
}

}  // namespace

int carryOutInventory(Printer& out, const InventoryOptions& options) {
  const Json inventory = takeInventory(options);
  if (!options.output) {
    writeJson(out, inventory);
    return ExitCode::kPassed;
  }
  WrittenFile file(*options.output);
  writeJson(file.out(), inventory);
  file.finish();
  return ExitCode::kPassed;
}

}  // namespace TarvexDiags::FrontEnd
