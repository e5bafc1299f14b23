#pragma once

#include <string>

#include "DeviceEnum/VirtualDevice.h"
#include "System/Export.h"
#include "System/SysUtil.h"

namespace TarvexDiags::DeviceEnum {

/**
 * @brief Finds the devices that a package can test. Implemented by the package, one object for each
 * enumeration, handed out by its export `getIDeviceEnumerator`; the controller deletes it.
 *
 * All operations run on the client thread that enumerates, one at a time.
 */
class TARVEXDIAGS_EXPORT IDeviceEnumerator {
 public:
  /** @brief For whom the tests run. The numbers are those of the controller's own setting. */
  enum DiagnosticMode : unsigned int { CUSTOMER = 0, FACTORY = 1, BRINGUP = 2 };

  /** @brief Diagnostic log off, mode CUSTOMER. */
  IDeviceEnumerator();

  /** @brief Keeps the two values that the controller passes to the package's export. */
  IDeviceEnumerator(bool diagLog, DiagnosticMode diagMode);
  virtual ~IDeviceEnumerator();

  /**
   * @brief [enumerating thread] Finds the devices of one type.
   *
   * @param resourceString `ResourceLockProperty` of the package's configuration; empty when absent.
   * @param deviceType `DeviceType` of the package's configuration; 0 when absent.
   * @return the devices in the order in which they shall be numbered, or null when there is nothing
   *         to enumerate. The vector stays the package's: the controller copies its elements and
   *         never frees it, so a package keeps it as a member or otherwise sees to its end.
   */
  virtual VirtualDeviceVector* getDeviceVector(const char* resourceString, Uint deviceType) = 0;

  /**
   * @brief Lengthens a resource tag by one component.
   *
   * @param tag the tag so far; a "/" is appended unless it is empty, then the component.
   * @param component name of the component; null is the empty text.
   * @return tag
   */
  const std::string& generateResourceTag(std::string& tag, const char* component);

 protected:
  bool m_diagLog;             ///< whether the package shall write its log
  DiagnosticMode m_diagMode;  ///< for whom the tests run
};

}  // namespace TarvexDiags::DeviceEnum
