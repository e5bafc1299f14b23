#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace TarvexDiags::Common {

/// @brief Why a test is not possible: a token of the package's texts, so that everybody reads it in
/// a language of their own. Each package has a header of all that it gives.
struct Reason {
  const char* token;

  /// The same reason has more than one address: each file that names it may have its own.
  bool operator==(const Reason& other) const { return std::string_view(token) == other.token; }
};

/// @brief The device or this process lacks what the test needs. No fault.
class NotSupported : public std::runtime_error {
 public:
  /// @param detail what no language has a word for, such as a path, a number or a message of the
  /// system
  explicit NotSupported(Reason reason, std::string detail = {})
      : std::runtime_error(detail.empty() ? std::string(reason.token)
                                          : reason.token + (" (" + detail + ")")),
        m_reason(reason),
        m_detail(std::move(detail)) {}

  Reason reason() const { return m_reason; }
  const std::string& detail() const { return m_detail; }

 private:
  Reason m_reason;
  std::string m_detail;
};

}  // namespace TarvexDiags::Common
