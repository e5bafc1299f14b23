#include "watch/SystemFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace TarvexDiags::Watching {

namespace {

constexpr const char* kBlanks = " \t\n";

std::optional<std::uint64_t> numberIn(std::string_view text, int base) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  return error == std::errc() ? std::optional(value) : std::nullopt;
}

/// Whether what is open lies below a root, wherever links have led.
bool isBelow(int file, const std::filesystem::path& root) {
  std::error_code failure;
  const std::filesystem::path place =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file), failure);
  const std::filesystem::path below =
      place.lexically_relative(std::filesystem::canonical(root, failure));
  return !failure && !below.empty() && *below.begin() != "..";
}

/// A file as the kernel's own are: not one that never ends or never answers.
bool isPlain(int file) {
  struct stat info {};
  return fstat(file, &info) == 0 && S_ISREG(info.st_mode);
}

/// All that can be read, and no more than any file of the kernel has; nothing when there is more.
std::optional<std::string> readAll(int file) {
  constexpr std::size_t kMost = 16UL << 20U;
  std::string text;
  char bytes[4096];
  ssize_t size = 0;
  do {
    size = read(file, bytes, sizeof bytes);
    text.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  } while (text.size() <= kMost && (size > 0 || (size < 0 && errno == EINTR)));
  return size == 0 ? std::optional(std::move(text)) : std::nullopt;
}

bool leadsOut(const SystemFiles& files, const std::filesystem::path& root,
              const std::filesystem::path& folder) {
  return root != "/" && files.resolved(folder).empty();
}

}  // namespace

// Without a stream: a watch reads hundreds of these files each second. Files below another root
// come from anybody.
std::optional<std::string> SystemFiles::text(const std::filesystem::path& path) const {
  const int file = open((m_root / path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (file < 0) {
    return std::nullopt;
  }
  const bool isMeant = isPlain(file) && (m_root == "/" || isBelow(file, m_root));
  std::optional<std::string> text = isMeant ? readAll(file) : std::nullopt;
  close(file);
  return text;
}

std::optional<std::uint64_t> SystemFiles::number(const std::filesystem::path& path) const {
  const std::optional<std::string> content = text(path);
  return content ? numberIn(*content, 10) : std::nullopt;
}

std::optional<std::uint64_t> SystemFiles::hexadecimal(const std::filesystem::path& path) const {
  const std::optional<std::string> content = text(path);
  return content && content->starts_with("0x") ? numberIn(content->substr(2), 16) : std::nullopt;
}

std::string SystemFiles::line(const std::filesystem::path& path) const {
  const std::string content = text(path).value_or("");
  const std::string first = content.substr(0, content.find('\n'));
  const std::size_t begin = first.find_first_not_of(kBlanks);
  return begin == std::string::npos
             ? ""
             : first.substr(begin, first.find_last_not_of(kBlanks) - begin + 1);
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
  if (leadsOut(*this, m_root, folder)) {
    return numbers;
  }
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
  if (leadsOut(*this, m_root, folder)) {
    return names;
  }
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
