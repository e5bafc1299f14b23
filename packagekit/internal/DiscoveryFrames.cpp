#include "packagekit/internal/DiscoveryFrames.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "packagekit/internal/OutputTail.h"

namespace TarvexDiags::PackageKit {

namespace {

using namespace DiscoveryBounds;

std::string faultOfTag(const std::string& tag) {
  if (tag.empty()) {
    return "it has no resource tag";
  }
  if (tag.size() > kLongestName) {
    return "its resource tag is too long";
  }
  if (tag.back() == '/') {
    return "its resource tag has no last component";
  }
  const auto separators = static_cast<std::size_t>(std::count(tag.begin(), tag.end(), '/'));
  return separators >= kMostComponents ? "its resource tag has too many components" : "";
}

std::string faultOfProperties(const std::map<std::string, std::string>& properties) {
  if (properties.size() > kMostProperties) {
    return "it has too many properties";
  }
  std::size_t bytes = 0;
  for (const auto& [key, value] : properties) {
    if (key.size() > kLongestKey || value.size() > kLongestValue) {
      return "its property '" + key.substr(0, kLongestKey) + "' is too long";
    }
    bytes += key.size() + value.size();
  }
  return bytes > kMostPropertyBytes ? "its properties are too long" : "";
}

std::map<std::string, std::string> propertiesFrom(const std::vector<std::string>& texts) {
  if (texts.size() % 2 != 0) {
    throw FrameError("a property without a value");
  }
  std::map<std::string, std::string> properties;
  for (std::size_t index = 0; index < texts.size(); index += 2) {
    if (!properties.emplace(texts[index], texts[index + 1]).second) {
      throw FrameError("a property that is told twice");
    }
  }
  return properties;
}

}  // namespace

std::string faultOf(const Device& device) {
  if (device.name.empty()) {
    return "it has no name";
  }
  if (device.name.size() > kLongestName || device.disableName.size() > kLongestName) {
    return "its name is too long";
  }
  std::string fault = faultOfTag(device.resourceTag);
  return fault.empty() ? faultOfProperties(device.properties) : fault;
}

FrameWriter DiscoverySetup::toFrame() const {
  FrameWriter frame(FrameType::Discover);
  frame.number(diagnosticMode).text(resourceString).number(deviceType);
  frame.text(configFile).text(logFile).number(memoryLimit).number(coreDumps);
  return frame;
}

DiscoverySetup DiscoverySetup::fromFrame(Frame& frame) {
  DiscoverySetup setup;
  setup.diagnosticMode =
      static_cast<DiagnosticMode>(frame.number(DeviceEnum::IDeviceEnumerator::BRINGUP));
  setup.resourceString = frame.text();
  setup.deviceType =
      static_cast<unsigned int>(frame.number(std::numeric_limits<unsigned int>::max()));
  setup.configFile = frame.text();
  setup.logFile = frame.text();
  setup.memoryLimit = frame.number();
  setup.coreDumps = frame.number(1) != 0;
  return setup;
}

FrameWriter FoundDevice::toFrame() const {
  FrameWriter frame(FrameType::DeviceFound);
  std::vector<std::string> properties;
  for (const auto& [key, value] : device.properties) {
    properties.push_back(key);
    properties.push_back(value);
  }
  frame.text(device.name).text(device.resourceTag).text(device.disableName).texts(properties);
  frame.number(support.size());
  for (const auto& [testId, answer] : support) {
    frame.number(static_cast<std::uint64_t>(testId)).number(static_cast<bool>(answer));
    frame.text(answer.reason().substr(0, kLongestReason));
    frame.text(answer.detail().substr(0, kLongestReason));
  }
  return frame;
}

FoundDevice FoundDevice::fromFrame(Frame& frame) {
  FoundDevice found;
  found.device.name = toValidUtf8(frame.text());
  found.device.resourceTag = frame.text();
  found.device.disableName = frame.text();
  found.device.properties = propertiesFrom(frame.texts());
  if (const std::string fault = faultOf(found.device); !fault.empty()) {
    throw FrameError("a device that can't be: " + fault);
  }
  const std::uint64_t answers = frame.number(kMostTests);
  for (std::uint64_t index = 0; index < answers; ++index) {
    const int testId =
        static_cast<int>(frame.number(static_cast<std::uint64_t>(std::numeric_limits<int>::max())));
    const bool isYes = frame.number(1) != 0;
    const std::string reason = frame.text();
    const std::string detail = frame.text();
    const std::size_t longest = isYes ? 0 : kLongestReason;
    const bool isLaterTest = found.support.empty() || testId > found.support.rbegin()->first;
    if (!isLaterTest || reason.size() > longest || detail.size() > longest) {
      throw FrameError("an answer about a test that can't be");
    }
    found.support.emplace(
        testId, isYes ? Support::yes() : Support::no(toValidUtf8(reason), toValidUtf8(detail)));
  }
  if (!frame.isAtEnd()) {
    throw FrameError("a frame that is too long for its fields");
  }
  return found;
}

}  // namespace TarvexDiags::PackageKit
