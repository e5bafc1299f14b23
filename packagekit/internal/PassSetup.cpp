#include "packagekit/internal/PassSetup.h"

namespace TarvexDiags::PackageKit {

FrameWriter PassSetup::toFrame() const {
  FrameWriter frame(FrameType::Setup);
  frame.number(testIds.size());
  for (const int testId : testIds) {
    frame.number(static_cast<std::uint64_t>(testId));
  }
  std::vector<std::string> properties;
  for (const auto& property : device.properties) {
    properties.push_back(property.first);
    properties.push_back(property.second);
  }
  frame.text(device.name).text(device.resourceTag).text(device.disableName).texts(properties);
  frame.number(openMode).number(quickMode).number(haltOnError).number(diagnosticMode);
  frame.number(static_cast<std::uint64_t>(passNumber)).number(seed);
  frame.text(configFile).text(logFile).number(memoryLimit).number(coreDumps);
  frame.number(tellsLog).number(tellsThroughput);
  return frame;
}

PassSetup PassSetup::fromFrame(Frame& frame) {
  PassSetup setup;
  const std::uint64_t tests = frame.number(100000);
  for (std::uint64_t index = 0; index < tests; ++index) {
    setup.testIds.push_back(static_cast<int>(frame.number()));
  }
  setup.device.name = frame.text();
  setup.device.resourceTag = frame.text();
  setup.device.disableName = frame.text();
  const std::vector<std::string> properties = frame.texts();
  for (std::size_t index = 0; index + 1 < properties.size(); index += 2) {
    setup.device.properties[properties[index]] = properties[index + 1];
  }
  setup.openMode = static_cast<AccessMode>(frame.number(DeviceEnum::IDevice::READ_WRITE));
  setup.quickMode = frame.number(1) != 0;
  setup.haltOnError = frame.number(1) != 0;
  setup.diagnosticMode =
      static_cast<DiagnosticMode>(frame.number(DeviceEnum::IDeviceEnumerator::BRINGUP));
  setup.passNumber = static_cast<int>(frame.number());
  setup.seed = frame.number();
  setup.configFile = frame.text();
  setup.logFile = frame.text();
  setup.memoryLimit = frame.number();
  setup.coreDumps = frame.number(1) != 0;
  setup.tellsLog = frame.number(1) != 0;
  setup.tellsThroughput = frame.number(1) != 0;
  return setup;
}

}  // namespace TarvexDiags::PackageKit
