#pragma once

#include <sys/types.h>

#include <istream>
#include <memory>
#include <optional>
#include <streambuf>
#include <string>
#include <utility>

namespace TarvexDiags::FrontEnd {

/// The name that stands for standard input, whose log can be read once.
inline constexpr const char* kStandardInputName = "-";

/// For people: the file of that name is no log.
std::string toldAsNoLog(const std::string& name);

/// A log, open to be read from its beginning, behind a byte order mark of UTF-8.
class LogFile {
 public:
  /// Waits three seconds at most for somebody who writes to a named pipe.
  /// @throws std::runtime_error naming the file and the reason: it is not there, is a directory,
  ///   nobody writes to it, or it begins as no log does.
  explicit LogFile(const std::string& path);

  std::istream& stream() { return *m_stream; }
  /// For people.
  const std::string& name() const { return m_name; }

  /// What tells a file from another, whatever its names are.
  using Identity = std::pair<dev_t, ino_t>;
  /// Nothing for what is no regular file.
  std::optional<Identity> identity() const { return m_identity; }

 private:
  void open(const std::string& path);
  void requireLog();

  std::string m_name;
  std::optional<Identity> m_identity;
  std::unique_ptr<std::streambuf> m_buffer;
  std::unique_ptr<std::istream> m_opened;
  std::istream* m_stream = nullptr;
};

}  // namespace TarvexDiags::FrontEnd
