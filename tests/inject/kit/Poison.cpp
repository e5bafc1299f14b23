#include "tests/inject/kit/Poison.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "packagekit/PhysicalAddress.h"

namespace TarvexDiags::Injection {

namespace {

void require(bool isDone, const char* what) {
  if (!isDone) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

void awaitStop(pid_t process) {
  int status = 0;
  require(waitpid(process, &status, __WALL) == process && WIFSTOPPED(status), "waiting for it");
}

std::string fileOf(pid_t process, const char* name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

}  // namespace

Page stackPageOf(pid_t process) {
  const auto pageSize = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  std::ifstream maps(fileOf(process, "maps"));
  Page page;
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with("[stack]")) {
      page.address = std::stoull(line.substr(line.find('-') + 1), nullptr, 16) - pageSize;
    }
  }
  std::uint64_t entry = 0;
  const int map = open(fileOf(process, "pagemap").c_str(), O_RDONLY | O_CLOEXEC);
  require(map >= 0, "its page map");
  const auto position = static_cast<off_t>(page.address / pageSize * sizeof entry);
  require(pread(map, &entry, sizeof entry, position) == sizeof entry, "its page map");
  close(map);
  page.physical = PackageKit::frameOfMapEntry(entry) * pageSize;
  return page;
}

void poison(pid_t process, std::uint64_t address) {
  require(ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0, "tracing it");
  require(kill(process, SIGBUS) == 0, "sending the signal");
  awaitStop(process);
  siginfo_t information{};
  information.si_signo = SIGBUS;
  information.si_code = BUS_MCEERR_AR;
  information.si_addr = reinterpret_cast<void*>(address);
  require(ptrace(PTRACE_SETSIGINFO, process, nullptr, &information) == 0, "changing the signal");
  require(ptrace(PTRACE_DETACH, process, nullptr, SIGBUS) == 0, "letting it go");
}

std::string textOf(std::uint64_t address) {
  std::ostringstream text;
  text << "0x" << std::hex << address;
  return address == 0 ? "?" : text.str();
}

}  // namespace TarvexDiags::Injection
