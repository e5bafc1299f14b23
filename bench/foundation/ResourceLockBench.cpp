// Taking a device and giving it back, by the length of its tag. Every component above the device is
// registered, so each is counted: the dearest case.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "DiagCtrl/DiagCtrlConstants.h"
#include "DiagCtrl/ResourceLockManager.h"

namespace {

using TarvexDiags::DiagCtrl::DiagCtrlConstants;
using TarvexDiags::DiagCtrl::ResourceLockManager;

/// Registers a device and all that lies above it. @return the device's tag.
std::string registerChain(ResourceLockManager& manager, std::int64_t components) {
  std::string tag;
  for (std::int64_t component = 0; component < components; ++component) {
    tag += (component == 0 ? "" : DiagCtrlConstants::mSconpcResourceTagSeparator);
    tag += "component" + std::to_string(component);
    manager.createResourceLock(tag, -1);
  }
  return tag;
}

void takeAndRelease(benchmark::State& state) {
  ResourceLockManager& manager = *ResourceLockManager::getInstance();
  const std::string tag = registerChain(manager, state.range(0));
  for (auto _ : state) {
    if (!manager.getResourceLock(tag)) {
      state.SkipWithError("the device is held");
      break;
    }
    manager.releaseResourceLock(tag);
  }
  manager.clearResourceLockMap();
  state.SetItemsProcessed(state.iterations());
  state.counters["components/s"] = benchmark::Counter(
      static_cast<double>(state.iterations() * state.range(0)), benchmark::Counter::kIsRate);
}
BENCHMARK(takeAndRelease)->ArgName("components")->Arg(1)->Arg(10)->Arg(100);

/// A take that is refused at the topmost component and undone at every other.
void refuseAndUndo(benchmark::State& state) {
  ResourceLockManager& manager = *ResourceLockManager::getInstance();
  const std::string tag = registerChain(manager, state.range(0));
  manager.getResourceLock("component0");
  for (auto _ : state) {
    if (manager.getResourceLock(tag)) {
      state.SkipWithError("the device was not refused");
      break;
    }
  }
  manager.clearResourceLockMap();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(refuseAndUndo)->ArgName("components")->Arg(10)->Arg(100);

}  // namespace
