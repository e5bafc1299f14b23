// Makes devices whose code lies in a shared object of its own, as a package does.

#include <vector>

#include "DeviceEnum/IDevice.h"
#include "DeviceEnum/VirtualDevice.h"

namespace {

using TarvexDiags::DeviceEnum::IDevice;
using TarvexDiags::DeviceEnum::VirtualDevice;
using TarvexDiags::DeviceEnum::VirtualDeviceVector;

class ModuleDevice : public IDevice {
 public:
  ModuleDevice() : IDevice("bus/slot", "module device", "module") {}
  unsigned int getDeviceStatus() override { return 42; }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) VirtualDeviceVector* makeDevices();

VirtualDeviceVector* makeDevices() {
  auto* const devices = new VirtualDeviceVector;
  for (int count = 0; count < 3; ++count) {
    devices->push_back(VirtualDevice(new ModuleDevice));
  }
  return devices;
}
