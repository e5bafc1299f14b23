#pragma once

#include <string>
#include <utility>
#include <vector>

#include "packagekit/contract/Texts.h"

namespace TarvexDiags::PackageKit {

/// @brief What a test has to say about the device, or that it cannot say anything.
///
/// Three answers and no more: the hardware is good, the hardware is at fault, or there is no
/// verdict. Trouble of the tool itself (no memory, no permission, a vanished device, an exception)
/// is never the second: throw, or return `unusual`, and the kit reports `UNUSUAL_STATUS`; but an
/// error event that was raised before stays a fault of the hardware. See contract/Judgement.h.
///
///   return failed(EVENT_MISCOMPARE, {address, expected, found});
///
/// Codes are the package's own, 1 to 8999; the kit keeps 9000 to 9099. The kit raises the code as
/// an event: `failed` as ERROR_EVENT, `unusual` as WARNING_EVENT, with the parameters as given;
/// one that is the first of its kind that the test has raised itself is not raised again.
/// Each code needs its token in section `Error` or `Warning` of the package's configuration file.
/// A verdict that is made and not returned tells nobody anything, so the compiler warns of it.
class [[nodiscard]] Verdict {
 public:
  enum class Kind : unsigned char { Passed, Unusual, Failed, NotSupported };

  Kind kind() const { return m_kind; }
  unsigned int code() const { return m_code; }
  const std::vector<std::string>& parameters() const { return m_parameters; }

 private:
  Verdict(Kind kind, unsigned int code, std::vector<std::string> parameters)
      : m_kind(kind), m_code(code), m_parameters(std::move(parameters)) {}

  friend Verdict passed();
  friend Verdict failed(unsigned int code, std::vector<std::string> parameters);
  friend Verdict unusual(unsigned int code, std::vector<std::string> parameters);
  friend Verdict notSupported(std::string reason, const std::string& detail);

  Kind m_kind;
  unsigned int m_code;
  std::vector<std::string> m_parameters;
};

/// @brief The device does what it should. Result PASSED.
inline Verdict passed() {
  return {Verdict::Kind::Passed, 0, {}};
}

/// @brief The hardware is at fault. Result FAILED, and an ERROR_EVENT with this code.
inline Verdict failed(unsigned int code, std::vector<std::string> parameters = {}) {
  return {Verdict::Kind::Failed, code, std::move(parameters)};
}

/// @brief No verdict, or a warning. Result UNUSUAL_STATUS, and a WARNING_EVENT with this code.
inline Verdict unusual(unsigned int code, std::vector<std::string> parameters = {}) {
  return {Verdict::Kind::Unusual, code, std::move(parameters)};
}

/// @brief The test turned out not to be possible here: the kernel refuses it, the device lacks what
/// it needs. Result UNUSUAL_STATUS, with the kit's own WARNING_EVENT carrying the reason.
///
/// For what is known before the run, a predicate of the test (TestEntry::supportedWhen) is better:
/// it keeps the test off the device from the start.
///
/// @param reason a few words, or a token of the package's texts
/// @param detail what no language has a word for, such as a path or a message of the system
inline Verdict notSupported(std::string reason, const std::string& detail = {}) {
  return {Verdict::Kind::NotSupported, 0, {std::move(reason), Contract::inBrackets(detail)}};
}

}  // namespace TarvexDiags::PackageKit
