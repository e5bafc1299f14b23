#include "tests/diagctl/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace TarvexDiags::DiagctlTest {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
};

Pipe makePipe() {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  return {ends[0], ends[1]};
}

bool isForRootAlone(const std::filesystem::path& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_uid == 0 &&
         (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

bool isBuildTrusted() {
  static const bool kIsTrusted = [] {
    std::filesystem::path path = std::filesystem::canonical(TARVEX_DIAGCTL);
    while (isForRootAlone(path) && path != path.root_path()) {
      path = path.parent_path();
    }
    return isForRootAlone(path);
  }();
  return kIsTrusted;
}

Program::Program(const std::vector<std::string>& arguments) : Program(arguments, {}) {}

Program::Program(const std::vector<std::string>& arguments, const Options& options) {
  start(arguments, options);
}

Program::~Program() {
  if (m_process > 0) {
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
  }
  for (const int descriptor : {m_out, m_err}) {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
}

void Program::start(const std::vector<std::string>& arguments, const Options& options) {
  if (options.onTerminal) {
    winsize size{.ws_row = 30, .ws_col = 100, .ws_xpixel = 0, .ws_ypixel = 0};
    m_process = forkpty(&m_out, nullptr, nullptr, &size);
    if (m_process < 0) {
      throw std::system_error(errno, std::generic_category(), "no pseudo-terminal (/dev/pts)");
    }
    if (m_process == 0) {
      become(arguments, options);
    }
    return;
  }
  const Pipe out = makePipe();
  const Pipe err = makePipe();
  if (options.closesOutput) {
    close(out.readEnd);  // before anything can be written
  }
  m_process = fork();
  if (m_process == 0) {
    dup2(out.writeEnd, STDOUT_FILENO);
    dup2(err.writeEnd, STDERR_FILENO);
    if (!options.standardInput.empty()) {
      dup2(open(options.standardInput.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    }
    if (!options.standardOutput.empty()) {
      dup2(open(options.standardOutput.c_str(), O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    }
    become(arguments, options);
  }
  close(out.writeEnd);
  close(err.writeEnd);
  m_out = options.closesOutput ? -1 : out.readEnd;
  m_err = err.readEnd;
}

namespace {

/// Whether it is a verb, and nothing is said of the watch.
bool isUnwatchedRun(const std::vector<std::string>& arguments) {
  const std::vector<std::string> others = {"help", "-h", "show", "--"};
  return std::none_of(arguments.begin(), arguments.end(), [&](const std::string& argument) {
    return argument.starts_with("--watch") ||
           std::find(others.begin(), others.end(), argument) != others.end();
  });
}

}  // namespace

void Program::become(const std::vector<std::string>& arguments, const Options& options) {
  for (const char* variable :
       {"NO_COLOR", "LC_ALL", "LC_MESSAGES", "LANG", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "HOME"}) {
    unsetenv(variable);
  }
  setenv("TERM", "xterm", 1);
  for (const auto& [name, value] : options.environment) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {  // whoever runs the tests may ignore some
    ::signal(number, number == options.ignoredSignal ? SIG_IGN : SIG_DFL);
  }
  if (options.user != 0 && (setgid(options.user) != 0 || setuid(options.user) != 0)) {
    _exit(126);
  }
  const rlimit files{options.openFiles, std::max(options.openFiles, options.mostOpenFiles)};
  if (options.openFiles != 0 && setrlimit(RLIMIT_NOFILE, &files) != 0) {
    _exit(126);
  }
  for (const int capability : options.withoutCapabilities) {
    if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
      _exit(126);
    }
  }
  for (const auto& [resource, most] : options.limits) {
    const rlimit limit{most, most};
    if (setrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0) {
      _exit(126);
    }
  }
  std::vector<char*> texts{const_cast<char*>(TARVEX_DIAGCTL)};
  if (geteuid() == 0 && !isBuildTrusted()) {
    texts.push_back(const_cast<char*>("--allow-insecure"));
  }
  for (const std::string& argument : arguments) {
    texts.push_back(const_cast<char*>(argument.c_str()));
    // What becomes of the machine meanwhile is no matter of most tests.
    if ((argument == "run" || argument == "health") && isUnwatchedRun(arguments)) {
      texts.push_back(const_cast<char*>("--watch=off"));
    }
  }
  texts.push_back(nullptr);
  for (const int descriptor : options.closed) {
    close(descriptor);
  }
  execv(TARVEX_DIAGCTL, texts.data());
  _exit(127);
}

bool Program::readSome(int milliseconds) {
  pollfd inputs[2] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}};
  if (poll(inputs, 2, milliseconds) <= 0) {
    return true;
  }
  const std::pair<int*, std::string*> streams[2] = {{&m_out, &m_outcome.out},
                                                    {&m_err, &m_outcome.err}};
  for (int i = 0; i < 2; ++i) {
    if (*streams[i].first < 0 || inputs[i].revents == 0) {
      continue;
    }
    char buffer[4096];
    const ssize_t count = read(*streams[i].first, buffer, sizeof buffer);
    if (count > 0) {
      streams[i].second->append(buffer, static_cast<std::size_t>(count));
    } else {
      close(std::exchange(*streams[i].first, -1));
    }
  }
  return m_out >= 0 || m_err >= 0;
}

bool Program::waitFor(const std::string& text, std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  const auto isThere = [&] {
    return m_outcome.out.find(text) != std::string::npos ||
           m_outcome.err.find(text) != std::string::npos;
  };
  bool isOpen = true;
  while (!isThere() && isOpen && Clock::now() < end) {
    isOpen = readSome(50);
  }
  return isThere();
}

void Program::type(const std::string& keys) {
  if (write(m_out, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    throw std::runtime_error("the terminal takes no keys");
  }
}

void Program::signal(int number) {
  kill(m_process, number);
}

// -1: it has gone.
static pid_t parentOf(pid_t process) {
  std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
  std::string line;
  std::getline(stat, line);
  const std::size_t end = line.rfind(") ");
  return end == std::string::npos ? -1 : std::atoi(line.c_str() + end + 4);
}

// What is not for a test says so in its last argument. A process has its new name a moment before
// its arguments can be read: until then it may be either.
static bool isForTest(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/cmdline", std::ios::binary);
  std::string arguments;
  std::getline(file, arguments, '\xff');  // all of it; a buffer's iterator throws when it has gone
  const std::string purpose("\0discovery\0", 11);
  return !arguments.empty() && !arguments.ends_with(purpose);
}

// The program's child is the reaper, and the worker its child.
std::vector<pid_t> Program::workers() const {
  std::vector<pid_t> workers;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::ifstream stat(entry.path() / "stat");
    std::string line;
    std::getline(stat, line);
    // "PID (NAME) STATE PARENT ...", the name cut to 15 letters.
    const std::string name = " (tarvex-package-) ";
    const std::size_t state = line.find(name);
    if (state != std::string::npos && line[state + name.size()] != 'Z' &&
        parentOf(std::atoi(line.c_str() + state + name.size() + 1)) == m_process &&
        isForTest(std::atoi(line.c_str()))) {
      workers.push_back(std::atoi(line.c_str()));
    }
  }
  return workers;
}

pid_t Program::awaitWorker(std::chrono::milliseconds limit) const {
  for (const auto end = Clock::now() + limit; Clock::now() < end; usleep(1000)) {
    if (const std::vector<pid_t> found = workers(); !found.empty()) {
      return found.front();
    }
  }
  throw std::runtime_error("no test has a process");
}

std::size_t Program::openFiles() const {
  const std::filesystem::directory_iterator files("/proc/" + std::to_string(m_process) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

std::vector<int> Program::nicenesses() const {
  std::vector<int> all;
  const std::filesystem::directory_iterator threads("/proc/" + std::to_string(m_process) + "/task");
  for (const auto& thread : threads) {
    errno = 0;  // -1 is a niceness, too
    const int niceness =
        getpriority(PRIO_PROCESS, static_cast<id_t>(std::stoul(thread.path().filename())));
    if (errno == 0) {
      all.push_back(niceness);
    }
  }
  std::sort(all.begin(), all.end(), std::greater<>());
  return all;
}

Outcome Program::finish(std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  while (readSome(50) && Clock::now() < end) {
  }
  int status = 0;
  while (waitpid(m_process, &status, WNOHANG) == 0) {
    if (Clock::now() > end) {
      throw std::runtime_error("the program did not end in time: " + m_outcome.out + m_outcome.err);
    }
    usleep(1000);
  }
  m_process = -1;
  m_outcome.exitCode = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return m_outcome;
}

Outcome diagctl(const std::vector<std::string>& arguments) {
  return Program(arguments).finish();
}

Outcome diagctl(const std::vector<std::string>& arguments, const Program::Options& options) {
  return Program(arguments, options).finish();
}

}  // namespace TarvexDiags::DiagctlTest
