#include "diagctl/session/ControllerFailure.h"

#include <fmt/format.h>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::string describe(const std::string& what, unsigned int number) {
  const CodeEntry* entry = findResult(number);
  if (entry == nullptr) {
    return tr("{}: the controller answered {}", what, number);
  }
  return fmt::format("{}: {} ({}). {}\n  {}", what, entry->name, number, told(entry->meaning),
                     told(entry->nextAction));
}

}  // namespace

ControllerFailure::ControllerFailure(const std::string& what,
                                     DiagCtrl::DiagnosticController::errorCode code)
    : FailureInLines(describe(toPrintable(what), code)), m_code(code) {}

void require(DiagCtrl::DiagnosticController::errorCode code, const std::string& what) {
  if (code != DiagCtrl::DiagnosticController::SUCCESS) {
    throw ControllerFailure(what, code);
  }
}

}  // namespace TarvexDiags::FrontEnd
