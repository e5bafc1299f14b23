#pragma once

// What the fuzzers share: they take an input apart, and say what must hold of any.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace TarvexDiags::Fuzz {

/// Ends the process, which makes the input a finding, unless it holds.
inline void expect(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (!holds) {
    std::fprintf(stderr, "%s:%d: not as expected\n", file, line);
    std::abort();
  }
}

/// Takes what stands before a separator, which goes with it; all of the rest if there is none.
inline std::string takeUntil(std::string& rest, char separator) {
  const std::size_t end = std::min(rest.find(separator), rest.size());
  std::string taken = rest.substr(0, end);
  rest.erase(0, std::min(end + 1, rest.size()));
  return taken;
}

inline std::string takeLine(std::string& rest) {
  return takeUntil(rest, '\n');
}

/// Takes a number; 0 at the end of the input.
inline std::uint8_t takeByte(std::string& rest) {
  const auto byte = rest.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(rest.front());
  rest.erase(0, 1);
  return byte;
}

/// The bytes of an input as a text.
inline std::string textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// A file in memory alone, for what reads by path.
class MemoryFile {
 public:
  explicit MemoryFile(const char* name) : m_file(memfd_create(name, MFD_CLOEXEC)) {}
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { close(m_file); }

  void write(const std::string& text) const {
    expect(ftruncate(m_file, 0) == 0 &&
           pwrite(m_file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  }
  std::string path() const { return "/proc/self/fd/" + std::to_string(m_file); }

 private:
  int m_file;
};

}  // namespace TarvexDiags::Fuzz
