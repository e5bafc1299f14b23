#include "packagekit/internal/OutputTail.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "System/internal/Utf8.h"

namespace TarvexDiags::PackageKit {

namespace {

constexpr std::size_t kKeptBytes = 4096;
constexpr std::size_t kKeptLines = 10;

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
  return System::toUtf8(text, "?");
}

}  // namespace TarvexDiags::PackageKit
