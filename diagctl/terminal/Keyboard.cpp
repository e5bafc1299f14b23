#include "diagctl/terminal/Keyboard.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "diagctl/terminal/JobControl.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr int kPollMilliseconds = 100;

termios oldSettings{};
std::atomic<bool> isChanged{false};

// The old settings are those of the first time: a stop that nobody could prepare for leaves others.
// @return whether single keys come.
bool takeTerminal() {
  static const bool kIsKnown = tcgetattr(STDIN_FILENO, &oldSettings) == 0;
  if (isChanged || !kIsKnown) {
    return isChanged;
  }
  termios settings = oldSettings;
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  // Or a typed interrupt would throw away what is told of it just then.
  settings.c_lflag |= static_cast<tcflag_t>(NOFLSH);
  if (tcsetattr(STDIN_FILENO, TCSANOW, &settings) != 0) {
    return false;
  }
  isChanged = true;
  return true;
}

}  // namespace

Keyboard::Keyboard(std::function<void(Key)> onKey) : m_onKey(std::move(onKey)) {
  if (isatty(STDIN_FILENO) == 0) {
    return;
  }
  if (JobControl::isInForeground(STDIN_FILENO)) {
    takeTerminal();  // before anything is told, or the first key would be shown
  }
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

// In the background the settings are those of whoever has the terminal, and changing them would
// stop the program.
void Keyboard::restoreTerminal() {
  if (isChanged.exchange(false) && JobControl::isInForeground(STDIN_FILENO)) {
    tcsetattr(STDIN_FILENO, TCSANOW, &oldSettings);
  }
}

void Keyboard::tell(std::optional<Key> key) {
  if (key) {
    m_onKey(*key);
  }
}

// Whoever had the terminal meanwhile may have left it with settings of his own; and what is typed
// in the background is for somebody else.
void Keyboard::run() {
  unsigned long continuations = JobControl::continuations();
  while (m_isWanted) {
    const bool hasGoneOn =
        std::exchange(continuations, JobControl::continuations()) != continuations;
    const bool isInForeground = JobControl::isInForeground(STDIN_FILENO);
    if (hasGoneOn || !isInForeground) {
      isChanged = false;
    }
    if (!isInForeground || !takeTerminal()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kPollMilliseconds));
      continue;
    }
    pollfd input{STDIN_FILENO, POLLIN, 0};
    char byte = 0;
    const int found = poll(&input, 1, kPollMilliseconds);
    if (found == 0) {
      tell(m_reader.takePause());
    } else if (found > 0 && (input.revents & POLLIN) != 0 &&
               JobControl::isInForeground(STDIN_FILENO) && read(STDIN_FILENO, &byte, 1) == 1) {
      tell(m_reader.take(byte));
    } else if ((input.revents & (POLLHUP | POLLERR)) != 0) {
      return;
    }
  }
}

}  // namespace TarvexDiags::FrontEnd
