#include "Diag/DiagnosticEvent.h"

#include <utility>

namespace TarvexDiags::Diag {

namespace {

std::string nameOf(DiagnosticEvent::EventType type) {
  switch (type) {
    case DiagnosticEvent::INFORMATION_EVENT:
      return "INFORMATION_EVENT";
    case DiagnosticEvent::WARNING_EVENT:
      return "WARNING_EVENT";
    case DiagnosticEvent::ERROR_EVENT:
      return "ERROR_EVENT";
  }
  return std::to_string(static_cast<unsigned int>(type));
}

void appendEscaped(std::string& text, char character) {
  static const char hexDigits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(character);
  if (character == '"' || character == '\\') {
    text += {'\\', character};
  } else if (byte < 0x20 || byte == 0x7f) {
    text += {'\\', 'x', hexDigits[byte >> 4U], hexDigits[byte & 0xfU]};
  } else {
    text += character;
  }
}

void appendQuoted(std::string& text, const std::string& parameter) {
  text += '"';
  for (const char character : parameter) {
    appendEscaped(text, character);
  }
  text += '"';
}

}  // namespace

DiagnosticEvent::DiagnosticEvent() = default;

// The text of dump is not taken over: it is made anew by the copy's own dump.
DiagnosticEvent::DiagnosticEvent(const DiagnosticEvent& other)
    : m_eventCode(other.m_eventCode),
      m_eventType(other.m_eventType),
      m_testRequestId(other.m_testRequestId),
      m_parameters(other.m_parameters) {}

DiagnosticEvent& DiagnosticEvent::operator=(const DiagnosticEvent& other) = default;

DiagnosticEvent::~DiagnosticEvent() = default;

const std::string& DiagnosticEvent::dump() {
  return keepDump(describe());
}

std::string DiagnosticEvent::describe() const {
  std::string text = "code " + std::to_string(m_eventCode) + ", type " + nameOf(m_eventType) +
                     ", request " + std::to_string(m_testRequestId) + ", parameters [";
  const char* separator = "";
  for (const std::string& parameter : m_parameters) {
    text += separator;
    appendQuoted(text, parameter);
    separator = ", ";
  }
  return text + "]";
}

const std::string& DiagnosticEvent::keepDump(std::string text) {
  m_dumpText = std::move(text);
  return m_dumpText;
}

void DiagnosticEvent::setEventCode(unsigned int eventCode) {
  m_eventCode = eventCode;
}

void DiagnosticEvent::setEventType(EventType eventType) {
  m_eventType = eventType;
}

void DiagnosticEvent::setTestRequestId(unsigned int testRequestId) {
  m_testRequestId = testRequestId;
}

void DiagnosticEvent::setParamVector(std::vector<std::string> parameters) {
  m_parameters = std::move(parameters);
}

unsigned int DiagnosticEvent::getEventCode() const {
  return m_eventCode;
}

DiagnosticEvent::EventType DiagnosticEvent::getEventType() const {
  return m_eventType;
}

unsigned int DiagnosticEvent::getTestRequestId() const {
  return m_testRequestId;
}

const std::vector<std::string>& DiagnosticEvent::getParamVector() const {
  return m_parameters;
}

}  // namespace TarvexDiags::Diag
