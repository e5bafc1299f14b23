#include "packages/storage/TransferQueue.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {
namespace {

/// @brief The transfers in flight; waits for them when a callback throws.
class InFlight {
 public:
  explicit InFlight(BlockSource& source) : m_source(source), m_transfers(source.slots()) {}
  InFlight(const InFlight&) = delete;
  InFlight& operator=(const InFlight&) = delete;
  ~InFlight() {
    while (m_count > 0) {
      m_source.wait();
      --m_count;
    }
  }

  void start(const Transfer& transfer) {
    m_transfers[transfer.slot] = transfer;
    m_source.start(transfer);
    ++m_count;
  }

  Completion wait() {
    const Completion completion = m_source.wait();
    --m_count;
    return completion;
  }

  const Transfer& of(const Completion& completion) const { return m_transfers[completion.slot]; }
  unsigned int count() const { return m_count; }

 private:
  BlockSource& m_source;
  std::vector<Transfer> m_transfers;
  unsigned int m_count = 0;
};

}  // namespace

void transferAll(BlockSource& source,
                 const std::function<std::optional<Transfer>(unsigned int slot)>& next,
                 const std::function<void(const Transfer&, const Completion&)>& done) {
  InFlight inFlight(source);
  bool more = true;
  const auto refill = [&](unsigned int slot) {
    const std::optional<Transfer> transfer = next(slot);
    more = transfer.has_value();
    if (more) {
      inFlight.start(*transfer);
    }
  };
  for (unsigned int slot = 0; more && slot < source.slots(); ++slot) {
    refill(slot);
  }
  while (inFlight.count() > 0) {
    const Completion completion = inFlight.wait();
    done(inFlight.of(completion), completion);
    if (more) {
      refill(completion.slot);
    }
  }
}

Completion transferOne(BlockSource& source, const Transfer& transfer) {
  source.start(transfer);
  return source.wait();
}

void requireSize(const BlockSource& source, std::uint64_t bytes, const std::string& disk) {
  if (source.size() < bytes) {
    throw NotSupported(disk + " has " + std::to_string(source.size()) + " bytes, too few to test");
  }
}

// block/blk-core.c of the kernel, blk_errors: what stands for a fault of medium, target, transport
// or protection data. File systems pass them on, and tell EBADMSG for their own checksums.
void requireFaultOfDisk(int error, const std::string& disk) {
  constexpr std::array faults{0,         EIO,   ENODATA, EREMOTEIO, EILSEQ,
                              ETIMEDOUT, ETIME, ENOLINK, EBADMSG};
  if (std::find(faults.begin(), faults.end(), error) == faults.end()) {
    throw std::system_error(error, std::generic_category(), disk);
  }
}

}  // namespace TarvexDiags::Storage
