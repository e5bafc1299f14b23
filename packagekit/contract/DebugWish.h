#pragma once

#include <string>
#include <string_view>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The line by which a client says that a debugger is to read the workers of a request: in
/// the text to which the parameter pointer of its settings leads.
inline constexpr std::string_view kDebugWish = "DebugWorker=TRUE";

inline std::string toDebugLine() {
  std::string line(kDebugWish);
  line += '\n';
  return line;
}

/// @brief Whether one of the lines of a client's text says so.
/// @param text of any lines; null for none
inline bool isToBeDebugged(const char* text) {
  std::string lines = "\n";
  lines += text == nullptr ? "" : text;
  lines += '\n';
  return lines.find('\n' + toDebugLine()) != std::string::npos;
}

}  // namespace TarvexDiags::PackageKit::Contract
