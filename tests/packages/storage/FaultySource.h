#pragma once

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "packages/storage/BlockSource.h"

namespace TarvexDiags::Storage {

/// @brief A disk with the faults that a test asks for, over a good one.
///
/// A fault concerns transfers that touch its range of bytes. `times` says how many of them; the
/// rest go well.
class FaultySource : public BlockSource {
 public:
  static constexpr int kAlways = -1;

  explicit FaultySource(std::unique_ptr<BlockSource> good)
      : m_good(std::move(good)), m_transfers(m_good->slots()) {}

  FaultySource& failReads(std::uint64_t offset, std::uint64_t length, int error = EIO,
                          int times = kAlways) {
    return add(Kind::Fail, Direction::Read, offset, length, times, error);
  }
  FaultySource& failWrites(std::uint64_t offset, std::uint64_t length, int error,
                           int times = kAlways) {
    return add(Kind::Fail, Direction::Write, offset, length, times, error);
  }
  FaultySource& shortenReads(std::uint64_t offset) {
    return add(Kind::Shorten, Direction::Read, offset, 1, kAlways, 0);
  }
  FaultySource& shortenWrites(std::uint64_t offset, int times) {
    return add(Kind::Shorten, Direction::Write, offset, 1, times, 0);
  }
  /// @brief Flips a bit of the byte in what is read, after `good` right reads of it.
  FaultySource& flipReads(std::uint64_t offset, int good, int times = kAlways) {
    add(Kind::None, Direction::Read, offset, 1, good, 0);
    return add(Kind::Flip, Direction::Read, offset, 1, times, 0x10);
  }
  /// @brief Every second read of the byte is wrong.
  FaultySource& flicker(std::uint64_t offset) {
    return add(Kind::Flicker, Direction::Read, offset, 1, kAlways, 0x01);
  }
  FaultySource& slowReads(std::uint64_t offset, std::uint64_t length,
                          std::chrono::milliseconds latency, int times = kAlways) {
    return add(Kind::Slow, Direction::Read, offset, length, times,
               static_cast<int>(latency.count()));
  }
  FaultySource& flipWrites(std::uint64_t offset, int mask) {
    return add(Kind::Flip, Direction::Write, offset, 1, kAlways, mask);
  }
  FaultySource& loseWrites(std::uint64_t offset) {
    return add(Kind::Lose, Direction::Write, offset, 1, kAlways, 0);
  }
  /// @brief Writes that touch `from` go to `to` as well.
  FaultySource& misdirectWrites(std::uint64_t from, std::uint64_t to) {
    m_misdirectedTo = to;
    return add(Kind::Misdirect, Direction::Write, from, 1, kAlways, 0);
  }
  FaultySource& failFlush(int error) {
    m_flushError = error;
    return *this;
  }
  /// @brief Transfers that touch the byte never end.
  FaultySource& hangReads(std::uint64_t offset) {
    return add(Kind::Hang, Direction::Read, offset, 1, kAlways, 0);
  }
  FaultySource& hangFlush() {
    m_flushHangs = true;
    return *this;
  }
  /// @brief From the n-th transfer on, the disk is pulled: its reads end as the way says, and after
  /// some more of them the kernel knows.
  enum class Leaving { WithErrors, WithoutBytes };
  FaultySource& leaveAfter(int transfers, Leaving way, int unnoticed = 0) {
    m_leaving = way;
    m_leavesAfter = transfers;
    m_unnoticed = unnoticed;
    return *this;
  }
  FaultySource& losePatienceAfter(std::chrono::milliseconds limit) {
    m_patience = limit;
    return *this;
  }
  /// @brief What other programs seem to write: asked for each look.
  FaultySource& others(std::function<std::optional<WriteActivity>()> activity) {
    m_activity = std::move(activity);
    return *this;
  }

  std::uint64_t size() const override { return m_good->size(); }
  std::uint32_t blockSize() const override { return m_good->blockSize(); }
  unsigned int slots() const override { return m_good->slots(); }
  std::span<std::byte> buffer(unsigned int slot) override { return m_good->buffer(slot); }

  std::chrono::milliseconds patience() const override { return m_patience; }
  void abandon() override {
    m_isAbandoned = true;
    m_good->abandon();
  }
  bool hasVanished(const Waiter&) override { return m_started >= m_leavesAfter + m_unnoticed; }

  void start(const Transfer& transfer) override {
    ++m_inFlight;
    if (++m_started > m_leavesAfter) {
      m_ended.push_back({transfer.slot, m_leaving == Leaving::WithErrors ? EIO : 0, 0, {}});
      return;
    }
    if (transfer.direction == Direction::Flush) {
      startFlush(transfer);
      return;
    }
    m_transfers[transfer.slot] = {transfer, hit(transfer)};
    const Fault* fault = m_transfers[transfer.slot].fault;
    const Kind kind = fault ? fault->kind : Kind::None;
    if (kind == Kind::Hang) {
      ++m_hanging;
    } else if (kind == Kind::Fail) {
      m_ended.push_back({transfer.slot, fault->value, 0, {}});
    } else if (kind == Kind::Lose) {
      m_ended.push_back({transfer.slot, 0, transfer.length, {}});
    } else {
      if (kind == Kind::Flip && transfer.direction == Direction::Write) {
        flip(transfer, *fault);
      }
      if (kind == Kind::Misdirect) {
        m_misdirected.assign(buffer(transfer.slot).begin(),
                             buffer(transfer.slot).begin() + transfer.length);
      }
      m_good->start(transfer);
    }
  }

  std::optional<Completion> wait(std::chrono::milliseconds atMost) override {
    if (!m_ended.empty()) {
      --m_inFlight;
      const Completion completion = m_ended.front();
      m_ended.pop_front();
      return completion;
    }
    if (m_inFlight == m_hanging) {
      std::this_thread::sleep_for(atMost);
      return std::nullopt;
    }
    std::optional<Completion> completion = m_good->wait(atMost);
    if (!completion) {
      return std::nullopt;
    }
    --m_inFlight;
    const auto& [transfer, fault] = m_transfers[completion->slot];
    const bool isRead = transfer.direction == Direction::Read;
    if (fault != nullptr && fault->kind == Kind::Flip && !isRead) {
      flip(transfer, *fault);  // the buffer is what it was
    } else if (fault != nullptr && (isRead || fault->kind == Kind::Shorten)) {
      spoil(transfer, *fault, *completion);
    }
    return completion;
  }

  std::optional<WriteActivity> writeActivity(const Waiter& waiter) override {
    return m_activity ? m_activity() : m_good->writeActivity(waiter);
  }

  int inFlight() const { return m_inFlight; }
  bool isAbandoned() const { return m_isAbandoned; }

 private:
  enum class Kind { None, Fail, Shorten, Flip, Flicker, Slow, Lose, Misdirect, Hang };

  struct Fault {
    Kind kind;
    Direction direction;
    std::uint64_t offset;
    std::uint64_t length;
    int times;
    int value;
    int hits = 0;
  };

  struct Started {
    Transfer transfer;
    Fault* fault = nullptr;
  };

  FaultySource& add(Kind kind, Direction direction, std::uint64_t offset, std::uint64_t length,
                    int times, int value) {
    m_faults.push_back({kind, direction, offset, length, times, value});
    return *this;
  }

  void startFlush(const Transfer& transfer) {
    m_transfers[transfer.slot] = {transfer, nullptr};
    if (!m_misdirected.empty()) {
      // The slots are at rest now, so the first one serves.
      std::copy(m_misdirected.begin(), m_misdirected.end(), buffer(0).begin());
      m_good->start(
          {Direction::Write, 0, m_misdirectedTo, static_cast<std::uint32_t>(m_misdirected.size())});
      while (!m_good->wait(std::chrono::seconds(1))) {
      }
    }
    if (m_flushHangs) {
      ++m_hanging;
    } else if (m_flushError != 0) {
      m_ended.push_back({transfer.slot, m_flushError, 0, {}});
    } else {
      m_good->start(transfer);
    }
  }

  Fault* hit(const Transfer& transfer) {
    for (Fault& fault : m_faults) {
      const bool touches = fault.direction == transfer.direction &&
                           fault.offset < transfer.offset + transfer.length &&
                           transfer.offset < fault.offset + fault.length;
      if (touches && (fault.times == kAlways || fault.hits < fault.times)) {
        ++fault.hits;
        return &fault;
      }
    }
    return nullptr;
  }

  void flip(const Transfer& transfer, const Fault& fault) {
    buffer(transfer.slot)[fault.offset - transfer.offset] ^= static_cast<std::byte>(fault.value);
  }

  void spoil(const Transfer& transfer, const Fault& fault, Completion& completion) {
    if (fault.kind == Kind::Flip || (fault.kind == Kind::Flicker && fault.hits % 2 == 0)) {
      flip(transfer, fault);
    } else if (fault.kind == Kind::Shorten) {
      completion.length /= 2;
    } else if (fault.kind == Kind::Slow) {
      completion.latency = std::chrono::milliseconds(fault.value);
    }
  }

  std::unique_ptr<BlockSource> m_good;
  std::vector<Started> m_transfers;
  std::deque<Fault> m_faults;
  std::deque<Completion> m_ended;
  std::function<std::optional<WriteActivity>()> m_activity;
  std::vector<std::byte> m_misdirected;
  std::uint64_t m_misdirectedTo = 0;
  std::chrono::milliseconds m_patience{std::chrono::seconds(30)};
  Leaving m_leaving = Leaving::WithErrors;
  int m_leavesAfter = std::numeric_limits<int>::max() / 2;
  int m_unnoticed = 0;
  int m_started = 0;
  int m_flushError = 0;
  bool m_flushHangs = false;
  bool m_isAbandoned = false;
  int m_hanging = 0;
  int m_inFlight = 0;
};

}  // namespace TarvexDiags::Storage
