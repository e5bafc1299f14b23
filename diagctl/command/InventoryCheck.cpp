#include "diagctl/command/InventoryCheck.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "diagctl/command/InventoryCommand.h"
#include "diagctl/command/InventoryFindings.h"
#include "diagctl/report/RunVerdict.h"
#include "diagctl/report/StepRecord.h"
#include "diagctl/run/Machine.h"
#include "diagctl/terminal/Translation.h"
#include "inventory/Golden.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace fs = std::filesystem;
using Inventory::Finding;
using Inventory::Gravity;
using Facts = Inventory::Json;

constexpr const char* kCheckStep = "inventory-check";

std::string textAt(const Facts& inventory, const char* key) {
  const Facts system = inventory.value("system", Facts::object());
  const Facts text = system.is_object() ? system.value(key, Facts()) : Facts();
  return text.is_string() ? text.get<std::string>() : "";
}

std::string machineKindOf(const Facts& inventory) {
  return textAt(inventory, "vendor") + " " + textAt(inventory, "product");
}

/// The file of a folder that is for machines of this kind.
/// @throws std::runtime_error when there is none, or more than one.
Inventory::Golden goldenIn(const std::string& folder, const Facts& inventory) {
  std::set<std::string> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".json" && entry.is_regular_file()) {
      files.insert(entry.path().string());
    }
  }
  std::string found;
  Inventory::Golden chosen;
  for (const std::string& file : files) {
    Inventory::Golden golden = Inventory::readGolden(file);
    if (machineKindOf(golden.inventory) != machineKindOf(inventory)) {
      continue;
    }
    if (!found.empty()) {
      throw std::runtime_error(tr("{}: both {} and {} are for \"{}\"", folder,
                                  fs::path(found).filename().string(),
                                  fs::path(file).filename().string(), machineKindOf(inventory)));
    }
    found = file;
    chosen = std::move(golden);
  }
  if (found.empty()) {
    throw std::runtime_error(tr("{}: holds no file for \"{}\"", folder, machineKindOf(inventory)));
  }
  return chosen;
}

Inventory::Golden expectedFor(const std::string& against, const Facts& inventory) {
  std::error_code ignored;
  return fs::is_directory(against, ignored) ? goldenIn(against, inventory)
                                            : Inventory::readGolden(against);
}

/// The stream of a check: a run of one step.
class CheckStream {
 public:
  explicit CheckStream(Outputs& outputs) : m_outputs(outputs) {}

  void tell(RunEventBody body) {
    const RunEvent event{
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()),
        std::move(body)};
    m_record.handle(event);
    m_outputs.handle(event);
  }
  const RunRecord& record() const { return m_record; }

 private:
  Outputs& m_outputs;
  RunRecord m_record;
};

bool isThisMachine(const InventoryCheckOptions& options) {
  return options.root == InventoryCheckOptions().root;
}

/// Recorded machines are told by what was recorded of them.
RunStarted openingOf(const InventoryCheckOptions& options, const Facts& inventory) {
  RunStarted start = describeMachine();
  if (!isThisMachine(options)) {
    const std::string host = textAt(inventory, "hostName");
    start.machineName = host.empty() ? options.root : host;
    start.machineId = start.machineName;
    start.platforms = {machineKindOf(inventory)};
  }
  start.name = "diagctl";
  start.version = TARVEX_VERSION;
  start.commandLine = options.commandLine;
  start.software.push_back({"controller", "TarvexDiags", TARVEX_VERSION});
  return start;
}

std::string hardwareIdOf(std::size_t number) {
  return "part" + std::to_string(number);
}

/// A finding: information is no verdict.
RunEventBody eventOf(const Finding& finding, std::size_t number) {
  if (finding.gravity == Gravity::Information) {
    return StepMessage{kCheckStep, Severity::Information, describe(finding), adviceFor(finding)};
  }
  const Verdict verdict = finding.gravity == Gravity::Failure ? Verdict::Fail : Verdict::Unknown;
  return StepDiagnosis{kCheckStep,         verdict,
                       symptomOf(finding), describe(finding),
                       adviceFor(finding), hardwareIdOf(number),
                       number == 1 ? 1 : 0};
}

void tellFindings(CheckStream& stream, const Inventory::Comparison& comparison) {
  std::size_t number = 0;
  bool isJudged = false;
  for (const Finding& finding : comparison.findings) {
    stream.tell(eventOf(finding, ++number));
    isJudged = isJudged || finding.gravity != Gravity::Information;
  }
  if (!comparison.unknownOnBothSides.empty()) {
    std::vector<std::string> paths;
    for (const Inventory::FactPath& path : comparison.unknownOnBothSides) {
      paths.push_back(Inventory::toText(path));
    }
    stream.tell(StepMessage{
        kCheckStep, Severity::Information,
        tr("unknown on both sides, and so not compared: {}", fmt::join(paths, ", ")), ""});
  }
  if (!isJudged) {
    stream.tell(StepDiagnosis{kCheckStep, Verdict::Pass, "passed", "", "", "", 1});
  }
}

int reportFindings(const InventoryCheckOptions& options, const Facts& inventory,
                   const Inventory::Comparison& comparison, RunSummary& summary) {
  const RunConditions conditions{.isStrict = options.reporting.isStrict};
  Outputs outputs(
      options.reporting.outputs, formatOf(options.reporting),
      {isColoured(STDOUT_FILENO), conditions, RunRecord::kUnbounded, lineWidthOfOutput(),
       options.reporting.onlyProblems, options.reporting.verbosity});
  CheckStream stream(outputs);
  RunStarted start = openingOf(options, inventory);
  std::size_t number = 0;
  for (const Finding& finding : comparison.findings) {
    start.hardware.push_back(
        {hardwareIdOf(++number), nameOf(finding), Inventory::toText(finding.part)});
  }
  const std::string machine = isThisMachine(options) ? tr("this machine") : start.machineName;
  stream.tell(std::move(start));
  stream.tell(StepStarted{kCheckStep, "diagctl", machine, tr("Inventory check"), "", 1});
  tellFindings(stream, comparison);
  stream.tell(StepEnded{kCheckStep, RunStatus::Complete});
  stream.tell(endOf(verdictOf(summaryOf(stream.record()), 0)));
  summary = summaryOf(stream.record());
  return finish(outputs, exitCodeOf(stream.record(), conditions));
}

int checkMachine(const InventoryCheckOptions& options, RunSummary& summary) {
  Inventory::Rules rules = rulesFrom(options.rules);
  const Facts inventory = takeInventory(options.root);
  const Inventory::Golden golden = expectedFor(options.against, inventory);
  rules.append(golden.rules);
  rules.append(Inventory::Rules::shipped());
  const Inventory::Comparison comparison = compare(golden.inventory, inventory, rules);
  return reportFindings(options, inventory, comparison, summary);
}

}  // namespace

int carryOutInventoryCheck(const InventoryCheckOptions& options) {
  return carryOutInStyle(options.reporting,
                         [&](RunSummary& summary) { return checkMachine(options, summary); });
}

}  // namespace TarvexDiags::FrontEnd
