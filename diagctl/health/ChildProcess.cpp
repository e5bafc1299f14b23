#include "diagctl/health/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::chrono::milliseconds kLongestLook{100};
constexpr std::size_t kMostOfProgram = 1UL << 16U;
constexpr int kNotStarted = 127;

[[noreturn]] void failToStart() {
  throw std::system_error(errno, std::generic_category(), "fork");
}

struct PipeEnds {
  OpenedFile readEnd;
  OpenedFile writeEnd;
};

PipeEnds makePipe() {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    failToStart();
  }
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  return {OpenedFile(ends[0]), OpenedFile(ends[1])};
}

}  // namespace

ChildProcess::ChildProcess(const std::function<int()>& work, std::size_t mostOutput)
    : m_mostOutput(mostOutput) {
  PipeEnds out = makePipe();
  PipeEnds err = makePipe();
  const pid_t parent = getpid();
  m_process = fork();
  if (m_process < 0) {
    failToStart();
  }
  if (m_process == 0) {
    become(work, out.writeEnd.get(), err.writeEnd.get(), parent);
  }
  m_handle = OpenedFile(static_cast<int>(syscall(SYS_pidfd_open, m_process, 0)));
  m_out.end = std::move(out.readEnd);
  m_err.end = std::move(err.readEnd);
}

void ChildProcess::become(const std::function<int()>& work, int out, int err, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  setpgid(0, 0);  // what a terminal tells the group comes by way of the parent, once
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (getppid() != parent || nothing < 0 || dup2(nothing, STDIN_FILENO) < 0 ||
      dup2(out, STDOUT_FILENO) < 0 || dup2(err, STDERR_FILENO) < 0) {
    _exit(kNotStarted);
  }
  try {
    std::exit(work());
  } catch (...) {  // nothing of this process may go on as if it were the other one
    _exit(kNotStarted);
  }
}

ChildProcess::~ChildProcess() {
  if (m_code < 0) {
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, WNOHANG);  // one that the kernel holds is nobody's to wait for
  }
}

void ChildProcess::signal(int number) {
  if (m_code < 0) {
    kill(m_process, number);
  }
}

void ChildProcess::readFrom(Stream& stream) const {
  std::array<char, 65536> block{};
  while (stream.end) {
    const ssize_t count = read(stream.end.get(), block.data(), block.size());
    if (count < 0) {
      return;  // nothing more at present
    }
    if (count == 0) {
      stream.end = OpenedFile();
      return;
    }
    const std::size_t room = m_mostOutput - std::min(m_mostOutput, stream.text.size());
    stream.text.append(block.data(), std::min(room, static_cast<std::size_t>(count)));
  }
}

// Somebody else may still hold its streams; what it wrote itself is there.
bool ChildProcess::takeEnd() {
  int status = 0;
  if (m_code < 0 && waitpid(m_process, &status, WNOHANG) == m_process) {
    m_endingSignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    m_code = WIFSIGNALED(status) ? 128 + m_endingSignal : WEXITSTATUS(status);
    readFrom(m_out);
    readFrom(m_err);
  }
  return m_code >= 0;
}

bool ChildProcess::await(Clock::time_point until, const std::function<bool()>& isEnough) {
  while (!takeEnd() && !isEnough()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    if (left.count() <= 0) {
      return false;
    }
    // Below 0 for a stream that was closed, which is not looked at.
    std::array<pollfd, 3> looked{pollfd{m_handle.get(), POLLIN, 0},
                                 pollfd{m_out.end.get(), POLLIN, 0},
                                 pollfd{m_err.end.get(), POLLIN, 0}};
    poll(looked.data(), looked.size(), static_cast<int>(std::min(left, kLongestLook).count()));
    readFrom(m_out);
    readFrom(m_err);
  }
  return m_code >= 0;
}

ProgramOutcome runProgram(const std::vector<std::string>& words,
                          const std::vector<std::string>& environment,
                          ChildProcess::Clock::time_point until) {
  const auto pointersTo = [](const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) {
      pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
  };
  const std::vector<char*> arguments = pointersTo(words);
  const std::vector<char*> variables = pointersTo(environment);
  ChildProcess child(
      [&]() -> int {
        execve(arguments.front(), arguments.data(), variables.data());
        _exit(kNotStarted);
      },
      kMostOfProgram);
  child.await(until);
  return {child.code(), child.out(), child.err()};
}

}  // namespace TarvexDiags::FrontEnd
