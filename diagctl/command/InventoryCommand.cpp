#include "diagctl/command/InventoryCommand.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "diagctl/command/InventoryFindings.h"
#include "diagctl/command/JsonAnswers.h"
#include "diagctl/command/UsageFault.h"
#include "diagctl/report/ExitStatus.h"
#include "diagctl/report/OutputFile.h"
#include "diagctl/report/WrittenFile.h"
#include "diagctl/terminal/Translation.h"
#include "inventory/Document.h"
#include "inventory/Golden.h"
#include "inventory/Inventory.h"
#include "inventory/Redaction.h"

namespace TarvexDiags::FrontEnd {

namespace {

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

Inventory::Json redactedBy(const InventoryOptions& options, Inventory::Json inventory) {
  if (!options.redaction.areAny()) {
    return inventory;
  }
  Inventory::Redactor redactor(keyOf(options.redaction));
  redactor.learn(inventory);
  return redactor.redacted(inventory);
}

void writeTo(const std::optional<std::string>& output, Printer& out, const Json& document) {
  if (!output) {
    writeJson(out, document);
    return;
  }
  WrittenFile file(*output);
  writeJson(file.out(), document);
  file.finish();
}

const char* wordFor(Inventory::Gravity gravity) {
  switch (gravity) {
    case Inventory::Gravity::Failure:
      return marked("FAILED");
    case Inventory::Gravity::Warning:
      return marked("WARNING");
    case Inventory::Gravity::Information:
      break;
  }
  return marked("NOTE");
}

}  // namespace

Inventory::Json takeInventory(const std::string& root) {
  requireMachine(root);
  const Inventory::SystemFiles files(root);
  const bool isThisMachine = root == InventoryOptions().root;
  return Inventory::takeInventory(
      files, isThisMachine ? Inventory::AskDriver(Inventory::askDriver) : nullptr);
}

Inventory::Rules rulesFrom(const std::optional<std::string>& file) {
  return file ? Inventory::Rules::parse(Inventory::readDocument(*file), *file) : Inventory::Rules();
}

int carryOutInventory(Printer& out, const InventoryOptions& options) {
  writeTo(options.output, out, redactedBy(options, takeInventory(options.root)));
  return ExitCode::kPassed;
}

int carryOutInventoryGolden(const InventoryGoldenOptions& options) {
  if (options.files.size() < Inventory::kFewestForGolden) {
    throw UsageFault(
        trn("of 1 machine there is no majority that means anything; at least {1} are needed",
            "of {0} machines there is no majority that means anything; at least {1} are needed",
            options.files.size(), Inventory::kFewestForGolden));
  }
  Inventory::Rules rules = rulesFrom(options.rules);
  rules.append(Inventory::Rules::shipped());
  std::vector<Inventory::NamedInventory> machines;
  for (const std::string& file : options.files) {
    machines.push_back({file, Inventory::readDocument(file)});
    Inventory::requireInventory(machines.back().inventory, file);
  }
  const Inventory::Golden golden = goldenOf(machines, rules);
  writeTo(options.output, standardOutput(), Inventory::toJson(golden, machines.size()));
  Printer& people = options.output ? standardOutput() : standardError();
  const std::vector<Inventory::OddMachine> odd = oddMachines(machines, golden, rules);
  for (const Inventory::OddMachine& machine : odd) {
    for (const Inventory::Finding& finding : machine.findings) {
      people.print("{}: {}: {}\n", machine.name, told(wordFor(finding.gravity)), describe(finding));
    }
  }
  people.say("machines: {}, of which differ: {}; facts on which they do not agree: {}\n",
             machines.size(), odd.size(), golden.rules.size());
  return ExitCode::kPassed;
}

int carryOutInventoryDiff(Printer& out, const std::string& one, const std::string& other) {
  const Inventory::Json left = Inventory::readGolden(one).inventory;
  const Inventory::Json right = Inventory::readGolden(other).inventory;
  const auto textOf = [](const std::optional<Inventory::Json>& fact) {
    return fact ? valueText(*fact) : tr("nothing");
  };
  for (const Inventory::Difference& difference : Inventory::differencesOf(left, right)) {
    out.print("{}: {} -> {}\n", Inventory::toText(difference.path), textOf(difference.expected),
              textOf(difference.actual));
  }
  return ExitCode::kPassed;
}

}  // namespace TarvexDiags::FrontEnd
