#include "packagekit/worker/PoisonWatch.h"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "packagekit/PhysicalAddress.h"
#include "packagekit/internal/PoisonRecord.h"

namespace TarvexDiags::PackageKit {

namespace {

PoisonRecord* record = nullptr;
struct sigaction previousAction {};
// Room for the registers of every vector unit.
alignas(64) char stackOfHandler[64 * 1024];

constexpr int kLongestWaitMilliseconds = 1000;

bool isWrittenDown() {
  return __atomic_load_n(&record->state, __ATOMIC_ACQUIRE) == PoisonRecord::kWhole;
}

void writeDown(const void* address) {
  std::uint64_t none = 0;
  // Of threads that meet poison at the same time, one is told. The others wait for it: they are
  // about to end the process.
  if (!__atomic_compare_exchange_n(&record->state, &none, PoisonRecord::kBegun, false,
                                   __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
    for (int wait = 0; wait < kLongestWaitMilliseconds && !isWrittenDown(); ++wait) {
      poll(nullptr, 0, 1);
    }
    return;
  }
  record->virtualAddress = reinterpret_cast<std::uintptr_t>(address);
  record->physicalAddress = physicalAddressOf(address).value_or(0);
  __atomic_store_n(&record->state, PoisonRecord::kWhole, __ATOMIC_RELEASE);
}

// Calls nothing but what a signal handler may.
void onBusError(int signal, siginfo_t* info, void* /*context*/) {
  const int error = errno;
  if (info->si_code == BUS_MCEERR_AR || info->si_code == BUS_MCEERR_AO) {
    writeDown(info->si_addr);
  }
  // The same signal again, for whoever would have had it: mostly the end of the process.
  sigaction(SIGBUS, &previousAction, nullptr);
  syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info);
  errno = error;
}

// Where a sanitizer has one already, it stays.
void provideStack() {
  stack_t present{};
  if (sigaltstack(nullptr, &present) == 0 && (present.ss_flags & SS_DISABLE) != 0) {
    stack_t stack{};
    stack.ss_sp = stackOfHandler;
    stack.ss_size = sizeof stackOfHandler;
    sigaltstack(&stack, nullptr);
  }
}

}  // namespace

void watchForPoison() {
  void* const page =
      mmap(nullptr, sizeof(PoisonRecord), PROT_READ | PROT_WRITE, MAP_SHARED, kPoisonDescriptor, 0);
  close(kPoisonDescriptor);
  if (page == MAP_FAILED) {
    return;
  }
  record = static_cast<PoisonRecord*>(page);
  provideStack();
  struct sigaction action {};
  action.sa_sigaction = &onBusError;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigaction(SIGBUS, &action, &previousAction);
}

}  // namespace TarvexDiags::PackageKit
