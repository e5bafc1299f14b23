#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "packagekit/contract/ClientDescriptor.h"

namespace TarvexDiags::PackageKit::Contract {

/// @brief Why a test of a package cannot run on a device.
///
/// The controller knows a yes or no alone. A client that wants the reasons opens a SupportInbox
/// before it enumerates; each package of the kit then writes a line for each no. A line for no test
/// tells how large a device is, whose name does not say it.
struct SupportLine {
  std::string package = {};  ///< base name
  int testId = 0;            ///< kNoTest: of the device itself
  std::string resourceTag = {};
  std::string reason = {};  ///< words, or a token of the package's texts
  std::string detail = {};  ///< in no language; often empty
};

inline constexpr int kNoTest = 0;
/// @brief The reason of a line that tells the size of a device; its detail is the bytes. The kit
/// takes them from the device's property of that name.
inline constexpr const char* kBytesOfDevice = "bytes";

/// @brief A text as a field of a line: control characters become blanks.
inline std::string toSupportField(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char character) { return static_cast<unsigned char>(character) < ' '; }, ' ');
  return text;
}

/// @brief Package, test, tag, reason and detail, between tabs; ends in a line feed.
inline std::string toText(const SupportLine& line) {
  return toSupportField(line.package) + '\t' + std::to_string(line.testId) + '\t' +
         toSupportField(line.resourceTag) + '\t' + toSupportField(line.reason) + '\t' +
         toSupportField(line.detail) + '\n';
}

/// @brief Reads what toText wrote, without the line feed; nothing for any other text.
inline std::optional<SupportLine> toSupportLine(std::string_view text) {
  std::array<std::string_view, 5> fields;
  for (std::size_t field = 0; field < fields.size(); ++field) {
    const std::size_t tab = text.find('\t');
    const bool isLast = field + 1 == fields.size();
    if (isLast != (tab == std::string_view::npos)) {
      return std::nullopt;
    }
    fields[field] = text.substr(0, tab);
    text.remove_prefix(isLast ? text.size() : tab + 1);
  }
  int testId = 0;
  const std::string_view number = fields[1];
  const auto result = std::from_chars(number.data(), number.data() + number.size(), testId);
  if (result.ec != std::errc() || result.ptr != number.data() + number.size()) {
    return std::nullopt;
  }
  return SupportLine{std::string(fields[0]), testId, std::string(fields[2]), std::string(fields[3]),
                     std::string(fields[4])};
}

/// @brief The environment variable by which packages find the inbox.
inline constexpr const char* kSupportVariable = "TARVEXDIAGS_SUPPORT_INBOX";

/// @brief The client's end: a file in memory, so writing to it never waits. One at a time in a
/// process; made before other threads run, since it changes the environment.
class SupportInbox {
 public:
  /// Throws std::system_error if there can be no such file.
  SupportInbox() : m_file(memfd_create("support", MFD_CLOEXEC)) {
    // Lines of several threads must not overwrite each other.
    if (m_file < 0 || fcntl(m_file, F_SETFL, O_APPEND) != 0 ||
        !announceDescriptor(kSupportVariable, m_file)) {
      throwError();
    }
  }
  /// The variable stays, and leads nowhere: other threads may be reading the environment.
  ~SupportInbox() { close(m_file); }
  SupportInbox(const SupportInbox&) = delete;
  SupportInbox& operator=(const SupportInbox&) = delete;

  /// @brief All lines so far, in the order of their writing; of a pair, the last one counts.
  std::vector<SupportLine> lines() const {
    std::string text;
    char buffer[4096];
    ssize_t size = 0;
    while ((size = pread(m_file, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0) {
      text.append(buffer, static_cast<std::size_t>(size));
    }
    std::vector<SupportLine> lines;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
      if (auto line = toSupportLine(std::string_view(text).substr(begin, end - begin))) {
        lines.push_back(std::move(*line));
      }
    }
    return lines;
  }

 private:
  [[noreturn]] void throwError() const {
    const int error = errno;
    if (m_file >= 0) {
      close(m_file);
    }
    throw std::system_error(error, std::generic_category(), "making room for support lines");
  }

  const int m_file;
};

/// @brief The package's end: writes a line into the inbox of the process, if it has one. From any
/// thread.
inline void sendSupportLine(const SupportLine& line) {
  const int file = announcedDescriptor(kSupportVariable);
  if (file < 0) {
    return;
  }
  const std::string text = toText(line);
  [[maybe_unused]] const ssize_t size = write(file, text.data(), text.size());
}

}  // namespace TarvexDiags::PackageKit::Contract
