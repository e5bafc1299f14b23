#pragma once

#include <string>
#include <utility>

#include "packagekit/contract/Texts.h"

namespace TarvexDiags::PackageKit {

/// @brief Whether a test can run on a device; a no always comes with its reason, which goes into
/// the package's log and to a client that wants it: see contract/SupportLines.h.
class [[nodiscard]] Support {
 public:
  static Support yes() { return {{}, {}}; }

  /// @param reason in a few words, or a token of the package's texts, which clients tell in their
  /// language. Empty counts as unknown.
  /// @param detail what no language has a word for, such as a path, a number or a message of the
  /// system; stands behind the reason, in brackets.
  static Support no(std::string reason, std::string detail = {}) {
    return {reason.empty() ? Contract::kNoReason : std::move(reason), std::move(detail)};
  }

  /// @brief The test is not for devices of this kind, whatever machine and rights: for packages
  /// with devices of several kinds. Front ends don't speak of such a pair at all.
  static Support notForThisKind() { return no(Contract::kNotForThisKind); }

  explicit operator bool() const { return m_reason.empty(); }

  /// @brief Why not; empty for a yes.
  const std::string& reason() const { return m_reason; }
  /// @brief Empty where the reason has none.
  const std::string& detail() const { return m_detail; }

 private:
  Support(std::string reason, std::string detail)
      : m_reason(std::move(reason)), m_detail(std::move(detail)) {}

  std::string m_reason;
  std::string m_detail;
};

}  // namespace TarvexDiags::PackageKit
