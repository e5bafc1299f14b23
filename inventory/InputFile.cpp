#include "inventory/InputFile.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace TarvexDiags::Inventory {

namespace {

class Input {
 public:
  explicit Input(const std::string& name)
      : m_name(name), m_file(open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    if (m_file < 0) {
      fail();
    }
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input() { close(m_file); }

  // 0 at the end.
  std::size_t read(char* place, std::size_t size) const {
    for (;;) {
      const ssize_t count = ::read(m_file, place, size);
      if (count >= 0) {
        return static_cast<std::size_t>(count);
      }
      if (errno == EAGAIN) {  // a writer has it open
        pollfd waiting{m_file, POLLIN, 0};
        poll(&waiting, 1, -1);
      } else if (errno != EINTR) {
        fail();
      }
    }
  }

 private:
  [[noreturn]] void fail() const {
    throw std::system_error(errno, std::generic_category(), m_name);
  }

  const std::string& m_name;
  const int m_file;
};

}  // namespace

std::string readInput(const std::string& file, std::size_t most) {
  constexpr std::size_t kPiece = 65536;
  const Input input(file);
  std::string text;
  std::array<char, kPiece> piece{};
  while (text.size() <= most) {
    const std::size_t count = input.read(piece.data(), std::min(kPiece, most + 1 - text.size()));
    if (count == 0) {
      break;
    }
    text.append(piece.data(), count);
  }
  return text;
}

}  // namespace TarvexDiags::Inventory
