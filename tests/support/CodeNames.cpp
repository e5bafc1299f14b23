#include "tests/support/CodeNames.h"

#include "diagctl/session/CodeTable.h"

namespace TarvexDiags::TestSupport {

namespace {

using DiagCtrl::DiagControllerStatus;
using DiagCtrl::DiagCtrlEvent;
using DiagCtrl::DiagnosticController;
using DiagCtrl::TestRequest;

template <class Code>
struct Named {
  Code code;
  const char* name;
};

template <class Code, std::size_t size>
std::string lookUp(const Named<Code> (&table)[size], Code code) {
  for (const Named<Code>& entry : table) {
    if (entry.code == code) {
      return entry.name;
    }
  }
  return std::to_string(static_cast<unsigned int>(code));
}

std::string nameIn(const FrontEnd::CodeEntry* entry, unsigned int number) {
  return entry == nullptr ? std::to_string(number) : std::string(entry->name);
}

#define NAMED(name) \
  { Scope::name, #name }

}  // namespace

std::string nameOf(DiagnosticController::errorCode code) {
  return nameIn(FrontEnd::findResult(code), code);
}

std::string nameOf(DiagCtrlEvent::eventCode code) {
  return nameIn(FrontEnd::findEvent(code), code);
}

std::string nameOf(DiagControllerStatus::diagCtrlPhase phase) {
  typedef DiagControllerStatus Scope;
  static constexpr Named<Scope::diagCtrlPhase> kTable[] = {
      NAMED(UNINITIALISED), NAMED(ACTIVE),     NAMED(IDLE),
      NAMED(ENUMERATE),     NAMED(INITIALIZE), NAMED(ESTIMATION),
  };
  return lookUp(kTable, phase);
}

std::string nameOf(TestRequest::TestRequestStatus status) {
  typedef TestRequest Scope;
  static constexpr Named<Scope::TestRequestStatus> kTable[] = {
      NAMED(WAIT), NAMED(RUNNING), NAMED(COMPLETED), NAMED(ABORTED), NAMED(REQUEUED),
  };
  return lookUp(kTable, status);
}

std::string letterOf(Diag::DiagnosticEvent::EventType type) {
  static constexpr Named<Diag::DiagnosticEvent::EventType> kTable[] = {
      {Diag::DiagnosticEvent::INFORMATION_EVENT, "I"},
      {Diag::DiagnosticEvent::WARNING_EVENT, "W"},
      {Diag::DiagnosticEvent::ERROR_EVENT, "E"},
  };
  return lookUp(kTable, type);
}

}  // namespace TarvexDiags::TestSupport
