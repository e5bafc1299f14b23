// SysUtil: reading configuration files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "System/SysUtil.h"
#include "System/internal/ConfigScanner.h"

namespace TarvexDiags::System {

namespace {

// Reading through a small buffer costs less than mapping the file: a mapping pays for its page
// faults on every call. And a file that is cut short meanwhile is the end of a read, where a
// mapping would end the process. bench/ has the comparison.
constexpr std::size_t kBufferSize = 64 * 1024;

/** A regular file open for reading, closed at the end of its scope. */
class InputFile {
 public:
  explicit InputFile(const std::string& path) : m_descriptor(openRegular(path)) {}
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile() {
    if (isOpen()) {
      ::close(m_descriptor);
    }
  }

  bool isOpen() const { return m_descriptor >= 0; }

  /** Reads what comes next: the number of bytes, 0 at the end, negative on a failure. */
  ssize_t read(char* buffer, std::size_t size) const {
    ssize_t count = 0;
    do {
      count = ::read(m_descriptor, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
  }

 private:
  static int openRegular(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
      return -1;  // the system would open what the part before it names
    }
    // Not to wait for the other end of a pipe, nor to take over a terminal.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status {};
    if (descriptor >= 0 && (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))) {
      ::close(descriptor);
      return -1;
    }
    return descriptor;
  }

  const int m_descriptor;
};

int readKey(std::string&& section, std::string&& key, std::string& value, const std::string& path) {
  const InputFile file(path);
  if (!file.isOpen()) {
    return SysUtil::CFG_FILE_UNREADABLE;
  }
  ConfigScanner scanner(std::move(section), std::move(key), value);
  const auto buffer = std::make_unique_for_overwrite<char[]>(kBufferSize);
  ssize_t count = 0;
  do {
    count = file.read(buffer.get(), kBufferSize);
    if (count < 0) {
      return SysUtil::CFG_FILE_UNREADABLE;
    }
  } while (count > 0 && !scanner.feed(buffer.get(), static_cast<std::size_t>(count)));
  return scanner.found() ? SysUtil::CFG_READ : SysUtil::CFG_KEY_NOT_FOUND;
}

const char* textOrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

int SysUtil::ReadCfgFile(std::string section, std::string key, std::string& value, std::string file,
                         int /*reserved*/) {
  int result = CFG_FILE_UNREADABLE;
  value.clear();
  try {
    result = readKey(std::move(section), std::move(key), value, file);
  } catch (const std::exception&) {
    // Out of memory for the buffer, or for a value of that length.
  }
  if (result < 0) {
    value.clear();
  }
  return result;
}

int SysUtil::GetParamsValueString(const char* sectionName, const char* keyName,
                                  const char* defaultValue, char* keyValue, int keySize,
                                  const char* initFileName) {
  std::string value;
  const int result = ReadCfgFile(textOrEmpty(sectionName), textOrEmpty(keyName), value,
                                 textOrEmpty(initFileName), -1);
  if (keyValue == nullptr || keySize <= 0) {
    return result;
  }
  const auto size = static_cast<std::size_t>(keySize);
  const bool usable = result >= 0 && !value.empty() && value.size() < size;
  const std::string text = usable ? value : textOrEmpty(defaultValue);
  std::memset(keyValue, 0, size);
  std::memcpy(keyValue, text.data(), std::min(text.size(), size - 1));
  return result;
}

}  // namespace TarvexDiags::System
