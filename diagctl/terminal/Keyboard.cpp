#include "diagctl/terminal/Keyboard.h"

#include <poll.h>
#include <unistd.h>

#include <utility>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr int kPollMilliseconds = 100;

termios oldSettings{};
std::atomic<bool> isChanged{false};

}  // namespace

Keyboard::Keyboard(std::function<void(char)> onKey) : m_onKey(std::move(onKey)) {
  if (isatty(STDIN_FILENO) == 0 || tcgetpgrp(STDIN_FILENO) != getpgrp() ||
      tcgetattr(STDIN_FILENO, &oldSettings) != 0) {
    return;
  }
  termios settings = oldSettings;
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  // Or a typed interrupt would throw away what is told of it just then.
  settings.c_lflag |= static_cast<tcflag_t>(NOFLSH);
  if (tcsetattr(STDIN_FILENO, TCSANOW, &settings) != 0) {
    return;
  }
  isChanged = true;
  m_isWanted = true;
  m_thread = std::thread([this] { run(); });
}

Keyboard::~Keyboard() {
  m_isWanted = false;
  if (m_thread.joinable()) {
    m_thread.join();
  }
  restoreTerminal();
}

void Keyboard::restoreTerminal() {
  if (isChanged.exchange(false)) {
    tcsetattr(STDIN_FILENO, TCSANOW, &oldSettings);
  }
}

void Keyboard::run() {
  while (m_isWanted) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    char key = 0;
    if (poll(&input, 1, kPollMilliseconds) > 0 && (input.revents & POLLIN) != 0 &&
        read(STDIN_FILENO, &key, 1) == 1) {
      m_onKey(key);
    } else if ((input.revents & (POLLHUP | POLLERR)) != 0) {
      return;
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
