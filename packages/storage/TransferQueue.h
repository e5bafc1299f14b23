#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

#include "packages/common/RunJournal.h"
#include "packages/storage/BlockSource.h"

namespace TarvexDiags::Storage {

/// @brief For whom a transfer is waited for: who may end the waiting, and whose silence is told.
struct Waiter {
  Common::RunJournal& journal;
  const std::string& disk;
};

/// @brief What a test that waits for a disk sees each time that it looks up. Looks are counted, not
/// seconds: time goes on while a worker is suspended.
class Looks {
 public:
  enum class Sight {
    Nothing,
    Stop,    ///< one was requested, and the disk has had its last chance
    Silence  ///< the patience is over
  };

  Looks(Common::RunJournal& journal, std::chrono::milliseconds patience)
      : m_journal(journal), m_left(patience / kLength) {}

  /// @brief To be asked after each look in which nothing has happened.
  Sight inVain();

  /// How often a waiting test looks whether it shall stop.
  static constexpr std::chrono::milliseconds kLength{50};

 private:
  Common::RunJournal& m_journal;
  std::chrono::milliseconds::rep m_left;
  int m_sinceStop = 0;
};

/// @brief Tells that the disk does not answer; the place may be unknown, "?".
void tellSilence(const Waiter& waiter, const std::string& block, const std::string& blockSize,
                 std::chrono::milliseconds patience);

/// @brief The disk ended no transfer for as long as the source has patience. The journal has its
/// error; the source was abandoned.
class SilentDisk : public std::exception {
 public:
  const char* what() const noexcept override { return "the disk does not answer"; }
};

/// @brief How long the next transfers may be that can be cut anywhere: a slow disk gets such as it
/// ends in a fifth of a second.
class PieceLength {
 public:
  /// @param longest in bytes, a multiple of 4096
  explicit PieceLength(std::uint32_t longest) : m_longest(longest) {}

  /// @brief A multiple of 4096.
  std::uint32_t now() const { return std::min(kShortest << m_doublings, m_longest); }
  /// @return false where it can't be any longer, or shorter
  bool grow() { return now() < m_longest && ++m_doublings > 0; }
  bool shrink() { return m_doublings > 0 && m_doublings-- > 0; }

 private:
  static constexpr std::uint32_t kShortest = 4096;

  std::uint32_t m_longest;
  /// What nothing is known about yet may be slow: 64 KiB.
  unsigned int m_doublings = 4;
};

/// @brief Keeps as many transfers in flight as the source has slots, or as few as a slow disk ends
/// in a fifth of a second, until there is no next one, then waits for the rest. No transfer is in
/// flight when it returns or throws what a callback threw.
///
/// A stop that the journal requests ends the wait within a third of a second, whatever the disk
/// does: what is then still in flight is abandoned. Throws PackageKit::Stopped for it, and
/// SilentDisk.
///
/// @param next the next transfer for the given free slot, or nothing when all were handed out;
/// asked
///        again for each free slot until it says nothing.
/// @param done called for each transfer that ended; the slot's buffer is free again afterwards.
/// @param pieces is adapted to the disk, where the transfers can be cut.
void transferAll(BlockSource& source, const Waiter& waiter,
                 const std::function<std::optional<Transfer>(unsigned int slot)>& next,
                 const std::function<void(const Transfer&, const Completion&)>& done,
                 PieceLength* pieces = nullptr);

/// @brief One transfer alone; the source must have none in flight. Throws as transferAll.
Completion transferOne(BlockSource& source, const Waiter& waiter, const Transfer& transfer);

/// @brief Throws NotSupported when the disk is smaller than the given number of bytes.
void requireSize(const BlockSource& source, std::uint64_t bytes);

/// @brief Whether the transfer moved all its bytes.
inline bool succeeded(const Transfer& transfer, const Completion& completion) {
  return completion.error == 0 && completion.length == transfer.length;
}

/// @brief Throws std::system_error unless the failure of the transfer says that the disk or the way
/// to it is at fault: a lack of memory or of a permission, or a request that the kernel refuses,
/// say nothing about the disk's blocks. With ENODEV when the disk has left.
void requireFaultOfDisk(BlockSource& source, const Waiter& waiter, const Transfer& transfer,
                        const Completion& completion);

/// @brief For a disk that failed wherever it was asked: throws as above when it leaves within the
/// time that the kernel takes to notice. Ends early when a stop is requested.
void requirePresence(BlockSource& source, const Waiter& waiter, const std::string& cause);

/// @brief Whether the errno says that there is no such disk or file system any more.
bool saysVanished(int error);

/// @brief What is gone when that is so.
Common::Reason goneBy(int error);

/// @brief Throws PackageKit::DeviceVanished, which is a std::system_error with ENODEV.
/// @param detail beside the disk's name, in no language; may be empty
[[noreturn]] void throwVanished(const std::string& disk, Common::Reason how,
                                const std::string& detail = {});

/// @brief The message of an errno; a short transfer is told as a fault of its own kind, EIO.
std::string messageOf(int error);

/// @brief The same as a parameter of an event. A short transfer, which has none, and what the
/// kernel's message would mislead about, are tokens of the package's texts.
std::string causeOf(int error);

}  // namespace TarvexDiags::Storage
