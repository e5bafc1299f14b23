#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/controller/pipeline/PipelineFixture.h"

namespace TarvexDiags::TestSupport {

/// Packages that go on reporting the completion of one pass until the next one begins, or report it
/// too early.
class LeftOverReportTest : public PipelineTest {
 protected:
  /// Starts a request whose first pass is over and judged, and whose second is not dispatched.
  unsigned long queueBetweenPasses(int passes) {
    alpha.holdRuns();
    const unsigned long id = harness.queue("ALPHA", 1, {1}, settings(passes));
    EXPECT_TRUE(alpha.awaitRunning(1));
    holdDispatcher();
    alpha.releaseRuns();
    EXPECT_TRUE(eventually([&] { return passCount(id) >= 2; }));
    alpha.holdRuns();
    return id;
  }
  void holdDispatcher() { managers().mmtxTestReqChangeLock.lock(0); }
  void releaseDispatcher() { managers().mmtxTestReqChangeLock.unlock(); }
  int passCount(unsigned long id) { return request(id).getDiagnosticSettings()->getPassCount(); }
  bool isListed(unsigned long id) {
    const std::vector<unsigned long> ids = harness.requestIds();
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  }
  bool isEverythingGone() {
    return eventually([this] { return alpha.living().diagnostics == 0; });
  }
};

}  // namespace TarvexDiags::TestSupport
