#pragma once

#include <vector>

#include "System/Export.h"

namespace TarvexDiags::DeviceEnum {

class IDevice;

/**
 * @brief A value that stands for a device: it is copied and kept in vectors, and all copies refer
 * to the one device that the first was made with.
 *
 * The last copy deletes the device. A device's code lies in its package, so every copy must be gone
 * before the package's shared object is closed.
 *
 * Thread-safety: different copies may be used, copied and destroyed from different threads at the
 * same time, also when they share a device. One and the same object needs a lock, as any value
 * does.
 */
class TARVEXDIAGS_EXPORT VirtualDevice {
 public:
  /**
   * @brief Takes over a device made with `new`; it is deleted here when memory runs out.
   * @param device may be null: a stand-in without a device.
   */
  explicit VirtualDevice(IDevice* device);
  VirtualDevice(const VirtualDevice& other) noexcept;
  VirtualDevice& operator=(const VirtualDevice& other) noexcept;
  virtual ~VirtualDevice();

  /** @brief The device, which stays this object's and that of its copies; null if made with null.
   */
  virtual IDevice* getDevice();

 private:
  struct SharedDevice;

  SharedDevice* m_shared;
};

typedef std::vector<VirtualDevice> VirtualDeviceVector;

}  // namespace TarvexDiags::DeviceEnum
