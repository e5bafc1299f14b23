#pragma once

#include <string_view>

#include "packagekit/contract/Texts.h"

namespace TarvexDiags::PackageKit::Contract {

/// @brief What kind of reason a test is not possible for.
enum class ReasonKind { NotPossible, NeedsPrivilege, NotInThisMode };

/// @brief The kind of a reason. Tokens of a package that end in "_PRIVILEGE" say that the user may
/// not do what the test needs; words are of no kind.
inline ReasonKind kindOf(std::string_view reason) {
  if (reason == kNotOffered) {
    return ReasonKind::NotInThisMode;
  }
  return reason.ends_with("_PRIVILEGE") ? ReasonKind::NeedsPrivilege : ReasonKind::NotPossible;
}

}  // namespace TarvexDiags::PackageKit::Contract
