#include "diagctl/run/PollInterval.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

// One file of many, but what is written there holds for all processors.
constexpr const char* kFile = "sys/devices/system/machinecheck/machinecheck0/check_interval";

bool writeAll(int file, const std::string& text) {
  return pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

// Calls nothing that a process without its threads may not. The file is locked as long as it lives.
[[noreturn]] void keep(int life, int file, const char* text, std::size_t size) {
  setsid();
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, nullptr);
  char ignored = 0;
  while (read(life, &ignored, 1) < 0 && errno == EINTR) {
  }
  _exit(pwrite(file, text, size, 0) == static_cast<ssize_t>(size) ? 0 : 1);
}

std::string reasonOf(int error) {
  return std::generic_category().message(error);
}

}  // namespace

PollInterval::PollInterval(const Watching::SystemFiles& files, std::chrono::seconds interval) {
  const std::filesystem::path path = files.absolute(kFile);
  const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
  const std::string before = files.word(kFile) + "\n";
  int ends[2] = {-1, -1};
  if (file < 0 || before.size() < 2) {
    m_problem = tr("the kernel's interval cannot be changed: {}", reasonOf(errno));
  } else if (flock(file, LOCK_EX | LOCK_NB) != 0) {
    m_problem = tr("another run has changed the kernel's interval");
  } else if (pipe2(ends, O_CLOEXEC) != 0 || (m_keeper = fork()) < 0) {
    m_problem = tr("the kernel's interval cannot be kept: {}", reasonOf(errno));
  }
  if (m_keeper == 0) {
    close(ends[1]);
    keep(ends[0], file, before.data(), before.size());
  }
  if (m_keeper > 0 && !writeAll(file, std::to_string(interval.count()) + "\n")) {
    m_problem = tr("the kernel's interval cannot be changed: {}", reasonOf(errno));
  }
  if (ends[0] >= 0) {
    close(ends[0]);
  }
  if (file >= 0) {
    close(file);
  }
  m_life = ends[1];
}

PollInterval::~PollInterval() {
  if (m_life >= 0) {
    close(m_life);
  }
  while (m_keeper > 0 && waitpid(m_keeper, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace TarvexDiags::FrontEnd
