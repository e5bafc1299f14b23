#include "DeviceEnum/IDeviceEnumerator.h"

namespace TarvexDiags::DeviceEnum {

namespace {
constexpr char kResourceTagSeparator = '/';
}

IDeviceEnumerator::IDeviceEnumerator() : IDeviceEnumerator(false, CUSTOMER) {}

IDeviceEnumerator::IDeviceEnumerator(bool diagLog, DiagnosticMode diagMode)
    : m_diagLog(diagLog), m_diagMode(diagMode) {}

IDeviceEnumerator::~IDeviceEnumerator() = default;

const std::string& IDeviceEnumerator::generateResourceTag(std::string& tag, const char* component) {
  if (!tag.empty()) {
    tag += kResourceTagSeparator;
  }
  return component == nullptr ? tag : tag += component;
}

}  // namespace TarvexDiags::DeviceEnum
