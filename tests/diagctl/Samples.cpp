#include "tests/diagctl/Samples.h"

#include <chrono>

namespace TarvexDiags::FrontEnd {

Catalogue oneDeviceCatalogue() {
  PackageItem package;
  package.index = 1;
  package.baseName = "storage";
  package.name = "Storage package";
  package.mnemonic = "STORAGE";
  package.tests = {{.id = 3, .name = "Sequential read"}, {.id = 4, .name = "Random read"}};
  package.devices = {{.id = 1, .name = "Disk A", .tag = "pci0/disk0"}};
  package.pairs = {{{1, 3}, PairState::Enabled}, {{1, 4}, PairState::Disabled}};
  Catalogue catalogue;
  catalogue.packages = {package};
  return catalogue;
}

std::vector<RunEvent> wholeRun() {
  const auto time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1234567890123));
  RunStarted start;
  start.name = "diagctl";
  start.version = "1";
  start.commandLine = "diagctl run";
  start.parameters = {{"passes", "2"}};
  start.machineId = "id";
  start.machineName = "name";
  start.platforms = {"Linux"};
  start.hardware = {
      {"1-1", "Disk", "pci0/disk0", "Maker", "Disk of 4 TB", "S5XANA0R1", "GDC5602Q"}};
  start.software = {{"storage", "Storage", "1.0"}};
  return {{time, start},
          {time, StepStarted{"1", "Storage", "Disk on a shelf", "Read: fast", "1-1", 1}},
          {time, StepMeasurement{"1", "speed", 1.5, "GB/s", "1-1"}},
          {time, StepMessage{"1", Severity::Warning, "It is \"warm\".\nVery.", "Cool it."}},
          {time, StepTrouble{"1", "worker-crashed", "It crashed.", "Run it again."}},
          {time, StepDiagnosis{"1", Verdict::Fail, "bit-flip", "A: b", "Replace it.", "1-1", 2}},
          {time, StepEnded{"1", RunStatus::Error}},
          {time, StepStarted{"2", "Storage", "Disk", "Write", "1-1", 1}},
          {time, StepEnded{"2", RunStatus::Skip, true}},
          {time, RunMessage{Severity::Information, "all told"}},
          {time, RunTrouble{"package-not-loaded", "lost"}},
          {time, RunEnded{RunStatus::Complete, RunResult::Fail}}};
}

}  // namespace TarvexDiags::FrontEnd
