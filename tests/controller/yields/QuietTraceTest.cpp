// The threads of the pipeline trace a method where the trace is written, and only there. What is
// written is whole.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "DiagCtrl/DiagCtrlMutexException.h"
#include "DiagCtrl/DiagnosticController.h"
#include "tests/support/ControllerTest.h"
#include "tests/support/TraceFile.h"

namespace TarvexDiags::Yields {
namespace {

using DiagCtrl::DiagCtrlConstants;
using Scripted::Call;
using Scripted::CallRecord;
using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;
using TestSupport::ControllerTest;
using TestSupport::PackageConfig;
using TestSupport::TraceLine;

class QuietTraceTest : public ControllerTest {
 protected:
  Scripted::Script& alpha = harness.addPackage("ALPHA", PackageConfig(1));

  void startAt(const char* level) {
    harness.control().logDirPath(harness.directory().path()).with("DebugLog", level);
    alpha.setDevices(1);
    harness.start();
  }
  void runOne() { ASSERT_TRUE(harness.awaitEnd(harness.queue("ALPHA", 1, {1}))); }

  /// The texts of the thread that wrote that line.
  std::vector<std::string> textsOfThreadWith(const std::string& text) const {
    const std::vector<TraceLine> lines = trace().lines();
    const auto own = std::find_if(lines.begin(), lines.end(),
                                  [&](const TraceLine& line) { return line.text == text; });
    return own != lines.end() ? trace().texts(own->thread) : std::vector<std::string>();
  }
};

std::size_t countBeginning(const std::vector<std::string>& texts, const std::string& word) {
  return static_cast<std::size_t>(std::count_if(
      texts.begin(), texts.end(), [&](const std::string& text) { return text.starts_with(word); }));
}

}  // namespace

TEST_F(QuietTraceTest, each_method_on_the_way_of_a_request_is_traced_when_all_is) {
  startAt("DIAG_INFORMATION");
  runOne();
  harness.shutDown();
  const std::vector<std::string> worker = textsOfThreadWith("@enter ExecutionThread::run");
  EXPECT_THAT(worker, IsSupersetOf({"@enter TestRequest::getIDiagnosticsPtr",
                                    "@enter TestRequest::getTestRequestStatus",
                                    "@enter ExecutionThread::releaseResourceLock",
                                    "@exit ExecutionThread::run"}));
  EXPECT_EQ(countBeginning(worker, "@enter"), countBeginning(worker, "@exit"));
  EXPECT_THAT(
      textsOfThreadWith("@enter ExecutionManagerThread::run"),
      IsSupersetOf({"@enter ExecutionManagerThread::handleWaitQueue",
                    "@enter TestRequestManager::pushBackTestRequestQueue",
                    "@enter ResourceLockManager::getResourceLock", "@enter DiagThread::start"}));
  EXPECT_THAT(textsOfThreadWith("@enter MonitorThread::run"),
              IsSupersetOf({"@enter MonitorThread::getEventsResults",
                            "@enter TestRequestManager::removeFromTestReqIdList",
                            "@enter DiagnosticController::getDiagCtrlPhase"}));
  EXPECT_THAT(trace().texts(), IsSupersetOf({"@enter DiagnosticController::queueRequest",
                                             "@enter TestRequest::setHandle"}));
}

TEST_F(QuietTraceTest, a_trace_that_is_turned_on_later_has_the_threads_that_were_there_before) {
  startAt("DIAG_ERROR");
  runOne();
  ASSERT_TRUE(harness.awaitPhase(DiagCtrl::DiagControllerStatus::IDLE));
  EXPECT_FALSE(trace().contains("@enter"));
  ASSERT_EQ(harness->setDebugLog(DiagCtrlConstants::DIAG_INFORMATION),
            DiagCtrl::DiagnosticController::SUCCESS);
  runOne();
  EXPECT_TRUE(trace().contains("@enter ExecutionManagerThread::handleWaitQueue"));
  EXPECT_TRUE(trace().contains("@enter MonitorThread::getEventsResults"));
  EXPECT_TRUE(trace().contains("@enter ExecutionThread::run"));
}

TEST_F(QuietTraceTest, a_failure_on_the_way_is_written_when_failures_alone_are) {
  startAt("DIAG_ERROR");
  alpha.on(Call::GetEvents, [](const CallRecord&) {
    throw DiagCtrl::DiagCtrlMutexException(DiagCtrl::DiagCtrlBaseException::MutexException, 1,
                                           "file", "a package");
  });
  runOne();
  alpha.on(Call::GetEvents, nullptr);
  EXPECT_TRUE(trace().contains("MonitorThread::getEventsResults"));
  EXPECT_FALSE(trace().contains("@enter"));
}

}  // namespace TarvexDiags::Yields
