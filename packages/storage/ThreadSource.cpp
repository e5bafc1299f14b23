#include <unistd.h>

#include <cerrno>
#include <deque>
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
    if (m_entries.empty()) {
      return std::nullopt;
    }
    Entry entry = std::move(m_entries.front());
    m_entries.pop_front();
    return entry;
  }

 private:
  System::Mutex m_lock;
  System::ConditionVariable m_changed;
  std::deque<Entry> m_entries TARVEXDIAGS_GUARDED_BY(m_lock);
  bool m_closed TARVEXDIAGS_GUARDED_BY(m_lock) = false;
};

class ThreadSource final : public FileSource {
 public:
  ThreadSource(PackageKit::UniqueDescriptor descriptor, const SourceOptions& options)
      : FileSource(std::move(descriptor), options) {
    try {
      for (unsigned int count = 0; count < slots(); ++count) {
        m_threads.emplace_back([this] { serve(); });
      }
    } catch (...) {
      endThreads();
      throw;
    }
  }

  ~ThreadSource() override { endThreads(); }

  void start(const Transfer& transfer) override {
    dropCached(transfer);
    stampStart(transfer.slot);
    m_waiting.push(transfer);
  }

  Completion wait() override { return m_done.pop().value(); }

 private:
  void endThreads() {
    m_waiting.close();
    for (std::thread& thread : m_threads) {
      thread.join();
    }
  }

  void serve() {
    while (const std::optional<Transfer> transfer = m_waiting.pop()) {
      m_done.push(completionOf(transfer->slot, move(*transfer)));
    }
  }

  std::int64_t move(const Transfer& transfer) {
    void* data = buffer(transfer.slot).data();
    const auto offset = static_cast<off_t>(transfer.offset);
    const ssize_t moved = transfer.direction == Direction::Read
                              ? pread(descriptor(), data, transfer.length, offset)
                              : pwrite(descriptor(), data, transfer.length, offset);
    return moved < 0 ? -errno : moved;
  }

  HandOver<Transfer> m_waiting;
  HandOver<Completion> m_done;
  std::vector<std::thread> m_threads;
};

}  // namespace

std::unique_ptr<BlockSource> makeThreadSource(PackageKit::UniqueDescriptor& descriptor,
                                              const SourceOptions& options) {
  return std::make_unique<ThreadSource>(std::move(descriptor), options);
}

}  // namespace TarvexDiags::Storage
