#include "packagekit/internal/OutputTail.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace TarvexDiags::PackageKit {

namespace {

constexpr std::size_t kKeptBytes = 4096;
constexpr std::size_t kKeptLines = 10;

bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80U;
}

// How many bytes the character at the start takes; 0 when it is none. Overlong forms, surrogates
// and numbers beyond U+10FFFF are told by the second byte.
std::size_t characterLength(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) {
    return 1;
  }
  const std::size_t length = first >= 0xc2 && first <= 0xdf   ? 2
                             : first >= 0xe0 && first <= 0xef ? 3
                             : first >= 0xf0 && first <= 0xf4 ? 4
                                                              : 0;
  if (length == 0 || text.size() < length ||
      !std::all_of(text.begin() + 1, text.begin() + static_cast<long>(length), isContinuation)) {
    return 0;
  }
  const auto second = static_cast<unsigned char>(text[1]);
  const bool isWrong = (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                       (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
  return isWrong ? 0 : length;
}

}  // namespace

void OutputTail::add(const char* bytes, std::size_t size) {
  m_bytes.append(bytes, size);
  if (m_bytes.size() > 2 * kKeptBytes) {
    m_bytes.erase(0, m_bytes.size() - kKeptBytes);
  }
}

std::string OutputTail::lines() const {
  std::vector<std::string_view> found;
  std::string_view rest(m_bytes);
  rest = rest.substr(rest.size() - std::min(rest.size(), kKeptBytes));
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    if (end > 0) {
      found.push_back(rest.substr(0, end));
    }
    rest.remove_prefix(std::min(rest.size(), end + 1));
  }
  std::string joined;
  for (std::size_t line = found.size() - std::min(found.size(), kKeptLines); line < found.size();
       ++line) {
    joined.append(joined.empty() ? "" : " | ").append(found[line]);
  }
  std::replace_if(
      joined.begin(), joined.end(),
      [](char byte) { return static_cast<unsigned char>(byte) < ' '; }, ' ');
  return toValidUtf8(joined);
}

std::string toValidUtf8(const std::string& text) {
  std::string valid;
  valid.reserve(text.size());
  for (std::string_view rest(text); !rest.empty();) {
    const std::size_t length = characterLength(rest);
    if (length == 0) {
      valid += '?';
    } else {
      valid.append(rest.substr(0, length));
    }
    rest.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return valid;
}

}  // namespace TarvexDiags::PackageKit
