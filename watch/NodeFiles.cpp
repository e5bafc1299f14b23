#include "watch/NodeFiles.h"

#include <charconv>
#include <sstream>
#include <system_error>

namespace TarvexDiags::Watching {

std::filesystem::path folderOfNode(int number) {
  return kNodesFolder / ("node" + std::to_string(number));
}

std::optional<std::uint64_t> bytesOfRow(const std::string& text, std::string_view name) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || !std::string_view(line).substr(0, colon).ends_with(name)) {
      continue;
    }
    const std::size_t digit = line.find_first_of("0123456789", colon);
    std::uint64_t kilobytes = 0;
    if (digit != std::string::npos &&
        std::from_chars(line.data() + digit, line.data() + line.size(), kilobytes).ec ==
            std::errc()) {
      return kilobytes * 1024;
    }
  }
  return std::nullopt;
}

}  // namespace TarvexDiags::Watching
