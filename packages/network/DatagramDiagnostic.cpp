#include "packages/network/DatagramDiagnostic.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "packages/network/Patience.h"
#include "packages/network/Payload.h"

namespace TarvexDiags::Network {
namespace {

/// @brief What opens each datagram. The guard tells a damaged header from a sound one.
struct Header {
  std::uint64_t sequence = 0;
  std::uint64_t guard = 0;
};

constexpr std::uint64_t guardOf(std::uint64_t sequence, std::uint64_t seed) {
  return (sequence + 1) * 0x9E3779B97F4A7C15U ^ seed;
}

/// @brief How often something happened, and to which datagram first.
struct Tally {
  std::uint64_t count = 0;
  std::uint64_t first = 0;
  void add(std::uint64_t sequence) {
    if (count++ == 0) {
      first = sequence;
    }
  }
};

class DatagramRun {
 public:
  DatagramRun(DatagramLink& link, const DatagramOptions& options, const Path& path,
              RunJournal& journal)
      : m_link(link),
        m_options(options),
        m_path(path),
        m_journal(journal),
        m_inFlight(std::clamp<std::uint64_t>(link.capacity(options.longest), 1, options.inFlight)),
        m_payload(options.seed),
        m_toSend(options.datagrams),
        m_arrivals(options.datagrams, 0),
        m_buffer(std::size_t{64} << 10),
        m_pace(options.pace) {}

  DatagramFigures run() {
    while (m_settled < m_toSend && !m_broken && !isHopeless()) {
      const bool sent = send();
      const bool received = receive();
      if (m_stopped) {
        return m_figures;
      }
      if (!sent && !received) {
        waitForMore();
      }
    }
    while (!isStorm() && !m_stopped && receive()) {
      // A second copy may come after everything else.
    }
    if (!m_stopped) {
      tellAll();  // else what was not read any more would count as lost
    }
    return m_figures;
  }

 private:
  static constexpr unsigned int kMostTold = 16;
  static constexpr std::uint64_t kFewExtras = 1000;

  bool isHopeless() const {
    return m_silences >= m_options.mostSilences || m_givenUp >= m_options.mostLosses || m_slow ||
           isStorm();
  }

  bool isStorm() const { return m_extras > kFewExtras + m_options.mostExtras * m_sent; }

  void waitForMore() {
    m_stopped = m_journal.stopRequested();
    const auto waited =
        countedWait(std::min(m_options.patience, Patience::kLook),
                    [this](std::chrono::milliseconds atMost) { m_link.wait(atMost); });
    m_idle += waited;
    // What is on its way over such a path may arrive some day; it counts as lost.
    m_slow = m_pace.wait(waited, m_figures.bytes);
    if (m_pace.isOver()) {
      m_toSend = m_sent;  // what is on its way may still arrive
    }
    if (m_idle >= m_options.patience) {
      m_path.requirePresence();
      // What is on its way now is lost; the rest still gets its chance.
      m_givenUp += m_sent - m_settled;
      m_settled = m_sent;
      ++m_silences;
      m_inVain += m_idle;
      m_idle = {};
    }
  }

  std::size_t lengthOf(std::uint64_t sequence) const {
    return sizeof(Header) + sequence * 37 % (m_options.longest - sizeof(Header) + 1);
  }

  /// @brief The datagram's bytes after its header; another stretch of the payload for each.
  std::span<const std::byte> bodyOf(std::uint64_t sequence) const {
    return m_payload.at(sequence * 1009, lengthOf(sequence) - sizeof(Header));
  }

  bool send() {
    if (m_sent == m_toSend || m_sent - m_settled >= m_inFlight) {
      return false;
    }
    const Header header{m_sent, guardOf(m_sent, m_options.seed)};
    const auto body = bodyOf(m_sent);
    m_outgoing.resize(sizeof header + body.size());
    std::memcpy(m_outgoing.data(), &header, sizeof header);
    std::copy(body.begin(), body.end(), m_outgoing.begin() + sizeof header);
    if (checked(m_link.send(m_outgoing)) == 0) {
      return false;
    }
    ++m_sent;
    return true;
  }

  bool receive() {
    const auto length = static_cast<std::size_t>(checked(m_link.receive(m_buffer)));
    if (length > 0) {
      settle(std::span<const std::byte>(m_buffer).first(length));
    }
    return length > 0;
  }

  std::int64_t checked(std::int64_t result) {
    if (result >= 0) {
      return result;
    }
    if (!m_broken) {
      m_broken = true;
      tell(m_path.broken(static_cast<int>(-result)));
    }
    return 0;
  }

  /// @brief A test that receives without end is in need of an end too.
  void askWhetherToStop() {
    // On the slowest wire so many take a small part of a second.
    if (++m_received % 64 == 0) {
      m_stopped = m_journal.stopRequested();
    }
  }

  /// @brief Copies are no sign of life: they may come for ever.
  void noteLife() {
    m_pace.go();
    m_idle = {};
    m_silences = 0;
  }

  void settle(std::span<const std::byte> datagram) {
    askWhetherToStop();
    Header header;
    std::memcpy(&header, datagram.data(), std::min(sizeof header, datagram.size()));
    const bool known = datagram.size() >= sizeof header && header.sequence < m_sent &&
                       header.guard == guardOf(header.sequence, m_options.seed);
    if (!known) {
      noteLife();
      ++m_extras;
      ++m_unknown;
      tellCorrupted("?", 0, std::byte{0}, datagram.front());
      m_settled = std::min(m_settled + 1, m_sent);
      return;
    }
    m_figures.bytes += datagram.size();
    if (m_arrivals[header.sequence] > 0) {
      repeat(header.sequence);
      return;
    }
    noteLife();
    m_arrivals[header.sequence] = 1;
    ++m_figures.arrived;
    m_settled = std::min(m_settled + 1, m_sent);
    if (header.sequence < m_highest) {
      m_reordered.add(header.sequence);
    }
    m_highest = std::max(m_highest, header.sequence);
    compare(header.sequence, datagram.subspan(sizeof header));
    constexpr std::uint64_t kBetweenNews = 64;
    if (m_figures.arrived % kBetweenNews == 0) {
      m_journal.processed(kBetweenNews, "datagrams");
      m_journal.progress(static_cast<unsigned int>(m_figures.arrived * 100 / m_options.datagrams));
    }
  }

  /// @brief Counts a datagram once, however many copies of it come.
  void repeat(std::uint64_t sequence) {
    ++m_extras;
    if (m_arrivals[sequence] == 1) {
      m_arrivals[sequence] = 2;
      m_repeated.add(sequence);
    }
  }

  void compare(std::uint64_t sequence, std::span<const std::byte> found) {
    const auto expected = bodyOf(sequence);
    const auto [wanted, got] =
        std::mismatch(expected.begin(), expected.end(), found.begin(), found.end());
    if (wanted != expected.end() || got != found.end()) {
      m_corrupted.add(sequence);
      tellCorrupted(std::to_string(sequence),
                    sizeof(Header) + static_cast<std::size_t>(got - found.begin()),
                    wanted == expected.end() ? std::byte{0} : *wanted,
                    got == found.end() ? std::byte{0} : *got);
    }
  }

  void tellCorrupted(const std::string& sequence, std::size_t place, std::byte expected,
                     std::byte found) {
    if (m_told++ < kMostTold) {
      report(m_journal, NetworkEvent::DatagramCorrupted,
             {m_path.interface(), sequence, std::to_string(place),
              fmt::format("{:#04x}", std::to_integer<unsigned int>(expected)),
              fmt::format("{:#04x}", std::to_integer<unsigned int>(found))});
    }
  }

  void tell(Finding finding) { report(m_journal, finding.event, std::move(finding.parameters)); }

  void tellAll() {
    if (!m_broken && !tellLosses()) {  // what was on its way shares the fate of the connection
      tellEarlyEnd();
    }
    if (m_toSend < m_options.datagrams) {
      tellShortness();
    }
    if (m_told > kMostTold) {
      m_corrupted.count += m_unknown;
      tellTally(NetworkEvent::DatagramsCorrupted, m_corrupted);
    }
    tellTally(NetworkEvent::DatagramsRepeated, m_repeated);
    tellTally(NetworkEvent::Reordered, m_reordered);
    if (m_figures.arrived > 0) {
      report(
          m_journal, NetworkEvent::DatagramsVerified,
          {m_path.interface(), std::to_string(m_figures.arrived), std::to_string(m_figures.bytes)});
    }
  }

  /// @brief What was on its way may have arrived at the last moment; the rest was never sent.
  void tellEarlyEnd() {
    if (m_slow) {
      tell(m_path.slow(*m_slow, m_figures.bytes));
    } else if (m_sent < m_toSend && !isStorm()) {
      tell(m_path.slow({Pace::Fault::Kind::Stalled, m_inVain}, m_figures.bytes));
    }
  }

  void tellShortness() {
    const double seconds = std::chrono::duration<double>(m_options.pace.whole).count();
    report(m_journal, NetworkEvent::TimeIsOver,
           {m_path.interface(), fmt::format("{:.1f}", seconds),
            std::to_string(m_sent * 100 / m_options.datagrams)});
    if (std::optional<Finding> finding = m_path.poor(m_options.pace, m_figures.bytes)) {
      tell(std::move(*finding));
    }
  }

  /// @return whether the path has lost any
  bool tellLosses() {
    Tally lost;
    for (std::uint64_t sequence = 0; sequence < m_sent; ++sequence) {
      if (m_arrivals[sequence] == 0) {
        lost.add(sequence);
      }
    }
    // One whose number was damaged has arrived all the same.
    lost.count -= std::min(lost.count, m_unknown);
    if (isStorm()) {
      lost.count = std::min(lost.count, m_givenUp);  // the rest may wait behind the copies
    }
    if (lost.count == 0) {
      return false;
    }
    m_path.requirePresence();
    const std::uint64_t overran = std::min(lost.count, m_link.overruns());
    if (overran > 0) {
      report(m_journal, NetworkEvent::ReceiverOverran,
             {m_path.interface(), std::to_string(overran)});
      lost.count -= overran;
    }
    if (lost.count > 0) {
      tell(m_path.lost(lost.count, lost.first, m_sent));
    }
    return lost.count > 0;
  }

  void tellTally(NetworkEvent event, const Tally& tally) {
    if (tally.count > 0) {
      report(m_journal, event,
             {m_path.interface(), std::to_string(tally.count), std::to_string(tally.first)});
    }
  }

  DatagramLink& m_link;
  const DatagramOptions& m_options;
  const Path& m_path;
  RunJournal& m_journal;
  const std::uint64_t m_inFlight;
  Payload m_payload;
  std::uint64_t m_toSend;                ///< less than asked for when the time is over
  std::vector<std::uint8_t> m_arrivals;  ///< of each datagram: none, one, or more
  std::vector<std::byte> m_buffer;
  std::vector<std::byte> m_outgoing;
  DatagramFigures m_figures;
  std::uint64_t m_sent = 0;
  std::uint64_t m_settled = 0;  ///< arrived or given up
  std::uint64_t m_highest = 0;
  std::uint64_t m_givenUp = 0;   ///< of those that were settled: waited for in vain
  std::uint64_t m_unknown = 0;   ///< arrived with a header that is none
  std::uint64_t m_received = 0;  ///< whatever it was
  std::uint64_t m_extras = 0;    ///< of those: copies, and what nobody has sent
  Pace m_pace;
  std::optional<Pace::Fault> m_slow;     ///< why the path is as good as dead
  std::chrono::nanoseconds m_inVain{0};  ///< waited for what was given up
  std::chrono::nanoseconds m_idle{0};
  unsigned int m_silences = 0;  ///< waits in vain since the last arrival
  Tally m_corrupted;
  Tally m_repeated;
  Tally m_reordered;
  unsigned int m_told = 0;
  bool m_broken = false;
  bool m_stopped = false;
};

}  // namespace

DatagramFigures verifyDatagrams(DatagramLink& link, const DatagramOptions& options,
                                const Path& path, RunJournal& journal) {
  return DatagramRun(link, options, path, journal).run();
}

}  // namespace TarvexDiags::Network
