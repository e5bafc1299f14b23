#include "DeviceEnum/IDevice.h"

namespace TarvexDiags::DeviceEnum {

IDevice::IDevice(const std::string& resourceTag, const std::string& deviceName,
                 const std::string& disableDeviceName)
    : m_resourceTag(resourceTag),
      m_deviceName(deviceName),
      m_disableDeviceName(disableDeviceName) {}

IDevice::~IDevice() = default;

unsigned int IDevice::getDeviceStatus() {
  return 0;
}

const std::string& IDevice::getResourceTag() const {
  return m_resourceTag;
}

const std::string& IDevice::getDeviceName() const {
  return m_deviceName;
}

const std::string& IDevice::getDisableDeviceName() const {
  return m_disableDeviceName;
}

}  // namespace TarvexDiags::DeviceEnum
