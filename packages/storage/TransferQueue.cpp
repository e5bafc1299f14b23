#include "packages/storage/TransferQueue.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <numeric>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "packagekit/TestContext.h"
#include "packages/storage/StorageEvents.h"

namespace TarvexDiags::Storage {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLook = Looks::kLength;
/// What is in flight when a stop comes may still end in this time.
constexpr milliseconds kLastChance{200};
/// The same when a callback throws.
constexpr milliseconds kRetreat{2000};

/// @brief The transfers in flight; waits for them when a callback throws.
class InFlight {
 public:
  InFlight(BlockSource& source, const Waiter& waiter)
      : m_source(source), m_waiter(waiter), m_places(source.slots()) {}
  InFlight(const InFlight&) = delete;
  InFlight& operator=(const InFlight&) = delete;
  ~InFlight() {
    try {
      const bool isStopped = m_waiter.journal.stopRequested();
      for (auto left = (isStopped ? kLastChance : kRetreat) / kLook; m_count > 0 && left > 0;) {
        m_source.wait(kLook) ? --m_count : --left;
      }
    } catch (...) {
      // What made this end early tells more than a ring that does not work.
    }
    abandon();
  }

  void start(const Transfer& transfer) {
    m_places[transfer.slot] = {transfer, ++m_started};
    m_source.start(transfer);
    ++m_count;
  }

  /// @brief The end of a transfer. Throws as transferAll.
  Completion wait() {
    Looks looks(m_waiter.journal, m_source.patience());
    for (;;) {
      endIfStopped();
      if (const std::optional<Completion> completion = m_source.wait(kLook)) {
        --m_count;
        m_places[completion->slot].order = 0;
        return *completion;
      }
      switch (looks.inVain()) {
        case Looks::Sight::Nothing:
          break;
        case Looks::Sight::Stop:
          abandon();
          throw PackageKit::Stopped();
        case Looks::Sight::Silence:
          tellOldest();
          abandon();
          throw SilentDisk();
      }
    }
  }

  const Transfer& of(const Completion& completion) const {
    return m_places[completion.slot].transfer;
  }
  unsigned int count() const { return m_count; }

 private:
  struct Place {
    Transfer transfer;
    std::uint64_t order = 0;  ///< 0: nothing in flight
  };

  /// @brief The last chance is that of all transfers together: of many, each may end in time.
  void endIfStopped() {
    if (!m_waiter.journal.stopRequested()) {
      return;
    }
    const auto now = std::chrono::steady_clock::now();
    m_stopSeen = m_stopSeen.value_or(now);
    if (now - *m_stopSeen >= kLastChance) {
      abandon();
      throw PackageKit::Stopped();
    }
  }

  void abandon() {
    if (m_count > 0) {
      m_source.abandon();
      m_count = 0;
    }
  }

  void tellOldest() {
    const auto oldest = std::min_element(
        m_places.begin(), m_places.end(), [](const Place& left, const Place& right) {
          return left.order - 1 < right.order - 1;  // 0, nothing in flight, becomes the largest
        });
    const std::uint64_t block = m_source.blockSize();
    const bool hasPlace = oldest->transfer.direction != Direction::Flush;
    tellSilence(m_waiter, hasPlace ? std::to_string(oldest->transfer.offset / block) : "?",
                std::to_string(block), m_source.patience());
  }

  BlockSource& m_source;
  const Waiter& m_waiter;
  std::vector<Place> m_places;
  std::uint64_t m_started = 0;
  unsigned int m_count = 0;
  std::optional<std::chrono::steady_clock::time_point> m_stopSeen;
};

/// @brief How many transfers may be in flight, and how long: such as end in the last chance. A
/// process ends only when the kernel has ended them, so a slow disk with many would put off every
/// stop.
class Depth {
 public:
  Depth(unsigned int most, PieceLength* pieces)
      : m_most(most), m_now(std::min(most, kFirst)), m_pieces(pieces) {}

  unsigned int now() const { return m_now; }

  void note(std::chrono::nanoseconds latency) {
    if (latency > kLastChance) {
      lower();
    } else if (latency < kLastChance / 2) {
      raise();
    }
  }

 private:
  /// What nothing is known about yet may be slow.
  static constexpr unsigned int kFirst = 4;

  void lower() {
    if (m_now > 1) {
      --m_now;
    } else if (m_pieces != nullptr) {
      m_pieces->shrink();
    }
  }
  void raise() {
    if (m_pieces == nullptr || !m_pieces->grow()) {
      m_now = std::min(m_now + 1, m_most);
    }
  }

  unsigned int m_most;
  unsigned int m_now;
  PieceLength* m_pieces;
};

}  // namespace

Looks::Sight Looks::inVain() {
  if (m_journal.stopRequested() && ++m_sinceStop * kLength >= kLastChance) {
    return Sight::Stop;
  }
  return m_left-- > 0 ? Sight::Nothing : Sight::Silence;
}

void tellSilence(const Waiter& waiter, const std::string& block, const std::string& blockSize,
                 milliseconds patience) {
  const auto seconds = std::lround(std::chrono::duration<double>(patience).count());
  report(waiter.journal, StorageEvent::NoAnswer,
         {waiter.disk, block, blockSize, std::to_string(seconds)});
}

void transferAll(BlockSource& source, const Waiter& waiter,
                 const std::function<std::optional<Transfer>(unsigned int slot)>& next,
                 const std::function<void(const Transfer&, const Completion&)>& done,
                 PieceLength* pieces) {
  InFlight inFlight(source, waiter);
  Depth depth(source.slots(), pieces);
  std::vector<unsigned int> freeSlots(source.slots());
  std::iota(freeSlots.rbegin(), freeSlots.rend(), 0U);
  bool more = true;
  const auto fill = [&] {
    while (more && inFlight.count() < depth.now()) {
      const std::optional<Transfer> transfer = next(freeSlots.back());
      more = transfer.has_value();
      if (more) {
        freeSlots.pop_back();
        inFlight.start(*transfer);
      }
    }
  };
  for (fill(); inFlight.count() > 0; fill()) {
    const Completion completion = inFlight.wait();
    freeSlots.push_back(completion.slot);
    depth.note(completion.latency);
    done(inFlight.of(completion), completion);
  }
}

Completion transferOne(BlockSource& source, const Waiter& waiter, const Transfer& transfer) {
  InFlight inFlight(source, waiter);
  inFlight.start(transfer);
  return inFlight.wait();
}

void requireSize(const BlockSource& source, std::uint64_t bytes) {
  if (source.size() < bytes) {
    throw NotSupported(Reasons::kDiskTooSmall);
  }
}

// block/blk-core.c of the kernel, blk_errors: what stands for a fault of medium, target, transport
// or protection data. File systems pass them on, and tell EBADMSG for their own checksums.
void requireFaultOfDisk(BlockSource& source, const Waiter& waiter, const Transfer& transfer,
                        const Completion& completion) {
  constexpr std::array faults{0,         EIO,   ENODATA, EREMOTEIO, EILSEQ,
                              ETIMEDOUT, ETIME, ENOLINK, EBADMSG};
  const int error = completion.error;
  // Within its size, nothing but the end of a disk that has left gives no bytes at all.
  const bool endsEarly =
      transfer.direction == Direction::Read && error == 0 && completion.length == 0;
  if (endsEarly || saysVanished(error) || source.hasVanished(waiter)) {
    throwVanished(waiter.disk, endsEarly ? Reasons::kReadsNothing : goneBy(error),
                  endsEarly ? "0 B" : messageOf(error));
  }
  if (std::find(faults.begin(), faults.end(), error) == faults.end()) {
    throw std::system_error(error, std::generic_category(), waiter.disk);
  }
}

void requirePresence(BlockSource& source, const Waiter& waiter, const std::string& cause) {
  constexpr milliseconds kTimeToLeave{2000};
  for (milliseconds waited{0}; waited <= kTimeToLeave; waited += kLook) {
    if (source.hasVanished(waiter)) {
      throwVanished(waiter.disk, Reasons::kDiskGone, cause);
    }
    if (waiter.journal.stopRequested()) {
      return;
    }
    std::this_thread::sleep_for(kLook);
  }
}

// The last four are told by file systems: of a server that ended, an export that was taken back, a
// connection that was broken off, and a file system that was shut down.
bool saysVanished(int error) {
  constexpr std::array gone{ENODEV, ENXIO, ENOMEDIUM, ENOTCONN, ESTALE, ECONNABORTED, ESHUTDOWN};
  return std::find(gone.begin(), gone.end(), error) != gone.end();
}

Common::Reason goneBy(int error) {
  switch (error) {
    case ENOMEDIUM:
      return Reasons::kMediumGone;
    case ENOTCONN:
    case ESTALE:
    case ECONNABORTED:
    case ESHUTDOWN:
      return Reasons::kFileSystemGone;
    default:
      return Reasons::kDiskGone;
  }
}

void throwVanished(const std::string& disk, Common::Reason how, const std::string& detail) {
  throw PackageKit::DeviceVanished(how.token, detail.empty() ? disk : disk + ": " + detail);
}

std::string messageOf(int error) {
  return std::generic_category().message(error == 0 ? EIO : error);
}

std::string causeOf(int error) {
  switch (error) {
    case 0:
      return "FEWER_BYTES";
    case EILSEQ:
      return "PROTECTION_MISMATCH";
    default:
      return messageOf(error);
  }
}

}  // namespace TarvexDiags::Storage
