#include "packages/common/SystemFiles.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <system_error>

namespace TarvexDiags::Common {

std::optional<std::string> SystemFiles::text(const std::filesystem::path& path) const {
  std::ifstream file(m_root / path);
  if (!file) {
    return std::nullopt;
  }
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return file.bad() ? std::nullopt : std::optional(std::move(text));
}

std::optional<std::uint64_t> SystemFiles::number(const std::filesystem::path& path) const {
  const std::optional<std::string> content = text(path);
  if (!content) {
    return std::nullopt;
  }
  std::uint64_t value = 0;
  const auto [end, error] =
      std::from_chars(content->data(), content->data() + content->size(), value);
  return error == std::errc() ? std::optional(value) : std::nullopt;
}

std::vector<int> SystemFiles::numberedEntries(const std::filesystem::path& folder,
                                              std::string_view prefix) const {
  std::vector<int> numbers;
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(m_root / folder, failure), end;
       !failure && entry != end; entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    if (!std::string_view(name).starts_with(prefix)) {
      continue;
    }
    int number = 0;
    const char* last = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data() + prefix.size(), last, number);
    if (error == std::errc() && stop == last && number >= 0) {
      numbers.push_back(number);
    }
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

bool SystemFiles::exists(const std::filesystem::path& path) const {
  std::error_code failure;
  return std::filesystem::exists(m_root / path, failure);
}

}  // namespace TarvexDiags::Common
