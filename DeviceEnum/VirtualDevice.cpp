#include "DeviceEnum/VirtualDevice.h"

#include <atomic>
#include <memory>
#include <utility>

#include "DeviceEnum/IDevice.h"

namespace TarvexDiags::DeviceEnum {

/**
 * The device and the number of VirtualDevices that refer to it. The count is written out here, in
 * the framework's own object file, because the standard shared pointers bring symbols of which the
 * loader keeps one for the whole process: a package that held one could never be unloaded.
 */
struct VirtualDevice::SharedDevice {
  explicit SharedDevice(std::unique_ptr<IDevice> heldDevice) : device(std::move(heldDevice)) {}

  SharedDevice* share() {
    // Relaxed: whoever shares already holds a reference, so nothing needs to be seen first.
    references.fetch_add(1, std::memory_order_relaxed);
    return this;
  }

  void release() {
    // Release what this holder did to the device; the last one acquires all of it, then deletes.
    if (references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete this;
    }
  }

  std::unique_ptr<IDevice> device;
  std::atomic<unsigned long> references{1};
};

// The device is owned before anything else can fail.
VirtualDevice::VirtualDevice(IDevice* device) : m_shared(nullptr) {
  std::unique_ptr<IDevice> owned(device);
  m_shared = new SharedDevice(std::move(owned));
}

VirtualDevice::VirtualDevice(const VirtualDevice& other) noexcept
    : m_shared(other.m_shared->share()) {}

VirtualDevice& VirtualDevice::operator=(const VirtualDevice& other) noexcept {
  SharedDevice* const former = m_shared;
  m_shared = other.m_shared->share();
  former->release();
  return *this;
}

VirtualDevice::~VirtualDevice() {
  m_shared->release();
}

IDevice* VirtualDevice::getDevice() {
  return m_shared->device.get();
}

}  // namespace TarvexDiags::DeviceEnum
