#include "diagctl/command/MachineParts.h"

#include <string>

namespace TarvexDiags::FrontEnd {

namespace {

/// By the name that the kernel has for it, in which the tag of a disk or an interface ends.
bool isDevice(const HardwareItem& item, const Inventory::Part& part) {
  return !part.device.empty() && item.location.substr(item.location.rfind('/') + 1) == part.device;
}

void describe(HardwareItem& item, const Inventory::Part& part) {
  item.manufacturer = part.manufacturer;
  item.partNumber = part.partNumber;
  item.serialNumber = part.serialNumber;
  item.version = part.version;
}

}  // namespace

void addParts(RunStarted& start, const std::vector<Inventory::Part>& parts) {
  const std::size_t devices = start.hardware.size();
  for (const Inventory::Part& part : parts) {
    bool isUnderTest = false;
    for (std::size_t index = 0; index < devices; ++index) {
      if (isDevice(start.hardware[index], part)) {
        describe(start.hardware[index], part);
        isUnderTest = true;
      }
    }
    if (!isUnderTest) {
      HardwareItem item{part.id, part.name, part.location};
      describe(item, part);
      start.hardware.push_back(std::move(item));
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
