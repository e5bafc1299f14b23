#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerHarness.h"
#include "tests/support/PackageConfig.h"

namespace TarvexDiags::Lifecycle {

/// What the calls are made on.
struct Stage {
  explicit Stage(bool traces) : isTraced(traces) {
    if (isTraced) {
      harness.trace();
    }
    alpha.recordNothing();
    harness.packages().addLanguage("ALPHA", "en", {{"TOKEN", "a $1$ b"}});
    harness.control().disablePackage("BETA");
    harness.addPackage("BETA");
  }

  DiagCtrl::DiagnosticController& controller() { return harness.controller(); }
  /// A request that waits behind another one, which is inside its package.
  void queueBehind() {
    id = harness.queue("ALPHA", 1, {1});
    ids = {1, id};
  }
  void holdOneRequest() {
    harness.start();
    alpha.holdRuns().setHabits({.ignoresAbort = true});
    queueBehind();
    ASSERT_TRUE(alpha.awaitRunning(1));
  }

  const bool isTraced;
  TestSupport::ControllerHarness harness;
  Scripted::Script& alpha = harness.addPackage("ALPHA", TestSupport::PackageConfig(2)
                                                            .disableTest(2)
                                                            .disableDevices(1, {"none"})
                                                            .token("Error", 1, "text")
                                                            .token("DeviceStatus", 1, "text"));
  DiagCtrl::CallBackObject& callBack = harness.callBack();
  Diag::DiagnosticSettings settings = TestSupport::ControllerHarness::settings();
  // Arguments and results of the calls.
  const DiagCtrl::PackageNameVector wanted{"SCRIPTED"};
  const std::vector<int> one{1};
  const std::vector<int> two{1, 1};
  std::vector<int> tests{1};
  std::vector<unsigned long> ids;
  DiagCtrl::ParamStringVector parameters{"one", "two"};
  unsigned long id = 0;
  std::size_t expected = 0;
};

typedef std::function<void(Stage&)> Step;
typedef std::function<DiagCtrl::DiagnosticController::errorCode(Stage&)> Call;

inline void doNothing(Stage& /*stage*/) {}
inline void start(Stage& stage) {
  stage.harness.start();
}

/// One client call that succeeds, on a stage that is set for it.
struct Row {
  std::string name;  ///< as in the header
  std::string form;  ///< tells calls of one name apart
  Call call;
  Step scene = start;  ///< once
  // Around each time that it is made.
  Step before = doNothing;
  Step after = doNothing;
  bool mayLetOut = false;  ///< std::bad_alloc
};

inline std::string nameOf(const Row& row) {
  return row.name + (row.form.empty() ? "" : "_" + row.form);
}
inline void PrintTo(const Row& row, std::ostream* stream) {
  *stream << nameOf(row);
}

/// A row for each client call that the controller's header declares.
const std::vector<Row>& allRows();

/// What no call may leave behind, however it ends: its lock, or a flag.
void expectToBeAtRest(Stage& stage);

}  // namespace TarvexDiags::Lifecycle
