#pragma once

#include <charconv>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace TarvexDiags::PackageKit::Contract {

/// @brief The line by which a client asks for the time at which each event of a request was raised:
/// in the text to which the parameter pointer of its settings leads.
///
/// An event then has one parameter more, behind all others: see takeTime. What a test raises has
/// the time of its own process, however late it is fetched: not before that process was started,
/// and not before what the test raised earlier.
inline constexpr std::string_view kTimeWish = "TellTime=TRUE";

/// @brief What the additional parameter begins with; milliseconds since 1970 (UTC) follow.
inline constexpr std::string_view kTimeMark = "RaisedAt=";

inline std::string toTimeWishLine() {
  std::string line(kTimeWish);
  line += '\n';
  return line;
}

/// @brief Whether one of the lines of a client's text says so.
/// @param text of any lines; null for none
inline bool isTimeWanted(const char* text) {
  std::string lines = "\n";
  lines += text == nullptr ? "" : text;
  lines += '\n';
  return lines.find('\n' + toTimeWishLine()) != std::string::npos;
}

/// @brief The additional parameter.
inline std::string toTimeDetail(std::chrono::system_clock::time_point time) {
  const auto since = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  return std::string(kTimeMark) + std::to_string(since.count());
}

/// @brief Takes the additional parameter away.
/// @return when the event was raised; nothing, and all parameters are left, where it does not tell.
inline std::optional<std::chrono::system_clock::time_point> takeTime(
    std::vector<std::string>& parameters) {
  constexpr long long latest = 9'000'000'000'000;  // in 2255; the clock's own range ends in 2262
  if (parameters.empty() || !parameters.back().starts_with(kTimeMark)) {
    return std::nullopt;
  }
  const std::string_view text = std::string_view(parameters.back()).substr(kTimeMark.size());
  long long milliseconds = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, milliseconds);
  if (read.ec != std::errc() || read.ptr != end || milliseconds < 0 || milliseconds > latest) {
    return std::nullopt;
  }
  parameters.pop_back();
  return std::chrono::system_clock::time_point(std::chrono::milliseconds(milliseconds));
}

}  // namespace TarvexDiags::PackageKit::Contract
