#pragma once

#include <string>

#include "System/Export.h"

namespace TarvexDiags::DeviceEnum {

/**
 * @brief One device as a package describes it. Packages derive from it to keep what they need to
 * reach the device, and to answer getDeviceStatus.
 *
 * A device is made with `new` and handed to a VirtualDevice, which shares it among its copies and
 * deletes it with the last of them. It is not copyable itself.
 *
 * Thread-safety: the three names never change, so the getters are safe from any thread.
 */
class TARVEXDIAGS_EXPORT IDevice {
 public:
  /** @brief How a test opens the device. */
  enum AccessMode : unsigned int { QUERY = 0, READ_ONLY = 1, WRITE_ONLY = 2, READ_WRITE = 3 };

  /**
   * @param resourceTag path of the components that the device hangs on, joined by "/", such as
   *        "pci0/bus3/slot1": tests on devices with a component in common keep out of each other's
   *        way. See IDeviceEnumerator::generateResourceTag.
   * @param deviceName name for people, used in trace lines.
   * @param disableDeviceName name by which a package's configuration leaves the device out.
   */
  IDevice(const std::string& resourceTag, const std::string& deviceName,
          const std::string& disableDeviceName);
  IDevice(const IDevice&) = delete;
  IDevice& operator=(const IDevice&) = delete;
  virtual ~IDevice();

  /**
   * @brief [any thread] The device's present status: a code that section `DeviceStatus` of the
   * package's configuration file turns into a text token. The base answers 0.
   *
   * Called from client threads, also while a test runs on the device. Must be quick.
   */
  virtual unsigned int getDeviceStatus();

  /** @brief The resource tag. The reference is valid as long as the device. */
  const std::string& getResourceTag() const;

  /** @brief The name for people. The reference is valid as long as the device. */
  const std::string& getDeviceName() const;

  /** @brief The name to leave the device out by. The reference is valid as long as the device. */
  const std::string& getDisableDeviceName() const;

 private:
  const std::string m_resourceTag;
  const std::string m_deviceName;
  const std::string m_disableDeviceName;
};

}  // namespace TarvexDiags::DeviceEnum
