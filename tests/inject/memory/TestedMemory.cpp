#include "tests/inject/memory/TestedMemory.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "packagekit/UniqueDescriptor.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::Memory {

namespace {

using TestSupport::eventually;

constexpr std::uint64_t kPageBytes = 4096;

std::filesystem::path folderOf(pid_t process) {
  return "/proc/" + std::to_string(process);
}

std::vector<pid_t> threadsOf(pid_t process) {
  std::vector<pid_t> threads;
  std::error_code gone;
  for (const auto& entry : std::filesystem::directory_iterator(folderOf(process) / "task", gone)) {
    threads.push_back(static_cast<pid_t>(std::stol(entry.path().filename().string())));
  }
  std::sort(threads.begin(), threads.end());
  return threads;
}

/// 'T' while it is stopped, 0 when it has gone.
char stateOf(pid_t process, pid_t thread) {
  std::ifstream file(folderOf(process) / "task" / std::to_string(thread) / "stat");
  std::string text;
  std::getline(file, text);
  const std::size_t name = text.rfind(") ");
  return name == std::string::npos ? '\0' : text.at(name + 2);
}

/// Keeps all threads of a process where they are.
class Standstill {
 public:
  explicit Standstill(pid_t process) : m_process(process) {
    kill(process, SIGSTOP);
    isReached = eventually([process] {
      const std::vector<pid_t> threads = threadsOf(process);
      return std::all_of(threads.begin(), threads.end(), [process](pid_t thread) {
        const char state = stateOf(process, thread);
        return state == 'T' || state == 'Z' || state == '\0';
      });
    });
  }
  ~Standstill() { kill(m_process, SIGCONT); }
  Standstill(const Standstill&) = delete;
  Standstill& operator=(const Standstill&) = delete;

  bool isReached = false;

 private:
  pid_t m_process;
};

void require(bool done, const char* what) {
  if (!done) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

}  // namespace

TestedMemory::TestedMemory(pid_t worker) : m_worker(worker) {
  if (!eventually([this] { return find(); })) {
    throw std::runtime_error("the worker maps no memory to test");
  }
}

// It is the one mapping for which huge pages were asked.
bool TestedMemory::find() {
  std::ifstream maps(folderOf(m_worker) / "smaps");
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  for (std::string line; std::getline(maps, line);) {
    unsigned long first = 0;
    unsigned long last = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx ", &first, &last) == 2) {
      begin = first;
      end = last;
    } else if (line.starts_with("VmFlags:") && line.find(" hg") != std::string::npos) {
      m_begin = begin;
      m_end = end;
      return true;
    }
  }
  return false;
}

bool TestedMemory::flip(std::uintptr_t address, std::uint64_t bits) const {
  const Standstill standstill(m_worker);
  std::uint64_t word = 0;
  iovec here{&word, sizeof word};
  iovec there{reinterpret_cast<void*>(address), sizeof word};
  if (!standstill.isReached || process_vm_readv(m_worker, &here, 1, &there, 1, 0) < 0) {
    return false;
  }
  word ^= bits;
  return process_vm_writev(m_worker, &here, 1, &there, 1, 0) == sizeof word;
}

std::uint64_t TestedMemory::physicalAddressOf(std::uintptr_t address) const {
  const PackageKit::UniqueDescriptor map(
      open((folderOf(m_worker) / "pagemap").c_str(), O_RDONLY | O_CLOEXEC));
  require(static_cast<bool>(map), "the worker's page map");
  std::uint64_t entry = 0;
  const auto place = static_cast<off_t>(address / kPageBytes * sizeof entry);
  const bool present = eventually([&] {
    return pread(map.get(), &entry, sizeof entry, place) == sizeof entry && entry >> 63 != 0;
  });
  require(present, "a page that is there");
  return (entry & ((std::uint64_t{1} << 55) - 1)) * kPageBytes + address % kPageBytes;
}

// The kernel alone sends such signals; whoever traces a thread may change one on its way.
void TestedMemory::poison(std::size_t thread, std::uintptr_t address, int code) const {
  const pid_t id = threadsOf(m_worker).at(thread);
  require(ptrace(PTRACE_SEIZE, id, nullptr, nullptr) == 0, "tracing a thread");
  require(syscall(SYS_tgkill, m_worker, id, SIGBUS) == 0, "sending a signal");
  int status = 0;
  require(waitpid(id, &status, __WALL) == id && WIFSTOPPED(status), "stopping a thread");
  siginfo_t information{};
  information.si_signo = SIGBUS;
  information.si_code = code;
  information.si_addr = reinterpret_cast<void*>(address);
  information.si_addr_lsb = 12;
  require(ptrace(PTRACE_SETSIGINFO, id, nullptr, &information) == 0, "changing the signal");
  require(ptrace(PTRACE_DETACH, id, nullptr, SIGBUS) == 0, "letting a thread go");
}

}  // namespace TarvexDiags::Memory
