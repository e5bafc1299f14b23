#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "packagekit/Device.h"
#include "packagekit/TestContext.h"
#include "packagekit/internal/Frame.h"

namespace TarvexDiags::PackageKit {

/// All that a worker process is told: what it runs, on what, and within which limits.
struct PassSetup {
  std::vector<int> testIds = {};
  Device device = {};
  AccessMode openMode = DeviceEnum::IDevice::READ_WRITE;
  bool quickMode = false;
  bool haltOnError = false;
  DiagnosticMode diagnosticMode = DeviceEnum::IDeviceEnumerator::CUSTOMER;
  int passNumber = 1;
  std::uint64_t seed = 0;  ///< 0: not chosen yet
  std::string configFile = {};
  std::string logFile = {};       ///< empty: no log
  std::uint64_t memoryLimit = 0;  ///< bytes of address space; 0: none
  bool coreDumps = false;
  bool tellsLog = false;         ///< what tests write into the log is told as events, too
  bool tellsThroughput = false;  ///< how fast tests are is told as events
  bool isDebugged = false;       ///< known from its start, and not told once more

  FrameWriter toFrame() const;
  static PassSetup fromFrame(Frame& frame);
};

}  // namespace TarvexDiags::PackageKit
