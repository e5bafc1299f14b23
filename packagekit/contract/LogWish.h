#pragma once

#include <string>
#include <string_view>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The line by which a client asks for what the tests of a request write into the package's
/// log, as events: in the text to which the parameter pointer of its settings leads.
inline constexpr std::string_view kLogWish = "TellLog=TRUE";

inline std::string toLogWishLine() {
  std::string line(kLogWish);
  line += '\n';
  return line;
}

/// @brief Whether one of the lines of a client's text says so.
/// @param text of any lines; null for none
inline bool isLogWanted(const char* text) {
  std::string lines = "\n";
  lines += text == nullptr ? "" : text;
  lines += '\n';
  return lines.find('\n' + toLogWishLine()) != std::string::npos;
}

}  // namespace TarvexDiags::PackageKit::Contract
