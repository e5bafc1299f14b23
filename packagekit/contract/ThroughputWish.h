#pragma once

#include <string>
#include <string_view>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The line by which a client asks for how much the tests of a request do a second, told
/// once a second as events: in the text to which the parameter pointer of its settings leads.
inline constexpr std::string_view kThroughputWish = "TellThroughput=TRUE";

inline std::string toThroughputWishLine() {
  std::string line(kThroughputWish);
  line += '\n';
  return line;
}

/// @brief Whether one of the lines of a client's text says so.
/// @param text of any lines; null for none
inline bool isThroughputWanted(const char* text) {
  std::string lines = "\n";
  lines += text == nullptr ? "" : text;
  lines += '\n';
  return lines.find('\n' + toThroughputWishLine()) != std::string::npos;
}

}  // namespace TarvexDiags::PackageKit::Contract
