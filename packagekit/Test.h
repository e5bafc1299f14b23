#pragma once

#include "packagekit/Device.h"
#include "packagekit/Environment.h"
#include "packagekit/Support.h"
#include "packagekit/TestContext.h"
#include "packagekit/Verdict.h"

namespace TarvexDiags::PackageKit {

/// @brief A test as a class, for those that need more than a function. One object serves all runs.
///
/// `run` is called in the worker process of the test, `supports` in that of discovery, and
/// `estimate` in the host process, from any thread.
class Test {
 public:
  Test();
  Test(const Test&) = delete;
  Test& operator=(const Test&) = delete;
  virtual ~Test();

  /// @brief Tests the device; see TestContext for what may be thrown.
  virtual Verdict run(TestContext& context) = 0;

  /// @brief Whether the test can run on the device. The base says yes.
  virtual Support supports(const Device& device, const Environment& environment) const;

  /// @brief How many seconds the test would take, parts of them included; 0: take
  /// `TestEstimatedTime` of the configuration file, or `QuickTestEstimatedTime` for the short form,
  /// -1: nobody can tell. The base answers 0.
  virtual double estimate(const Device& device, const Environment& environment) const;
};

}  // namespace TarvexDiags::PackageKit
