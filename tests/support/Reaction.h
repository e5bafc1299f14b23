#pragma once

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

namespace TarvexDiags::TestSupport {

/// How slowly an empty process reacts at present, at the niceness of the processes in which tests
/// run: on a busy machine an answer may be late by some such reactions, and only what is later than
/// that is the fault of whoever answers. Needs a process that may fork.
class Reaction {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Reaction(int niceness = 10) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
      throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    // Nobody's child: whoever counts those of this process finds its own.
    const pid_t between = fork();
    if (between == 0) {
      if (fork() == 0) {
        close(ends[0]);
        answer(ends[1], niceness);
      }
      _exit(0);
    }
    waitpid(between, nullptr, 0);
    close(ends[1]);
    m_channel = ends[0];
    m_thread = std::thread([this] { ask(); });
  }

  Reaction(const Reaction&) = delete;
  Reaction& operator=(const Reaction&) = delete;

  ~Reaction() {
    m_isWanted = false;
    m_thread.join();
    close(m_channel);  // which ends the process
  }

  /// Forgets what was slow so far.
  void forget() { m_slowest = 0; }

  /// The slowest reaction since then.
  Clock::duration slowest() const {
    const Clock::rep asked = m_askedAt;
    const Clock::rep present = asked == 0 ? 0 : now() - asked;
    return Clock::duration(std::max(m_slowest.load(), present));
  }

  /// The time within which an answer must come that is promised within a limit: it takes the
  /// scheduler some turns.
  Clock::duration allowed(Clock::duration promised) const { return promised + kTurns * slowest(); }

 private:
  static constexpr int kTurns = 10;
  static constexpr std::chrono::milliseconds kPause{2};

  static Clock::rep now() { return Clock::now().time_since_epoch().count(); }

  [[noreturn]] static void answer(int channel, int niceness) {
    setpriority(PRIO_PROCESS, 0, niceness);
    char byte = 0;
    while (read(channel, &byte, 1) == 1 && write(channel, &byte, 1) == 1) {
    }
    _exit(0);
  }

  void ask() {
    char byte = 0;
    while (m_isWanted) {
      const Clock::rep asked = now();
      m_askedAt = asked;
      if (write(m_channel, &byte, 1) != 1 || read(m_channel, &byte, 1) != 1) {
        return;
      }
      m_slowest = std::max(m_slowest.load(), now() - asked);
      m_askedAt = 0;
      std::this_thread::sleep_for(kPause);
    }
  }

  int m_channel = -1;
  std::atomic<bool> m_isWanted{true};
  std::atomic<Clock::rep> m_slowest{0};
  std::atomic<Clock::rep> m_askedAt{0};  ///< 0: no question is open
  std::thread m_thread;
};

}  // namespace TarvexDiags::TestSupport
