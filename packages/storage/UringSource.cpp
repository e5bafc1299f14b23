#include <liburing.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "packages/storage/FileSource.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief Owns a ring. Newer kernels spare interrupts when told that one thread uses it.
class Ring {
 public:
  explicit Ring(unsigned int entries) {
    const unsigned int wishes[] = {IORING_SETUP_SINGLE_ISSUER | IORING_SETUP_DEFER_TASKRUN,
                                   IORING_SETUP_COOP_TASKRUN, 0};
    int result = 0;
    for (const unsigned int flags : wishes) {
      result = io_uring_queue_init(entries, &m_ring, flags);
      if (result == 0) {
        break;
      }
    }
    if (result == 0 && (m_ring.features & IORING_FEAT_EXT_ARG) == 0) {
      io_uring_queue_exit(&m_ring);
      result = -ENOSYS;  // a wait with a time limit would take a place of the ring
    }
    if (result == 0) {
      return;
    }
    throw std::system_error(-result, std::generic_category(), "io_uring");
  }
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;
  ~Ring() { io_uring_queue_exit(&m_ring); }

  io_uring* get() { return &m_ring; }

 private:
  io_uring m_ring{};
};

class UringSource final : public FileSource {
 public:
  UringSource(std::unique_ptr<Ring> ring, OpenedFile file, const SourceOptions& options)
      : FileSource(std::move(file), options),
        m_owner(std::move(ring)),
        m_ring(m_owner->get()),
        m_started(options.slots) {
    const int number = descriptor();
    m_fixedFile = io_uring_register_files(m_ring, &number, 1) == 0;
    std::vector<iovec> buffers;
    for (unsigned int slot = 0; slot < slots(); ++slot) {
      buffers.push_back({buffer(slot).data(), buffer(slot).size()});
    }
    // Fails where little memory may be locked; plain buffers then do.
    m_fixedBuffers = io_uring_register_buffers(m_ring, buffers.data(), slots()) == 0;
  }

  ~UringSource() override {
    if (isAbandoned()) {
      keepForEver(std::move(m_owner));
    }
  }

  void start(const Transfer& transfer) override {
    dropCached(transfer);
    io_uring_sqe* entry = io_uring_get_sqe(m_ring);
    prepare(entry, transfer);
    if (m_fixedFile) {
      entry->flags |= IOSQE_FIXED_FILE;
    }
    entry->user_data = transfer.slot;
    ++m_prepared;
    m_started[transfer.slot] = clock()->begin();
  }

  std::optional<Completion> wait(std::chrono::milliseconds atMost) override {
    // A few transfers go down with one system call, but the disk shall not run dry meanwhile.
    io_uring_cqe* entry = nullptr;
    if (m_prepared > slots() / 8) {
      check(io_uring_submit(m_ring));
    }
    if (io_uring_peek_cqe(m_ring, &entry) != 0) {
      submitAndWait(atMost);
      if (io_uring_peek_cqe(m_ring, &entry) != 0) {
        return std::nullopt;
      }
    }
    const auto slot = static_cast<unsigned int>(entry->user_data);
    const Completion completion =
        completionOf(slot, entry->res, TransferClock::between(m_started[slot], clock()->end()));
    io_uring_cqe_seen(m_ring, entry);
    return completion;
  }

 private:
  void prepare(io_uring_sqe* entry, const Transfer& transfer) {
    void* data = buffer(transfer.slot).data();
    const int file = m_fixedFile ? 0 : descriptor();
    if (transfer.direction == Direction::Flush) {
      io_uring_prep_fsync(entry, file, IORING_FSYNC_DATASYNC);
    } else if (transfer.direction == Direction::Read) {
      m_fixedBuffers ? io_uring_prep_read_fixed(entry, file, data, transfer.length, transfer.offset,
                                                static_cast<int>(transfer.slot))
                     : io_uring_prep_read(entry, file, data, transfer.length, transfer.offset);
    } else {
      m_fixedBuffers ? io_uring_prep_write_fixed(entry, file, data, transfer.length,
                                                 transfer.offset, static_cast<int>(transfer.slot))
                     : io_uring_prep_write(entry, file, data, transfer.length, transfer.offset);
    }
  }

  void submitAndWait(std::chrono::milliseconds atMost) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(atMost);
    __kernel_timespec limit{seconds.count(), std::chrono::nanoseconds(atMost - seconds).count()};
    io_uring_cqe* entry = nullptr;
    check(io_uring_submit_and_wait_timeout(m_ring, &entry, 1, &limit, nullptr));
  }

  void check(int result) {
    if (result >= 0) {
      m_prepared = 0;
    } else if (result != -EINTR && result != -EAGAIN && result != -ETIME) {
      throw std::system_error(-result, std::generic_category(), "io_uring_submit");
    }
  }

  std::unique_ptr<Ring> m_owner;
  io_uring* m_ring;
  std::vector<TransferClock::Moment> m_started;
  bool m_fixedFile = false;
  bool m_fixedBuffers = false;
  unsigned int m_prepared = 0;
};

}  // namespace

std::unique_ptr<BlockSource> makeUringSource(OpenedFile& file, const SourceOptions& options) {
  auto ring = std::make_unique<Ring>(options.slots);
  return std::make_unique<UringSource>(std::move(ring), std::move(file), options);
}

}  // namespace TarvexDiags::Storage
