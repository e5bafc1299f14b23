#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Diag/DiagnosticResult.h"
#include "Diag/DiagnosticSettings.h"
#include "Diag/DiagnosticStatus.h"
#include "DiagCtrl/DiagnosticController.h"
#include "DiagCtrl/ExecutionManagerThread.h"
#include "DiagCtrl/MonitorThread.h"
#include "DiagCtrl/ResourceLockManager.h"
#include "DiagCtrl/TestRequestManager.h"
#include "tests/controller/pipeline/PipelineSteps.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/Eventually.h"
#include "tests/support/scripted/Script.h"

namespace TarvexDiags::TestSupport {

/// A controller whose threads wait for twenty milliseconds where they would wait for two seconds,
/// so that whatever comes with a time-out comes at once, with a package ALPHA of three tests and
/// two devices of different tags, "a/1" and "a/2". A test starts it with serial or parallel.
class PipelineTest : public testing::Test {
 protected:
  typedef DiagCtrl::DiagnosticController Controller;
  typedef DiagCtrl::TestRequest Request;
  typedef DiagCtrl::DiagControllerStatus Phases;
  typedef Diag::DiagnosticResult Result;
  typedef Diag::DiagnosticStatus Status;
  typedef Diag::DiagnosticSettings Settings;
  typedef Scripted::Call Call;
  typedef Scripted::CallRecord CallRecord;
  typedef Scripted::Script Script;
  typedef std::vector<std::string> Lines;

  PipelineTest() : alpha(harness.addPackage("ALPHA", PackageConfig(3))) {
    alpha.setDevices({{.tag = "a/1", .name = "a1"}, {.tag = "a/2", .name = "a2"}});
    steps.setWaits(std::chrono::milliseconds(20));
  }
  ~PipelineTest() override { steps.disarm(); }

  void serial() { harness.start(); }
  void parallel() {
    harness.control().parallel();
    harness.start();
  }
  void startIn(bool isParallel) { isParallel ? parallel() : serial(); }

  /// From now on only what is signalled happens soon.
  void forbidTimeOuts() { steps.setWaits(std::chrono::minutes(10)); }
  bool comesToRest(Actor actor) {
    return eventually([=, this] { return steps.isAtRest(actor); });
  }
  /// Time-outs are forbidden, and no thread is on its way out of an earlier wait: until they are
  /// allowed again, the phase does not change by itself.
  void keepActive() {
    forbidTimeOuts();
    EXPECT_TRUE(comesToRest(Actor::Monitor));
    EXPECT_EQ(harness.phase(), Phases::ACTIVE);
  }
  void allowTimeOuts() {
    steps.setWaits(std::chrono::milliseconds(20));
    wakeMonitor();
    managers().getCondVarTRWaitQueue().signal();
    managers().getCondVarExecMgrThread().signal();
  }
  void wakeMonitor() { managers().getCondVarTRExecQueue().signal(); }

  /// Lets the monitor poll so many times at least, each time everything that is pending.
  void pollTimes(int number) {
    for (int i = 0; i < number; ++i) {
      wakeMonitor();
      ASSERT_TRUE(comesToRest(Actor::Monitor));
    }
  }
  /// Until a request that runs has come to the monitor, and its dispatcher and the monitor have
  /// nothing left to do with it; for good only while time-outs are forbidden.
  void awaitWatched(unsigned long id) {
    ASSERT_TRUE(eventually([&] { return request(id).getExecutedOnce(); }));
    ASSERT_TRUE(comesToRest(Actor::Dispatcher));
    ASSERT_TRUE(comesToRest(Actor::Monitor));
  }

  Request& request(unsigned long id) {
    Request* found = nullptr;
    harness->getTestRequest(static_cast<int>(id), found);
    return *found;
  }
  DiagCtrl::TestRequestManager& managers();
  DiagCtrl::ExecutionManagerThread& dispatcher();
  DiagCtrl::MonitorThread& monitor();
  /// Pass threads that nobody has joined yet. Only while the monitor and the dispatcher are at
  /// rest.
  std::size_t workersKept();
  DiagCtrl::DiagnosticPackageInterface& packageInterface();

  bool isTagFree(const std::string& tag) {
    DiagCtrl::ResourceLockManager& locks = *DiagCtrl::ResourceLockManager::getInstance();
    if (!locks.getResourceLock(tag)) {
      return false;
    }
    locks.releaseResourceLock(tag);
    return true;
  }
  static Settings settings(int passes = 1) { return ControllerHarness::settings(passes); }
  static Settings stressSettings(int passes) {
    Settings made = settings(passes);
    made.setStressMode(true);
    return made;
  }
  /// A pass that ends with this verdict.
  static Scripted::Pass ending(Result::TestResult verdict) {
    return {.results = {{.verdict = verdict}}};
  }

  PipelineSteps steps;  // outlives the controller
  ControllerHarness harness;
  Script& alpha;
};

}  // namespace TarvexDiags::TestSupport
