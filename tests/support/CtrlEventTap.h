#pragma once

#include <memory>
#include <string>
#include <vector>

#include "DiagCtrl/EventManager.h"
#include "tests/support/ControllerHarness.h"

namespace TarvexDiags::TestSupport {

/// A queue of controller events beside the clients', which can be read in every phase. One that was
/// made before a shut-down is of no use after it.
///
///   CtrlEventTap tap;
///   EXPECT_EQ(harness->abortTest(7), DiagnosticController::INCORRECT_PHASE);
///   EXPECT_THAT(tap.take(), ElementsAre("INCORRECT_PHASE E 0"));
class CtrlEventTap {
 public:
  CtrlEventTap() : m_id(DiagCtrl::EventManager::getInstance()->createCtrlEventQueue()) {}

  /// The events since the last call, in the form of ControllerHarness::ctrlEvents.
  std::vector<std::string> take() const {
    const std::unique_ptr<DiagCtrl::CtrlEventVector> drained(
        DiagCtrl::EventManager::getInstance()->getCtrlEvents(m_id));
    std::vector<std::string> lines;
    for (DiagCtrl::DiagCtrlEvent* const event : *drained) {
      const std::unique_ptr<DiagCtrl::DiagCtrlEvent> owned(event);
      lines.push_back(describe(*owned));
    }
    return lines;
  }

 private:
  const unsigned long m_id;
};

}  // namespace TarvexDiags::TestSupport
