#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "packages/network/DatagramDiagnostic.h"
#include "packages/network/StreamDiagnostic.h"

namespace TarvexDiags::Network {

/// @brief A connection with the faults that a test asks for, over a good one. Places are bytes.
class FaultyStream : public StreamLink {
 public:
  static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

  struct Faults {
    std::map<std::uint64_t, unsigned char> flips = {};  ///< place and mask
    std::uint64_t loseAt = kNever;
    std::uint64_t loseBytes = 0;
    std::uint64_t repeatAt = kNever;  ///< the bytes before it come again
    std::uint64_t repeatBytes = 0;
    std::uint64_t breakAt = kNever;
    int breakError = ECONNRESET;
    std::uint64_t stallAt = kNever;
    std::uint64_t pauseEach = kNever;  ///< after so many bytes nothing comes for a while
    std::chrono::milliseconds pause{0};
  };

  FaultyStream(std::unique_ptr<StreamLink> good, Faults faults)
      : m_good(std::move(good)), m_faults(std::move(faults)) {}

  std::int64_t send(std::span<const std::byte> bytes) override { return m_good->send(bytes); }

  std::int64_t receive(std::span<std::byte> buffer) override {
    // In small pieces, so that a fault can stand at the edge of one.
    if (m_place >= m_faults.breakAt) {
      return -m_faults.breakError;
    }
    if (m_place >= m_faults.stallAt || isPausing()) {
      return 0;
    }
    fetch();
    const std::size_t length = std::min(buffer.size(), m_waiting.size());
    std::copy_n(m_waiting.begin(), length, buffer.begin());
    m_waiting.erase(m_waiting.begin(), m_waiting.begin() + static_cast<std::ptrdiff_t>(length));
    return static_cast<std::int64_t>(length);
  }

  void wait(bool forRoom, std::chrono::milliseconds limit) override {
    const auto slice = std::min(limit, std::chrono::milliseconds(5));
    if (std::chrono::steady_clock::now() < m_pauseEnd) {
      std::this_thread::sleep_for(slice);  // the good one has something, which is kept back
    } else {
      m_good->wait(forRoom, slice);
    }
  }

 private:
  bool isPausing() {
    const auto now = std::chrono::steady_clock::now();
    if (m_faults.pauseEach != kNever && m_place >= m_nextPause) {
      m_nextPause = m_place + m_faults.pauseEach;
      m_pauseEnd = now + m_faults.pause;
    }
    return now < m_pauseEnd;
  }

  void fetch() {
    std::vector<std::byte> piece(10'000);
    const std::int64_t result = m_good->receive(piece);
    for (std::int64_t at = 0; at < result; ++at, ++m_place) {
      std::byte value = piece[static_cast<std::size_t>(at)];
      if (const auto flip = m_faults.flips.find(m_place); flip != m_faults.flips.end()) {
        value ^= static_cast<std::byte>(flip->second);
      }
      if (m_place == m_faults.repeatAt) {
        const std::vector<std::byte> again(
            m_recent.end() - static_cast<std::ptrdiff_t>(m_faults.repeatBytes), m_recent.end());
        m_waiting.insert(m_waiting.end(), again.begin(), again.end());
      }
      if (m_place < m_faults.loseAt || m_place - m_faults.loseAt >= m_faults.loseBytes) {
        m_waiting.push_back(value);
      }
      if (m_faults.repeatAt != kNever) {
        m_recent.push_back(value);
      }
    }
  }

  std::unique_ptr<StreamLink> m_good;
  Faults m_faults;
  std::uint64_t m_place = 0;
  std::uint64_t m_nextPause = 1;
  std::chrono::steady_clock::time_point m_pauseEnd;
  std::deque<std::byte> m_waiting;
  std::vector<std::byte> m_recent;
};

/// @brief A path for datagrams with the faults that a test asks for. Numbers count what is sent.
class FaultyDatagrams : public DatagramLink {
 public:
  struct Faults {
    std::set<std::uint64_t> lose = {};
    std::set<std::uint64_t> repeat = {};
    std::set<std::uint64_t> swapWithNext = {};
    std::map<std::uint64_t, std::size_t> flip = {};  ///< number and place
    std::set<std::uint64_t> cut = {};                ///< lose their last byte
    std::map<std::uint64_t, int> refuse = {};        ///< number and errno
    std::uint64_t loseFrom = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t loseOfTen = 0;
    std::uint64_t overruns = 0;         ///< of those that are lost: by the receiver's own fault
    unsigned int copies = 2;            ///< of those that are repeated
    std::chrono::milliseconds each{0};  ///< how long one takes
    unsigned int keepForWaits = 0;      ///< nothing arrives before so many waits, each a full one
  };
  static constexpr unsigned int kEndless = std::numeric_limits<unsigned int>::max();

  explicit FaultyDatagrams(Faults faults) : m_faults(std::move(faults)) {}

  std::int64_t send(std::span<const std::byte> datagram) override {
    const std::uint64_t number = m_sent++;
    if (const auto refused = m_faults.refuse.find(number); refused != m_faults.refuse.end()) {
      return -refused->second;
    }
    std::vector<std::byte> copy(datagram.begin(), datagram.end());
    if (const auto flip = m_faults.flip.find(number); flip != m_faults.flip.end()) {
      copy[flip->second] ^= std::byte{0x20};
    }
    if (m_faults.cut.contains(number)) {
      copy.pop_back();
    }
    if (!isLost(number)) {
      m_waiting.push_back(copy);
    }
    if (m_faults.repeat.contains(number) && m_faults.copies == kEndless) {
      m_storm = copy;
    }
    for (unsigned int more = 1;
         m_faults.repeat.contains(number) && m_storm.empty() && more < m_faults.copies; ++more) {
      m_waiting.push_back(copy);
    }
    if (number > 0 && m_faults.swapWithNext.contains(number - 1)) {
      std::swap(m_waiting.back(), m_waiting[m_waiting.size() - 2]);
    }
    return static_cast<std::int64_t>(datagram.size());
  }

  std::int64_t receive(std::span<std::byte> buffer) override {
    if (m_waits < m_faults.keepForWaits) {
      return 0;
    }
    // A swap needs the next one to be there already.
    if (m_waiting.empty() && !m_storm.empty()) {
      return handOver(m_storm, buffer);
    }
    if (m_waiting.empty() ||
        (m_waiting.size() == 1 && m_faults.swapWithNext.contains(m_sent - 1))) {
      return 0;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < m_nextArrival) {
      return 0;
    }
    m_nextArrival = now + m_faults.each;
    const std::vector<std::byte> datagram = m_waiting.front();
    m_waiting.pop_front();
    return handOver(datagram, buffer);
  }

  void wait(std::chrono::milliseconds limit) override {
    if (m_waits++ < m_faults.keepForWaits) {
      std::this_thread::sleep_for(limit);
    } else if (m_faults.each.count() > 0) {
      std::this_thread::sleep_for(std::min(limit, m_faults.each));
    } else {
      std::this_thread::yield();
    }
  }

  std::uint64_t overruns() const override { return m_faults.overruns; }

  std::uint64_t sent() const { return m_sent; }

 private:
  static std::int64_t handOver(const std::vector<std::byte>& datagram,
                               std::span<std::byte> buffer) {
    std::copy(datagram.begin(), datagram.end(), buffer.begin());
    return static_cast<std::int64_t>(datagram.size());
  }

  bool isLost(std::uint64_t number) const {
    return m_faults.lose.contains(number) || number >= m_faults.loseFrom ||
           number % 10 < m_faults.loseOfTen;
  }

  Faults m_faults;
  std::uint64_t m_sent = 0;
  unsigned int m_waits = 0;
  std::deque<std::vector<std::byte>> m_waiting;
  std::vector<std::byte> m_storm;  ///< comes whenever nothing else does
  std::chrono::steady_clock::time_point m_nextArrival;
};

}  // namespace TarvexDiags::Network
