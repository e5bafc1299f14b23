#include "packages/memory/PoisonedPages.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "packages/memory/PhysicalAddress.h"

namespace TarvexDiags::Memory {

namespace {

// Read by the signal handler; there is one handler in a process, whatever the number of mappings.
std::atomic<PoisonedPages*> innermost{nullptr};
struct sigaction formerAction = {};

}  // namespace

PoisonedPages::PoisonedPages(std::byte* data, std::size_t bytes)
    : m_data(data),
      m_begin(reinterpret_cast<std::uintptr_t>(data)),
      m_end(m_begin + bytes),
      m_outer(innermost.load()) {
  innermost = this;
  if (m_outer == nullptr) {
    struct sigaction action = {};
    action.sa_sigaction = &PoisonedPages::onSignal;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    sigaction(SIGBUS, &action, &formerAction);
  }
}

PoisonedPages::~PoisonedPages() {
  if (m_outer == nullptr) {
    sigaction(SIGBUS, &formerAction, nullptr);
  }
  innermost = m_outer;
}

std::vector<PoisonedPage> PoisonedPages::pages() const {
  std::vector<PoisonedPage> pages;
  const std::size_t claimed = std::min(m_claimed.load(), kRoom);
  for (std::size_t index = 0; index < claimed; ++index) {
    const Entry& entry = m_entries[index];
    // Two threads may have met the same one.
    const bool isNew = entry.isWritten.load(std::memory_order_acquire) &&
                       std::none_of(pages.begin(), pages.end(), [&](const PoisonedPage& page) {
                         return page.begin == entry.page.begin;
                       });
    if (isNew) {
      pages.push_back(entry.page);
    }
  }
  return pages;
}

std::vector<PoisonedPage> PoisonedPages::takeNew() {
  std::vector<PoisonedPage> pages;
  if (empty()) {
    return pages;
  }
  for (const PoisonedPage& page : this->pages()) {
    if (std::find(m_handedOver.begin(), m_handedOver.end(), page.begin) == m_handedOver.end()) {
      m_handedOver.push_back(page.begin);
      pages.push_back(page);
    }
  }
  return pages;
}

// Everything from here on runs in the signal handler: system calls and atomic variables only.

namespace {

/// Of the poison codes one is for a thread that cannot go on without the page, the other for a page
/// that nobody has needed yet. Kernels built without them tell of an address error, for which
/// memory without a file has no other reason.
bool tellsOfPage(int code) {
  return code == BUS_MCEERR_AR || code == BUS_MCEERR_AO || code == BUS_ADRERR;
}

}  // namespace

void PoisonedPages::onSignal(int signal, siginfo_t* information, void* context) {
  const int error = errno;
  bool done = false;
  if (tellsOfPage(information->si_code)) {
    const auto address = reinterpret_cast<std::uintptr_t>(information->si_addr);
    const auto bytes = std::size_t{1} << std::clamp<int>(information->si_addr_lsb, 0, 30);
    for (PoisonedPages* at = innermost; at != nullptr && !done; at = at->m_outer) {
      done = at->replace(address, bytes);
    }
  }
  errno = error;
  if (!done) {
    passOn(signal, information, context);
  }
}

bool PoisonedPages::replace(std::uintptr_t address, std::size_t bytes) {
  if (address < m_begin || address >= m_end) {
    return false;
  }
  const std::size_t size =
      std::max<std::size_t>(bytes, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
  const std::uintptr_t begin = std::max(address & ~(size - 1), m_begin);
  const std::uintptr_t end = std::min((address & ~(size - 1)) + size, m_end);
  const auto physical = physicalAddressOf(m_data + (begin - m_begin));
  const std::size_t index = m_claimed.fetch_add(1);
  if (index >= kRoom) {
    return false;
  }
  // Known before the fresh page is there: who finds other content in it must be able to tell why.
  m_entries[index].page = {begin, end - begin, physical};
  m_entries[index].isWritten.store(true, std::memory_order_release);
  const long mapped = syscall(SYS_mmap, begin, end - begin, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0L);
  return mapped != -1;
}

void PoisonedPages::passOn(int signal, siginfo_t* information, void* context) {
  if ((formerAction.sa_flags & SA_SIGINFO) != 0) {
    formerAction.sa_sigaction(signal, information, context);
  } else if (formerAction.sa_handler != SIG_DFL && formerAction.sa_handler != SIG_IGN) {
    formerAction.sa_handler(signal);
  } else {
    sigaction(signal, &formerAction, nullptr);
    // Delivered when the handler returns, as if there had been none.
    raise(signal);
  }
}

}  // namespace TarvexDiags::Memory
