#include "packagekit/internal/DiscoveryWorker.h"

#include <cstdio>
#include <stdexcept>
#include <utility>
#include <vector>

#include "packagekit/internal/Guard.h"
#include "packagekit/internal/PackageLog.h"

namespace TarvexDiags::PackageKit {

namespace {

Environment environmentOf(const DiscoverySetup& setup) {
  return {setup.diagnosticMode, Settings(setup.configFile), setup.resourceString, setup.deviceType,
          [file = setup.logFile](const std::string& line) { writeLogLine(file, line); }};
}

// Where a test would run does not matter to its support, only for whom.
Environment withoutPlace(Environment environment) {
  environment.resourceString.clear();
  environment.deviceType = 0;
  return environment;
}

Support supportOf(const TestEntry& entry, const Device& device, const Environment& environment) {
  Support answer = Support::yes();
  const auto failure = failureOf([&] { answer = entry.supports(device, environment); });
  return failure ? Support::no(*failure) : answer;
}

// What the host would not take is the author's to hear of, by name and not as a broken frame.
void requireRoom(std::size_t devices, std::size_t bytes) {
  if (devices > DiscoveryBounds::kMostDevices || bytes > DiscoveryBounds::kMostBytes) {
    throw std::length_error("the package has too many devices, or they tell too much");
  }
}

std::vector<FrameWriter> findAll(const Package& package, const Environment& environment) {
  if (package.testIds().size() > DiscoveryBounds::kMostTests) {
    throw std::length_error("the package has too many tests");
  }
  const Environment forTests = withoutPlace(environment);
  std::vector<FrameWriter> all;
  std::size_t bytes = 0;
  for (Device& device : package.findDevices(environment)) {
    if (const std::string fault = faultOf(device); !fault.empty()) {
      environment.log("a device is left out, as " + fault + ": '" + device.name + "', '" +
                      device.resourceTag + "'");
      continue;
    }
    FoundDevice found{std::move(device)};
    for (const int testId : package.testIds()) {
      found.support.emplace(testId, supportOf(*package.find(testId), found.device, forTests));
    }
    all.push_back(found.toFrame());
    bytes += all.back().bytes().size();
    requireRoom(all.size(), bytes);
  }
  return all;
}

}  // namespace

void runDiscovery(const Package& package, const DiscoverySetup& setup, WorkerLink& link) {
  std::vector<FrameWriter> all;
  const auto failure = failureOf([&] { all = findAll(package, environmentOf(setup)); });
  std::fflush(nullptr);
  for (FrameWriter& frame : all) {
    link.hold(frame);
  }
  FrameWriter end(FrameType::DiscoveryEnd);
  link.send(end.number(all.size())
                .text(failure.value_or("").substr(0, DiscoveryBounds::kLongestFailure)));
}

}  // namespace TarvexDiags::PackageKit
