#include "watch/SystemFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <system_error>

namespace TarvexDiags::Watching {

namespace {

constexpr const char* kBlanks = " \t\n";

std::optional<std::uint64_t> numberIn(std::string_view text, int base) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  return error == std::errc() ? std::optional(value) : std::nullopt;
}

}  // namespace

// Without a stream: a watch reads hundreds of these files each second.
std::optional<std::string> SystemFiles::text(const std::filesystem::path& path) const {
  const int file = open((m_root / path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (file < 0) {
    return std::nullopt;
  }
  std::string text;
  char bytes[4096];
  ssize_t size = 0;
  do {
    size = read(file, bytes, sizeof bytes);
    text.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  } while (size > 0 || (size < 0 && errno == EINTR));
  close(file);
  return size < 0 ? std::nullopt : std::optional(std::move(text));
}

std::optional<std::uint64_t> SystemFiles::number(const std::filesystem::path& path) const {
  const std::optional<std::string> content = text(path);
  return content ? numberIn(*content, 10) : std::nullopt;
}

std::optional<std::uint64_t> SystemFiles::hexadecimal(const std::filesystem::path& path) const {
  const std::optional<std::string> content = text(path);
  return content && content->starts_with("0x") ? numberIn(content->substr(2), 16) : std::nullopt;
}

std::string SystemFiles::word(const std::filesystem::path& path) const {
  const std::string content = text(path).value_or("");
  const std::size_t first = content.find_first_not_of(kBlanks);
  return first == std::string::npos
             ? ""
             : content.substr(first, content.find_first_of(kBlanks, first) - first);
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

std::vector<std::string> SystemFiles::entries(const std::filesystem::path& folder) const {
  std::vector<std::string> names;
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(m_root / folder, failure), end;
       !failure && entry != end; entry.increment(failure)) {
    names.push_back(entry->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool SystemFiles::exists(const std::filesystem::path& path) const {
  std::error_code failure;
  return std::filesystem::exists(m_root / path, failure);
}

std::filesystem::path SystemFiles::resolved(const std::filesystem::path& path) const {
  std::error_code failure;
  const std::filesystem::path root = std::filesystem::canonical(m_root, failure);
  const std::filesystem::path place = std::filesystem::canonical(m_root / path, failure);
  const std::filesystem::path below = place.lexically_relative(root);
  return failure || below.empty() || *below.begin() == ".." ? std::filesystem::path() : below;
}

}  // namespace TarvexDiags::Watching
