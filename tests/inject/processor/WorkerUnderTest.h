#pragma once

// A worker process of the program that a test runs, seen and disturbed from outside.

#include <sched.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace TarvexDiags::Tests {

inline std::string textOfFile(const std::filesystem::path& file) {
  std::ifstream stream(file);
  std::stringstream text;
  text << stream.rdbuf();
  return text.str();
}

/// @brief A field of /proc/PID/status; empty when the process has gone.
inline std::string statusField(const std::filesystem::path& process, const std::string& name) {
  std::istringstream lines(textOfFile(process / "status"));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(name + ":\t")) {
      return line.substr(name.size() + 2);
    }
  }
  return {};
}

/// @brief The parent of a process, as text; empty: it has gone.
inline std::string parentOf(const std::string& process) {
  return process.empty() ? std::string() : statusField("/proc/" + process, "PPid");
}

/// @brief The process that works for a package, below a program of this one and its reaper; -1:
/// there is none.
inline pid_t findWorker(const std::string& library) {
  std::error_code gone;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", gone)) {
    const std::filesystem::path process = entry.path();
    const std::string number = process.filename().string();
    if (number.find_first_not_of("0123456789") != std::string::npos ||
        textOfFile(process / "cmdline").find(library) == std::string::npos) {
      continue;
    }
    if (parentOf(parentOf(parentOf(number))) == std::to_string(getpid())) {
      return static_cast<pid_t>(std::stol(number));
    }
  }
  return -1;
}

/// @brief Where a library begins in a process; 0 while it is not mapped.
inline std::uintptr_t mappedAt(pid_t process, const std::string& library) {
  std::istringstream lines(textOfFile("/proc/" + std::to_string(process) + "/maps"));
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with(library)) {
      return std::stoull(line.substr(0, line.find('-')), nullptr, 16);
    }
  }
  return 0;
}

/// @brief The thread of a process that may run on one CPU alone; -1: there is none.
inline pid_t threadHeldOn(pid_t process, int cpu) {
  std::error_code gone;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& entry : std::filesystem::directory_iterator(tasks, gone)) {
    if (statusField(entry.path(), "Cpus_allowed_list") == std::to_string(cpu)) {
      return static_cast<pid_t>(std::stol(entry.path().filename().string()));
    }
  }
  return -1;
}

inline bool hasEnded(pid_t process, pid_t thread) {
  return !std::filesystem::exists("/proc/" + std::to_string(process) + "/task/" +
                                  std::to_string(thread));
}

/// @brief Lets a thread run on one CPU alone, as taskset does. @return false when it has gone
inline bool moveThread(pid_t thread, int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned int>(cpu), &set);
  return sched_setaffinity(thread, sizeof(set), &set) == 0;
}

/// @brief A thread that is stopped wherever it is, and goes on when this ends.
///
/// It is traced no longer than that: a traced thread that ends or gets a signal stays until its
/// tracer has looked, and so does whoever waits for its process.
class StoppedThread {
 public:
  explicit StoppedThread(pid_t thread) : m_thread(thread) {
    int status = 0;
    m_stopped = ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) == 0 &&
                ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) == 0 &&
                waitpid(thread, &status, __WALL) == thread && WIFSTOPPED(status);
    // A signal that came first is the thread's own.
    m_signal = status >> 16 == PTRACE_EVENT_STOP ? 0 : WSTOPSIG(status);
  }
  ~StoppedThread() {
    if (m_stopped) {
      ptrace(PTRACE_DETACH, m_thread, nullptr, m_signal);
    }
  }
  StoppedThread(const StoppedThread&) = delete;
  StoppedThread& operator=(const StoppedThread&) = delete;

  /// @brief The address of its next instruction; 0 when it has ended.
  std::uintptr_t place() const {
    user_regs_struct registers{};
    return m_stopped && ptrace(PTRACE_GETREGS, m_thread, nullptr, &registers) == 0 ? registers.rip
                                                                                   : 0;
  }

  /// @brief Flips a bit of each vector register.
  void flipVectorRegisters(unsigned int bit) const {
    user_fpregs_struct registers{};
    if (m_stopped && ptrace(PTRACE_GETFPREGS, m_thread, nullptr, &registers) == 0) {
      for (std::size_t word = bit / 32 % 4; word < std::size(registers.xmm_space); word += 4) {
        registers.xmm_space[word] ^= 1U << bit % 32;
      }
      ptrace(PTRACE_SETFPREGS, m_thread, nullptr, &registers);
    }
  }

 private:
  pid_t m_thread;
  bool m_stopped;
  long m_signal = 0;
};

}  // namespace TarvexDiags::Tests
