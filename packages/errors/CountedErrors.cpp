#include "packages/errors/CountedErrors.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "inventory/Inventory.h"
#include "watch/AerSource.h"
#include "watch/DiskCounters.h"
#include "watch/DiskSource.h"
#include "watch/MemoryControllerSource.h"
#include "watch/NetworkSource.h"
#include "watch/Policy.h"

namespace TarvexDiags::Errors {

namespace {

using Watching::Finding;
using Watching::Kind;
using Parameters = std::vector<std::string>;

/// Keeps what a source tells.
class Findings : public Watching::Collector {
 public:
  void found(Finding finding) override { all.push_back(std::move(finding)); }
  void sampled(Watching::Sample /*sample*/) override {}

  std::vector<Finding> all;
};

std::chrono::seconds uptimeOf(const SystemFiles& files) {
  return std::chrono::seconds(files.number("proc/uptime").value_or(0));
}

/// The event for a kind, and that for more of it than may be.
struct Told {
  Kind kind;
  ErrorsEvent few;
  ErrorsEvent many;
};

constexpr Told kTold[] = {
    {Kind::MemoryCorrected, ErrorsEvent::MemoryCorrected, ErrorsEvent::MemoryWearsOut},
    {Kind::MemoryUncorrected, ErrorsEvent::MemoryUncorrected, ErrorsEvent::MemoryUncorrected},
    {Kind::PcieCorrectable, ErrorsEvent::PcieCorrected, ErrorsEvent::PcieTooMany},
    {Kind::PcieNonfatal, ErrorsEvent::PcieUncorrected, ErrorsEvent::PcieUncorrected},
    {Kind::PcieFatal, ErrorsEvent::PcieUncorrected, ErrorsEvent::PcieUncorrected},
    {Kind::DiskCommandFailed, ErrorsEvent::DiskCommandsFailed, ErrorsEvent::DiskCommandsFailed},
    {Kind::DiskTimeout, ErrorsEvent::DiskTimeouts, ErrorsEvent::DiskTimeouts},
    {Kind::NetworkErrors, ErrorsEvent::InterfaceErrors, ErrorsEvent::InterfaceErrors},
    {Kind::LinkLost, ErrorsEvent::LinksLost, ErrorsEvent::LinksLost},
};

ErrorsEvent eventFor(const Finding& finding, const SystemFiles& files) {
  const auto* const told = std::find_if(std::begin(kTold), std::end(kTold),
                                        [&](const Told& row) { return row.kind == finding.kind; });
  const Watching::Severity severity =
      Watching::severitySinceStart(Watching::Policy(), finding, uptimeOf(files));
  return severity == Watching::Severity::Failure ? told->many : told->few;
}

/// @param words what the event has behind the device.
void judge(const std::string& device, const SystemFiles& files, Watching::Source& source,
           Common::Reason absent, const std::function<Parameters(const Finding&)>& words,
           RunJournal& journal) {
  if (source.openSinceStart()) {
    throw NotSupported(absent);
  }
  Findings findings;
  source.look(std::chrono::system_clock::now(), findings);
  for (const Finding& finding : findings.all) {
    Parameters parameters = words(finding);
    parameters.insert(parameters.begin(), device);
    report(journal, eventFor(finding, files), std::move(parameters));
  }
  if (findings.all.empty()) {
    constexpr std::chrono::hours kDay(24);
    report(journal, ErrorsEvent::NothingCounted,
           {device, std::to_string(uptimeOf(files) / kDay + 1)});
  }
}

/// Behind "pci:", "block:" and the like.
std::string nameOf(const Finding& finding) {
  return Inventory::cleaned(finding.device.substr(finding.device.find(':') + 1));
}

std::string slotOf(const std::map<std::string, std::string>& slots, const std::string& function) {
  const auto slot = slots.find(function.substr(0, function.rfind('.')));
  return slot == slots.end() ? "SLOT_NOT_NAMED" : Inventory::cleaned(slot->second);
}

}  // namespace

void judgeMemory(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  Watching::MemoryControllerSource source(files);
  judge(
      device, files, source, Reasons::kNoMemoryCounters,
      [](const Finding& finding) {
        return Parameters{
            finding.part.empty() ? "MODULE_NOT_KNOWN" : Inventory::cleaned(finding.part),
            nameOf(finding), std::to_string(finding.count)};
      },
      journal);
}

void judgePcie(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  const std::map<std::string, std::string> slots = Inventory::slotsByAddress(files);
  Watching::AerSource source(files);
  judge(
      device, files, source, Reasons::kNoPcieCounters,
      [&](const Finding& finding) {
        const std::string function = nameOf(finding);
        return Parameters{function, slotOf(slots, function),
                          finding.part.empty() ? "ROOT_OF_THE_BUS" : finding.part,
                          std::to_string(finding.count), Inventory::cleaned(finding.detail)};
      },
      journal);
}

void judgeDisks(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  const std::filesystem::path folder = "sys/block";
  const std::vector<std::string> disks = files.entries(folder);
  const bool isAnyCounted = std::any_of(disks.begin(), disks.end(), [&](const std::string& disk) {
    return Watching::DiskCounters::read(files, folder / disk / "device").has_value();
  });
  if (!isAnyCounted) {
    throw NotSupported(Reasons::kNoDiskCounters);
  }
  Watching::DiskSource source(files);
  judge(
      device, files, source, Reasons::kNoDiskCounters,
      [](const Finding& finding) {
        return Parameters{nameOf(finding), std::to_string(finding.count)};
      },
      journal);
}

void judgeInterfaces(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  Watching::NetworkSource source(files);
  judge(
      device, files, source, Reasons::kNoInterface,
      [](const Finding& finding) {
        return Parameters{nameOf(finding), std::to_string(finding.count),
                          Inventory::cleaned(finding.detail)};
      },
      journal);
}

}  // namespace TarvexDiags::Errors
