#pragma once

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <deque>
#include <span>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "packagekit/UniqueDescriptor.h"

namespace TarvexDiags::Network {

/// @brief Two interfaces, "left" and "right", in the namespace of the thread that makes the object,
/// with a cable of software between them that does to the frames what a test asks for. Numbers
/// count the frames that carry data of a test, both ways, from 1 on.
class TapWire {
 public:
  struct Faults {
    std::atomic<bool> isDead{false};              ///< swallows everything
    std::atomic<std::uint64_t> deadFrom{0};       ///< swallows everything after this frame
    std::atomic<std::uint64_t> loseOfHundred{0};  ///< so many of a hundred, well spread
    std::atomic<std::uint64_t> damageEach{0};     ///< flips a bit of each n-th frame
    std::atomic<std::uint64_t> forgeEach{0};      ///< the same, and corrects the checksum
    std::atomic<std::uint64_t> repeatEach{0};     ///< sends each n-th frame twice
    std::atomic<std::uint64_t> resetAt{0};        ///< makes this frame break its connection
    std::atomic<double> bytesPerSecond{0};        ///< no more than so many each way; 0: any
  };

  TapWire() : m_left(makeTap("left")), m_right(makeTap("right")), m_end(eventfd(0, EFD_CLOEXEC)) {
    m_thread = std::thread([this] { carry(); });
  }
  TapWire(const TapWire&) = delete;
  TapWire& operator=(const TapWire&) = delete;
  ~TapWire() {
    eventfd_write(m_end.get(), 1);
    m_thread.join();
  }

  Faults faults;

  std::uint64_t dataFrames() const { return m_dataFrames; }
  std::uint64_t spoiltFrames() const { return m_spoilt; }

  /// @brief Pulls the right interface out of the machine.
  void unplugRight() { m_unplug = true; }

 private:
  using Frame = std::span<unsigned char>;
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kIp = 14;     ///< where the Internet header begins
  static constexpr std::size_t kData = 100;  ///< shorter frames carry no data of a test

  static PackageKit::UniqueDescriptor makeTap(const std::string& name) {
    PackageKit::UniqueDescriptor tap(open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK));
    ifreq envelope{};
    name.copy(envelope.ifr_name, IFNAMSIZ - 1);
    envelope.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (!tap || ioctl(tap.get(), TUNSETIFF, &envelope) != 0) {
      throw std::system_error(errno, std::generic_category(), "/dev/net/tun");
    }
    // A cable loses nothing because this machine is busy.
    const PackageKit::UniqueDescriptor plain(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    envelope.ifr_qlen = 20'000;
    ioctl(plain.get(), SIOCSIFTXQLEN, &envelope);
    return tap;
  }

  void carry() {
    for (;;) {
      const auto now = Clock::now();
      std::array<pollfd, 3> ends{{{now < m_nextFromLeft ? -1 : m_left.get(), POLLIN, 0},
                                  {now < m_nextFromRight ? -1 : m_right.get(), POLLIN, 0},
                                  {m_end.get(), POLLIN, 0}}};
      const timespec limit{0, untilNext(now).count()};
      ppoll(ends.data(), ends.size(), &limit, nullptr);
      if (ends[2].revents != 0) {
        return;
      }
      if (m_unplug) {
        m_right.close();
      }
      pass(m_left, m_right, m_nextFromLeft);
      pass(m_right, m_left, m_nextFromRight);
    }
  }

  /// @brief How long to wait for frames: no longer than until a busy cable is free.
  std::chrono::nanoseconds untilNext(Clock::time_point now) const {
    std::chrono::nanoseconds wait = std::chrono::milliseconds(20);
    for (const Clock::time_point next : {m_nextFromLeft, m_nextFromRight}) {
      wait = next > now ? std::min<std::chrono::nanoseconds>(wait, next - now) : wait;
    }
    return wait;
  }

  /// @param next when the cable is free for the next frame; the others wait in the interface
  void pass(const PackageKit::UniqueDescriptor& from, const PackageKit::UniqueDescriptor& to,
            Clock::time_point& next) {
    std::array<unsigned char, 2048> buffer{};
    for (int count = 0; count < 64 && Clock::now() >= next; ++count) {
      const ssize_t length = read(from.get(), buffer.data(), buffer.size());
      if (length <= 0) {
        return;
      }
      const Frame frame = Frame(buffer).first(static_cast<std::size_t>(length));
      if (faults.bytesPerSecond > 0) {
        const std::chrono::duration<double> taken(static_cast<double>(length) /
                                                  faults.bytesPerSecond);
        next = Clock::now() + std::chrono::duration_cast<Clock::duration>(taken);
      }
      for (unsigned int copy = copiesOf(frame); copy > 0; --copy) {
        const ssize_t written = write(to.get(), frame.data(), frame.size());
        (void)written;  // an interface that is switched off takes nothing, as at a real end
      }
    }
  }

  /// @brief Does to a frame what is asked for. @return how often it goes on
  unsigned int copiesOf(Frame frame) {
    if (faults.isDead || (faults.deadFrom != 0 && m_dataFrames >= faults.deadFrom)) {
      return 0;
    }
    const bool isData = frame.size() > kData && frame[12] == 0x08 && frame[13] == 0x00;
    if (!isData) {
      return isLost(++m_otherFrames) ? 0 : 1;
    }
    const std::uint64_t number = ++m_dataFrames;
    if (isLost(number)) {
      return 0;
    }
    if (isDue(faults.damageEach, number)) {
      spoil(frame);
    }
    if (isDue(faults.forgeEach, number)) {
      spoil(frame);
      correct(frame);
    }
    if (number == faults.resetAt) {
      frame[kIp + headerLength(frame) + 13] |= 0x04;
      correct(frame);
    }
    return isDue(faults.repeatEach, number) ? 2 : 1;
  }

  static bool isDue(std::uint64_t each, std::uint64_t number) {
    return each != 0 && number % each == 0;
  }

  bool isLost(std::uint64_t number) const {
    std::uint64_t mixed = (number + 1) * 0x9E3779B97F4A7C15U;
    mixed ^= mixed >> 29;
    mixed *= 0xBF58476D1CE4E5B9U;
    return (mixed >> 33) % 100 < faults.loseOfHundred;
  }

  void spoil(Frame frame) {
    ++m_spoilt;
    frame[frame.size() - 10] ^= 0x04;
  }

  static std::size_t headerLength(Frame frame) { return std::size_t{frame[kIp] & 0x0FU} * 4; }

  /// @brief Makes the checksum of a TCP segment or UDP datagram right again.
  static void correct(Frame frame) {
    const std::size_t header = headerLength(frame);
    const bool isUdp = frame[kIp + 9] == 17;
    const std::size_t total = std::size_t{frame[kIp + 2]} << 8 | frame[kIp + 3];
    const Frame segment = frame.subspan(kIp + header, total - header);
    const std::size_t place = isUdp ? 6 : 16;
    segment[place] = segment[place + 1] = 0;
    std::uint64_t sum = frame[kIp + 9] + segment.size();
    for (std::size_t at = 0; at < 8; at += 2) {
      sum += wordAt(frame, kIp + 12 + at);
    }
    for (std::size_t at = 0; at < segment.size(); at += 2) {
      sum += wordAt(segment, at);
    }
    while (sum >> 16 != 0) {
      sum = (sum & 0xFFFF) + (sum >> 16);
    }
    const auto checksum = static_cast<std::uint16_t>(~sum);
    segment[place] = static_cast<unsigned char>(checksum >> 8);
    segment[place + 1] = static_cast<unsigned char>(checksum);
  }

  static std::uint64_t wordAt(Frame bytes, std::size_t at) {
    return std::uint64_t{bytes[at]} << 8 | (at + 1 < bytes.size() ? bytes[at + 1] : 0U);
  }

  PackageKit::UniqueDescriptor m_left;
  PackageKit::UniqueDescriptor m_right;
  PackageKit::UniqueDescriptor m_end;
  std::atomic<bool> m_unplug{false};
  std::atomic<std::uint64_t> m_dataFrames{0};
  std::atomic<std::uint64_t> m_spoilt{0};
  std::uint64_t m_otherFrames = 0;
  Clock::time_point m_nextFromLeft;
  Clock::time_point m_nextFromRight;
  std::thread m_thread;
};

}  // namespace TarvexDiags::Network
