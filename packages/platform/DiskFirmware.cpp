#include "packages/platform/DiskFirmware.h"

#include <map>
#include <utility>
#include <vector>

#include "inventory/Inventory.h"

namespace TarvexDiags::Platform {

namespace {

struct LikeDisk {
  std::string name;
  std::string slot;
};

using ByFirmware = std::map<std::string, std::vector<LikeDisk>>;

std::map<std::string, ByFirmware> disksByModel(const SystemFiles& files) {
  const Json pci = Inventory::pciFacts(files);
  const Json disks = Inventory::diskFacts(files);
  std::map<std::string, ByFirmware> models;
  for (const auto& [place, disk] : disks.items()) {
    const std::string vendor = textOf(disk, "vendor");
    const std::string model = textOf(disk, "model");
    const std::string firmware = textOf(disk, "firmware");
    if (model.empty() || firmware.empty()) {
      continue;
    }
    const std::string bay = textOf(disk, "slot");
    models[vendor.empty() ? model : vendor + " " + model][firmware].push_back(
        {textOf(disk, "name"), bay.empty() ? slotOf(pci, place) : bay});
  }
  return models;
}

std::size_t countOf(const ByFirmware& versions) {
  std::size_t count = 0;
  for (const auto& [firmware, disks] : versions) {
    count += disks.size();
  }
  return count;
}

/// The version that most have; of several the last, which is the newer as a rule.
const std::string& usualOf(const ByFirmware& versions) {
  auto usual = versions.begin();
  for (auto version = versions.begin(); version != versions.end(); ++version) {
    usual = version->second.size() >= usual->second.size() ? version : usual;
  }
  return usual->first;
}

void judgeModel(const std::string& device, const std::string& model, const ByFirmware& versions,
                RunJournal& journal) {
  const std::string& usual = usualOf(versions);
  if (versions.size() == 1) {
    report(journal, PlatformEvent::FirmwareAlike,
           {device, model, std::to_string(countOf(versions)), usual});
  }
  for (const auto& [firmware, disks] : versions) {
    for (const LikeDisk& disk : disks) {
      if (firmware != usual) {
        report(journal, PlatformEvent::FirmwareDiffers,
               {device, model, disk.name, disk.slot, firmware, usual});
      }
    }
  }
}

}  // namespace

void judgeDiskFirmware(const std::string& device, const SystemFiles& files, RunJournal& journal) {
  bool isAnyJudged = false;
  for (const auto& [model, versions] : disksByModel(files)) {
    if (countOf(versions) > 1) {
      judgeModel(device, model, versions, journal);
      isAnyJudged = true;
    }
  }
  if (!isAnyJudged) {
    throw NotSupported(Reasons::kNoLikeDisks);
  }
}

}  // namespace TarvexDiags::Platform
