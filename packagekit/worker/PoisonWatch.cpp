#include "packagekit/worker/PoisonWatch.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "packagekit/internal/PoisonRecord.h"

namespace TarvexDiags::PackageKit {

namespace {

PoisonRecord* record = nullptr;
struct sigaction previousAction {};
// Room for the registers of every vector unit.
alignas(64) char stackOfHandler[64 * 1024];

constexpr unsigned int kPresentBit = 63;
constexpr unsigned int kSwappedBit = 62;
constexpr std::uint64_t kFrameMask = (1ULL << 55U) - 1;
constexpr unsigned int kSwapTypeBits = 5;
constexpr std::uint64_t kFirstSpecialType = 20;  // below are areas of real swap

std::uint64_t frameOf(std::uint64_t entry) {
  const std::uint64_t number = entry & kFrameMask;
  if ((entry >> kPresentBit & 1U) != 0) {
    return number;
  }
  // The kernel has put a special entry in place of a page that it took out: type, then frame.
  const bool isSpecial = (entry >> kSwappedBit & 1U) != 0 &&
                         (number & ((1U << kSwapTypeBits) - 1)) >= kFirstSpecialType;
  return isSpecial ? number >> kSwapTypeBits : 0;
}

// Without a privilege the kernel tells 0 for each frame.
std::uint64_t physicalAddressOf(std::uint64_t address) {
  const auto pageSize = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const int map = open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC);
  std::uint64_t entry = 0;
  const auto position = static_cast<off_t>(address / pageSize * sizeof entry);
  const bool isRead = map >= 0 && pread(map, &entry, sizeof entry, position) == sizeof entry;
  close(map);
  const std::uint64_t frame = isRead ? frameOf(entry) : 0;
  return frame == 0 ? 0 : frame * pageSize + address % pageSize;
}

void writeDown(std::uint64_t address) {
  std::uint64_t none = 0;
  // Of threads that meet poison at the same time, one is told.
  if (!__atomic_compare_exchange_n(&record->state, &none, PoisonRecord::kBegun, false,
                                   __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
    return;
  }
  record->virtualAddress = address;
  record->physicalAddress = physicalAddressOf(address);
  __atomic_store_n(&record->state, PoisonRecord::kWhole, __ATOMIC_RELEASE);
}

// Calls nothing but what a signal handler may.
void onBusError(int signal, siginfo_t* info, void* /*context*/) {
  const int error = errno;
  if (info->si_code == BUS_MCEERR_AR || info->si_code == BUS_MCEERR_AO) {
    writeDown(reinterpret_cast<std::uintptr_t>(info->si_addr));
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
