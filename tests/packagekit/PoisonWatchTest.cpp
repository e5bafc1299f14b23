// Poisoned memory that two threads of a process meet at the same time: the record is whole before
// either of them ends the process.

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

#include "packagekit/internal/PoisonRecord.h"
#include "packagekit/worker/PoisonWatch.h"
#include "tests/support/Eventually.h"

namespace TarvexDiags::PackageKit {
namespace {

using TestSupport::eventually;

constexpr std::uintptr_t kFirstAddress = 0x10000;
constexpr std::uintptr_t kSecondAddress = 0x20000;

/// What parent and child share besides the record.
struct Signals {
  std::atomic<pid_t> firstThread{0};
  std::atomic<bool> firstMayMeet{false};
  std::atomic<bool> secondMayMeet{false};
};

template <class Shared>
Shared* mapShared(int file) {
  const int flags = MAP_SHARED | (file < 0 ? MAP_ANONYMOUS : 0);
  void* const page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, flags, file, 0);
  return page == MAP_FAILED ? nullptr : static_cast<Shared*>(page);
}

/// Busy, so that a thread which sleeps is known to be elsewhere.
void awaitBusily(const std::atomic<bool>& flag) {
  while (!flag) {
    sched_yield();
  }
}

void meetPoison(std::uintptr_t address) {
  siginfo_t information{};
  information.si_signo = SIGBUS;
  information.si_code = BUS_MCEERR_AR;
  information.si_addr = reinterpret_cast<void*>(address);
  syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGBUS, &information);
}

/// The process that meets the poison: on a thread of its own first, then on the main one.
[[noreturn]] void beChild(int record, Signals& signals) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // it is busy as long as it lives
  signal(SIGBUS, SIG_DFL);           // not what a sanitizer does
  dup2(record, kPoisonDescriptor);
  watchForPoison();
  std::thread first([&signals] {
    signals.firstThread = gettid();
    awaitBusily(signals.firstMayMeet);
    meetPoison(kFirstAddress);
  });
  awaitBusily(signals.secondMayMeet);
  meetPoison(kSecondAddress);
  first.join();
  _exit(EXIT_SUCCESS);
}

char stateOf(pid_t thread) {
  std::ifstream file("/proc/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t name = text.rfind(") ");
  return name == std::string::npos ? 'X' : text.at(name + 2);
}

/// Traces the thread and lets it go from call to call of the kernel, until it is in the midst of
/// the record.
bool stopInTheMidst(pid_t thread, const std::uint64_t& state) {
  if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0 ||
      ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0) {
    return false;
  }
  int status = 0;
  while (waitpid(thread, &status, __WALL) == thread && WIFSTOPPED(status)) {
    if (__atomic_load_n(&state, __ATOMIC_ACQUIRE) == PoisonRecord::kBegun) {
      return true;
    }
    const long passedOn = WSTOPSIG(status) == SIGBUS ? SIGBUS : 0;
    ptrace(PTRACE_SYSCALL, thread, nullptr, passedOn);
  }
  return false;
}

TEST(PoisonWatch, second_thread_waits_until_the_first_has_written_all_down) {
  const int file = memfd_create("poison", MFD_CLOEXEC);
  ASSERT_EQ(ftruncate(file, sizeof(PoisonRecord)), 0);
  auto* const record = mapShared<PoisonRecord>(file);
  auto* const shared = mapShared<Signals>(-1);
  ASSERT_TRUE(record != nullptr && shared != nullptr);
  auto* const signals = new (shared) Signals();
  const pid_t child = fork();
  if (child == 0) {
    beChild(file, *signals);
  }
  EXPECT_TRUE(eventually([&] { return signals->firstThread != 0; }));
  const pid_t first = signals->firstThread;
  signals->firstMayMeet = true;
  const bool isStopped = stopInTheMidst(first, record->state);
  EXPECT_TRUE(isStopped);
  signals->secondMayMeet = true;
  // It sleeps while it waits for the first, and has gone if it does not.
  EXPECT_TRUE(eventually([&] { return stateOf(child) != 'R'; }));
  EXPECT_EQ(stateOf(first), 't') << "still where it was stopped";
  int status = 0;
  if (ptrace(PTRACE_DETACH, first, nullptr, nullptr) != 0) {
    waitpid(first, &status, __WALL);  // killed with the process, whose end nobody hears before
  }
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGBUS) << status;
  EXPECT_TRUE(record->isWhole());
  EXPECT_EQ(record->virtualAddress, kFirstAddress);
  close(file);
}

}  // namespace
}  // namespace TarvexDiags::PackageKit
