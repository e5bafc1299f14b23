#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <deque>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packages/storage/FileSource.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief A queue between the caller and the threads; empty and closed means the end.
template <typename Entry>
class HandOver {
 public:
  void push(Entry entry) {
    {
      const System::LockHold hold(m_lock);
      m_entries.push_back(std::move(entry));
    }
    m_changed.notifyOne();
  }

  void close() {
    {
      const System::LockHold hold(m_lock);
      m_closed = true;
    }
    m_changed.notifyAll();
  }

  std::optional<Entry> pop() {
    const System::LockHold hold(m_lock);
    while (!m_closed && m_entries.empty()) {
      m_changed.wait(m_lock);
    }
    return take();
  }

  std::optional<Entry> pop(std::chrono::milliseconds atMost) {
    const auto end = std::chrono::steady_clock::now() + atMost;
    const System::LockHold hold(m_lock);
    while (!m_closed && m_entries.empty() && m_changed.waitUntil(m_lock, end)) {
    }
    return take();
  }

 private:
  std::optional<Entry> take() TARVEXDIAGS_REQUIRES(m_lock) {
    if (m_entries.empty()) {
      return std::nullopt;
    }
    Entry entry = std::move(m_entries.front());
    m_entries.pop_front();
    return entry;
  }

  System::Mutex m_lock;
  System::ConditionVariable m_changed;
  std::deque<Entry> m_entries TARVEXDIAGS_GUARDED_BY(m_lock);
  bool m_closed TARVEXDIAGS_GUARDED_BY(m_lock) = false;
};

/// @brief What a thread still needs when its source was given up and is gone.
struct Shared {
  struct Ended {
    unsigned int slot = 0;
    std::int64_t result = 0;
    std::chrono::nanoseconds latency{0};
  };

  int descriptor = -1;
  std::shared_ptr<TransferClock> clock;
  HandOver<std::pair<Transfer, void*>> waiting;
  HandOver<Ended> done;
};

std::int64_t move(int descriptor, const Transfer& transfer, void* data) {
  const auto offset = static_cast<off_t>(transfer.offset);
  ssize_t moved = 0;
  if (transfer.direction == Direction::Flush) {
    moved = fdatasync(descriptor);
  } else if (transfer.direction == Direction::Read) {
    moved = pread(descriptor, data, transfer.length, offset);
  } else {
    moved = pwrite(descriptor, data, transfer.length, offset);
  }
  return moved < 0 ? -errno : moved;
}

void serve(Shared& shared) {
  while (const auto work = shared.waiting.pop()) {
    const auto& [transfer, data] = *work;
    const TransferClock::Moment begin = shared.clock->begin();
    const std::int64_t result = move(shared.descriptor, transfer, data);
    const auto latency = TransferClock::between(begin, shared.clock->end());
    shared.done.push({transfer.slot, result, latency});
  }
}

class ThreadSource final : public FileSource {
 public:
  ThreadSource(OpenedFile file, const SourceOptions& options)
      : FileSource(std::move(file), options), m_shared(std::make_shared<Shared>()) {
    m_shared->descriptor = descriptor();
    m_shared->clock = clock();
    try {
      for (unsigned int count = 0; count < slots(); ++count) {
        m_threads.emplace_back([shared = m_shared] { serve(*shared); });
      }
    } catch (...) {
      endThreads();
      throw;
    }
  }

  ~ThreadSource() override { endThreads(); }

  void start(const Transfer& transfer) override {
    dropCached(transfer);
    m_shared->waiting.push({transfer, buffer(transfer.slot).data()});
  }

  std::optional<Completion> wait(std::chrono::milliseconds atMost) override {
    const auto ended = m_shared->done.pop(atMost);
    return ended ? std::optional(completionOf(ended->slot, ended->result, ended->latency))
                 : std::nullopt;
  }

 private:
  void endThreads() {
    m_shared->waiting.close();
    for (std::thread& thread : m_threads) {
      // One that the kernel holds may never end; what it uses is kept.
      isAbandoned() ? thread.detach() : thread.join();
    }
  }

  std::shared_ptr<Shared> m_shared;
  std::vector<std::thread> m_threads;
};

}  // namespace

std::unique_ptr<BlockSource> makeThreadSource(OpenedFile file, const SourceOptions& options) {
  return std::make_unique<ThreadSource>(std::move(file), options);
}

}  // namespace TarvexDiags::Storage
