#include "diagctl/run/RequestWatch.h"

#include <thread>

namespace TarvexDiags::FrontEnd {

namespace {

using Controller = DiagCtrl::DiagnosticController;
using DiagCtrl::TestRequest;

}  // namespace

// Null for a request that the controller does not know.
TestRequest* RequestWatch::find(unsigned long requestId) const {
  TestRequest* request = nullptr;
  const auto code = m_controller.getTestRequest(static_cast<int>(requestId), request);
  return code == Controller::SUCCESS ? request : nullptr;
}

bool RequestWatch::hasEnded(unsigned long requestId) const {
  TestRequest* request = find(requestId);
  if (request == nullptr) {
    return true;
  }
  const auto status = request->getTestRequestStatus(-1);
  const bool isFinal = status == TestRequest::COMPLETED || status == TestRequest::ABORTED;
  return isFinal && request->ifIDiagnosticsDeleted();
}

bool RequestWatch::isJudged(unsigned long requestId) const {
  TestRequest* request = find(requestId);
  return request != nullptr && request->getTestRequestStatus(-1) == TestRequest::COMPLETED;
}

bool RequestWatch::waitForEnd(unsigned long requestId,
                              std::chrono::steady_clock::time_point giveUp) const {
  while (!hasEnded(requestId)) {
    if (std::chrono::steady_clock::now() >= giveUp) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return true;
}

std::optional<RequestWatch::Pass> RequestWatch::runningPass(unsigned long requestId) const {
  TestRequest::TestRequestStatus status{};
  Pass pass;
  bool isStress = false;
  if (m_controller.getRequestStatus(static_cast<long>(requestId), status, pass.number, pass.of,
                                    isStress) != Controller::SUCCESS ||
      status != TestRequest::RUNNING) {
    return std::nullopt;
  }
  return pass;
}

std::optional<unsigned int> RequestWatch::progress(unsigned long requestId) const {
  unsigned int percent = 0;
  return m_controller.getDiagnosticProgress(requestId, percent) == Controller::SUCCESS
             ? std::optional(percent)
             : std::nullopt;
}

}  // namespace TarvexDiags::FrontEnd
