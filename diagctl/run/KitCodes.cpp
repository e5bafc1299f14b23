#include "diagctl/run/KitCodes.h"

#include <array>
#include <charconv>
#include <system_error>

namespace TarvexDiags::FrontEnd::KitCodes {

namespace {

using Diag::DiagnosticEvent;

constexpr unsigned int firstTrouble = 9000;
constexpr std::array<const char*, 15> symptoms = {
    "worker-crashed",     "worker-exited",   "test-timed-out",    "out-of-memory",
    "no-permission",      "device-vanished", "test-threw",        "system-call-failed",
    "worker-not-started", "protocol-broken", "worker-killed",     "worker-unkillable",
    "device-refused",     "test-unknown",    "open-mode-refused",
};
constexpr unsigned int notPossible = 9040;
constexpr unsigned int aborted = 9042;
constexpr unsigned int firstBookkeeping = 9061;
constexpr unsigned int lastBookkeeping = 9063;
constexpr unsigned int measurement = 9062;
constexpr std::size_t measurementParameters = 6;

}  // namespace

bool isTrouble(const DiagnosticEvent& event) {
  return event.getEventType() == DiagnosticEvent::ERROR_EVENT &&
         event.getEventCode() >= firstTrouble &&
         event.getEventCode() < firstTrouble + symptoms.size();
}

bool isMeasurement(const DiagnosticEvent& event) {
  return event.getEventType() == DiagnosticEvent::INFORMATION_EVENT &&
         event.getEventCode() == measurement &&
         event.getParamVector().size() >= measurementParameters;
}

bool isBookkeeping(const DiagnosticEvent& event) {
  return event.getEventType() == DiagnosticEvent::INFORMATION_EVENT &&
         event.getEventCode() >= firstBookkeeping && event.getEventCode() <= lastBookkeeping;
}

bool isNotPossible(const DiagnosticEvent& event) {
  return event.getEventType() == DiagnosticEvent::WARNING_EVENT &&
         event.getEventCode() == notPossible;
}

bool isAbort(const DiagnosticEvent& event) {
  return event.getEventType() == DiagnosticEvent::WARNING_EVENT && event.getEventCode() == aborted;
}

std::string symptomOf(const DiagnosticEvent& event) {
  return isTrouble(event) ? symptoms[event.getEventCode() - firstTrouble] : "tool-trouble";
}

std::variant<double, std::string> measuredValue(const std::string& text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size() && !text.empty()) {
    return number;
  }
  return text;
}

}  // namespace TarvexDiags::FrontEnd::KitCodes
