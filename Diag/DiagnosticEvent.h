#pragma once

#include <string>
#include <vector>

#include "System/Export.h"

namespace TarvexDiags::Diag {

/**
 * @brief Something that a test, or the controller, has to tell: a numeric code with its severity,
 * the request that it concerns, and texts to fill into the message.
 *
 * Thread-safety: distinct objects are independent, copies included. One and the same object needs a
 * lock, also for dump, which writes to it.
 */
class TARVEXDIAGS_EXPORT DiagnosticEvent {
 public:
  /** @brief Severity; it also says which section of the package's configuration has the token. */
  enum EventType : unsigned int { INFORMATION_EVENT = 0, WARNING_EVENT = 1, ERROR_EVENT = 2 };

  /** @brief Code 0, INFORMATION_EVENT, request 0, no parameters. */
  DiagnosticEvent();
  DiagnosticEvent(const DiagnosticEvent& other);
  DiagnosticEvent& operator=(const DiagnosticEvent& other);
  virtual ~DiagnosticEvent();

  /**
   * @brief A text form on one line, for logs: code, type, request id and the quoted parameters.
   *
   * Quotes, backslashes and control characters inside a parameter are escaped, so the text never
   * breaks the line that it is put on.
   *
   * @return a member of this object: valid until the next call of dump on it, or its end.
   */
  virtual const std::string& dump();

  /** @brief Sets the code: the package's own number, or one of the controller's event codes. */
  void setEventCode(unsigned int eventCode);
  void setEventType(EventType eventType);

  /** @brief Sets the id of the request concerned; 0 stands for none. */
  void setTestRequestId(unsigned int testRequestId);

  /** @brief Sets the texts for the variables of the message, in order. */
  void setParamVector(std::vector<std::string> parameters);

  unsigned int getEventCode() const;
  EventType getEventType() const;
  unsigned int getTestRequestId() const;

  /** @brief The parameters, valid until they are set anew or the object ends. */
  const std::vector<std::string>& getParamVector() const;

 protected:
  /** @brief The text of dump, for a derived class that adds to it. */
  std::string describe() const;

  /** @brief Makes a text the result of dump: keeps it in this object. */
  const std::string& keepDump(std::string text);

 private:
  unsigned int m_eventCode = 0;
  EventType m_eventType = INFORMATION_EVENT;
  unsigned int m_testRequestId = 0;
  std::vector<std::string> m_parameters;
  std::string m_dumpText;
};

}  // namespace TarvexDiags::Diag
