#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// Names of machines as those who have many of them write it: "login, n[1-3,7]". Names that differ
/// in one number are folded; numbers with leading zeros only with those of the same length. Each
/// stands there once, and what holds a bracket or a comma stays as it is.
std::string foldedNames(const std::vector<std::string>& names);

}  // namespace TarvexDiags::FrontEnd
