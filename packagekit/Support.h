#pragma once

#include <string>
#include <utility>

namespace TarvexDiags::PackageKit {

/// @brief Whether a test can run on a device; a no always comes with its reason, which goes into
/// the package's log and to a client that wants it: see contract/SupportLines.h.
class Support {
 public:
  static Support yes() { return Support({}); }

  /// @param reason in a few words, such as "needs CAP_NET_ADMIN". Empty counts as unknown.
  static Support no(std::string reason) {
    return Support(reason.empty() ? "no reason given" : std::move(reason));
  }

  explicit operator bool() const { return m_reason.empty(); }

  /// @brief Why not; empty for a yes.
  const std::string& reason() const { return m_reason; }

 private:
  explicit Support(std::string reason) : m_reason(std::move(reason)) {}

  std::string m_reason;
};

}  // namespace TarvexDiags::PackageKit
