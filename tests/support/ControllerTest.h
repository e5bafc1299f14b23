#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/BigLock.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/ThreadState.h"
#include "tests/support/TraceFile.h"
#include "tests/support/WaitPlace.h"

namespace TarvexDiags::TestSupport {

/// A test of a whole controller: a harness, and the short names of what stands in it.
class ControllerTest : public ::testing::Test {
 protected:
  typedef DiagCtrl::DiagnosticController::errorCode Code;

  DiagCtrl::DiagnosticController& controller() { return harness.controller(); }
  /// What was traced, if harness.trace() was called or the control file says so.
  TraceFile trace() const { return TraceFile(harness.directory().path()); }

  /// Waits until a companion waits for the lock under which operations take turns.
  bool waitsForBigLock(const Companion& companion) {
    return waitsAt(companion, waitPlaceOf(bigLockOf(controller())));
  }

  /// The ids that a call hands out, which must succeed.
  static std::vector<int> idsOf(const std::function<Code(std::vector<int>*&)>& ask) {
    std::vector<int>* ids = nullptr;
    EXPECT_EQ(ask(ids), DiagCtrl::DiagnosticController::SUCCESS);
    return *std::unique_ptr<std::vector<int>>(ids);
  }

  ControllerHarness harness;
};

}  // namespace TarvexDiags::TestSupport
