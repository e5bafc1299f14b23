#pragma once

#include <string>

namespace TarvexDiags::Watching {

/// @brief Marks a reason for which there is nothing to watch, for whoever tells it in another
/// language.
/// @param reason without ": ", behind which the system's own words stand where there are some
constexpr const char* because(const char* reason) {
  return reason;
}

/// @brief The same with the system's words for what went wrong.
inline std::string because(const char* reason, const std::string& cause) {
  std::string told = reason;
  return told.append(": ").append(cause);
}

}  // namespace TarvexDiags::Watching
