#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "DiagCtrl/CallBackObject.h"
#include "DiagCtrl/DiagnosticController.h"

namespace TarvexDiags::TestSupport {

/// One registration for results, and how often each code was delivered to it.
class ResultReader {
 public:
  ResultReader(DiagCtrl::DiagnosticController& controller, DiagCtrl::CallBackObject& object)
      : m_controller(controller) {
    controller.registerForDiagResults(&object, m_id);
  }
  void drain() {
    DiagCtrl::ResultVector* drained = nullptr;
    m_controller.getDiagnosticResults(static_cast<long>(m_id), drained);
    const std::unique_ptr<DiagCtrl::ResultVector> owned(drained);
    const std::lock_guard<std::mutex> hold(m_mutex);
    for (Diag::DiagnosticResult* const result : *drained) {
      ++m_times[result->getEventCode()];
      delete result;
    }
  }
  const std::map<unsigned int, int>& times() const { return m_times; }

 private:
  DiagCtrl::DiagnosticController& m_controller;
  unsigned long m_id = 0;
  std::mutex m_mutex;
  std::map<unsigned int, int> m_times;
};

}  // namespace TarvexDiags::TestSupport
