#include "packages/network/StreamDiagnostic.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packages/common/KeptException.h"
#include "packages/network/Patience.h"
#include "packages/network/Payload.h"

namespace TarvexDiags::Network {
namespace {

using Clock = std::chrono::steady_clock;

/// @brief What the connections' threads share.
class Shared {
 public:
  Shared(const StreamOptions& options, const Path& path, RunJournal& journal)
      : m_options(options), m_path(path), m_journal(journal) {}

  /// @brief From any of the threads; beyond a number of faults there is nothing new to learn.
  void tell(NetworkEvent event, std::vector<std::string> parameters) {
    const System::LockHold hold(m_lock);
    if (m_told++ < kMostTold) {
      parameters.insert(parameters.begin(), m_path.interface());
      report(m_journal, event, std::move(parameters));
    }
  }

  /// @brief The end of a connection before its time.
  void tellEnd(Finding finding) {
    const System::LockHold hold(m_lock);
    m_cut = true;
    // Of several connections over one path that is filtered, one says it all.
    if (finding.event != NetworkEvent::PathFiltered || !std::exchange(m_toldFilter, true)) {
      report(m_journal, finding.event, std::move(finding.parameters));
    }
  }

  /// @brief Counts, tells the progress, and says whether to go on.
  bool advance(std::uint64_t bytes) {
    const std::uint64_t done = m_done += bytes;
    const std::uint64_t total = m_options.bytes * m_options.connections;
    const auto percent = static_cast<unsigned int>(total == 0 ? 100 : done * 100 / total);
    const bool isNewPercent = percent != m_percent.exchange(percent);
    const System::LockHold hold(m_lock);
    m_journal.processed(static_cast<double>(bytes) / 1e6, "MB");
    if (isNewPercent) {
      m_journal.progress(percent);
    }
    // At each step: on a slow link a percent takes many seconds.
    m_stop = m_stop || m_journal.stopRequested();
    return !m_stop && m_told < kMostTold;
  }

  bool askWhetherStopped() {
    const System::LockHold hold(m_lock);
    m_stop = m_stop || m_journal.stopRequested();
    return m_stop;
  }

  void stop() { m_stop = true; }
  void endByTime() { m_isShort = true; }
  const Path& path() const { return m_path; }
  std::uint64_t done() const { return m_done; }
  bool stopped() const { return m_stop; }
  bool isCut() const { return m_cut; }
  bool isShort() const { return m_isShort; }

 private:
  static constexpr unsigned int kMostTold = 32;

  const StreamOptions& m_options;
  const Path& m_path;
  RunJournal& m_journal TARVEXDIAGS_GUARDED_BY(m_lock);
  System::Mutex m_lock;
  std::atomic<std::uint64_t> m_done{0};
  std::atomic<unsigned int> m_percent{0};
  std::atomic<unsigned int> m_told{0};
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_cut{false};
  std::atomic<bool> m_isShort{false};
  bool m_toldFilter TARVEXDIAGS_GUARDED_BY(m_lock) = false;
};

/// @brief One connection: sends ahead, receives, compares.
class Lane {
 public:
  Lane(StreamLink& link, const StreamOptions& options, unsigned int number, Shared& shared)
      : m_link(link),
        m_options(options),
        m_shared(shared),
        m_payload(options.seed + number),
        m_buffer(Payload::kLongest),
        m_pace(options.pace) {}

  void run() {
    while (m_position < m_options.bytes) {
      const bool sent = send();
      const std::uint64_t received = receive();
      if (m_broken || (received > 0 && !m_shared.advance(received))) {
        return;
      }
      if (sent || received > 0) {
        m_pace.go();
        m_looked = {};
      } else if (!waitForMore()) {
        return;
      }
    }
  }

 private:
  /// @brief How many bytes more may be on their way now.
  std::uint64_t maySend() const {
    const std::uint64_t onTheirWay = m_sent - std::min(m_sent, m_position);
    return std::min(m_options.inFlight - std::min(onTheirWay, m_options.inFlight),
                    m_options.bytes - m_sent);
  }

  bool send() {
    const std::uint64_t room = maySend();
    if (room == 0) {
      return false;
    }
    const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(room, Payload::kLongest));
    const std::int64_t taken = checked(m_link.send(m_payload.at(m_sent, length)));
    m_sent += static_cast<std::uint64_t>(taken);
    return taken > 0;
  }

  std::uint64_t receive() {
    const auto bytes = static_cast<std::size_t>(checked(m_link.receive(m_buffer)));
    const auto found = std::span<const std::byte>(m_buffer).first(bytes);
    const auto expected = m_payload.at(m_position, bytes);
    if (std::memcmp(found.data(), expected.data(), bytes) == 0) {
      m_position += bytes;
    } else {
      examine(found);
    }
    return bytes;
  }

  std::int64_t checked(std::int64_t result) {
    if (result >= 0) {
      return result;
    }
    m_shared.tellEnd(m_shared.path().broken(static_cast<int>(-result)));
    m_broken = true;
    return 0;
  }

  bool waitForMore() {
    const auto waited = countedWait(Patience::kLook, [&](std::chrono::milliseconds atMost) {
      m_link.wait(maySend() > 0, atMost);
    });
    if (m_shared.askWhetherStopped()) {
      return false;
    }
    std::optional<Pace::Fault> fault = m_pace.wait(waited, m_shared.done());
    if (m_pace.isOver() && m_position == 0 && !fault) {
      fault = Pace::Fault{Pace::Fault::Kind::Stalled, m_pace.idle()};  // not slow but dead
    }
    if (m_pace.idle() - m_looked >= Pace::kPause) {
      m_shared.path().requirePresence();
      m_looked = m_pace.idle();
    }
    if (fault) {
      m_shared.tellEnd(m_shared.path().slow(*fault, m_position));
    } else if (m_pace.isOver()) {
      m_shared.endByTime();
    }
    return !fault && !m_pace.isOver();
  }

  /// @brief Goes through bytes that are not as expected, and finds the way back into the stream.
  void examine(std::span<const std::byte> found) {
    while (!found.empty()) {
      const auto expected = m_payload.at(m_position, found.size());
      const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), found.begin());
      const auto good = static_cast<std::size_t>(got - found.begin());
      m_position += good;
      found = found.subspan(good);
      if (found.empty()) {
        return;
      }
      found = found.subspan(explain(found));
    }
  }

  /// @brief Tells one fault, whose bytes begin the span. Returns how many of them to skip.
  std::size_t explain(std::span<const std::byte> found) {
    const std::optional<std::uint64_t> place = m_payload.find(found, m_position);
    if (place && *place != m_position) {
      const bool lost = *place > m_position;
      const std::uint64_t bytes = lost ? *place - m_position : m_position - *place;
      m_shared.tell(lost ? NetworkEvent::BytesLost : NetworkEvent::BytesRepeated,
                    {std::to_string(m_position), std::to_string(bytes)});
      m_position = *place;
      return 0;
    }
    const std::size_t length = lengthOfFault(found);
    tellCorrupted(found.first(length));
    m_position += length;
    return length;
  }

  /// @brief Bytes until the stream is right again for a while.
  std::size_t lengthOfFault(std::span<const std::byte> found) const {
    constexpr std::size_t quiet = 32;
    const auto expected = m_payload.at(m_position, found.size());
    std::size_t length = 1;
    for (std::size_t at = 1; at < found.size() && at < length + quiet; ++at) {
      if (found[at] != expected[at]) {
        length = at + 1;
      }
    }
    return length;
  }

  void tellCorrupted(std::span<const std::byte> found) {
    const auto expected = m_payload.at(m_position, found.size());
    int bits = 0;
    for (std::size_t at = 0; at < found.size(); ++at) {
      bits += std::popcount(std::to_integer<unsigned int>(found[at] ^ expected[at]));
    }
    m_shared.tell(NetworkEvent::Corrupted,
                  {std::to_string(m_position),
                   fmt::format("{:#04x}", std::to_integer<unsigned int>(expected.front())),
                   fmt::format("{:#04x}", std::to_integer<unsigned int>(found.front())),
                   std::to_string(bits)});
  }

  StreamLink& m_link;
  const StreamOptions& m_options;
  Shared& m_shared;
  Payload m_payload;
  std::vector<std::byte> m_buffer;
  std::uint64_t m_sent = 0;
  std::uint64_t m_position = 0;  ///< of the next byte in the stream
  Pace m_pace;
  std::chrono::nanoseconds m_looked{0};  ///< the wait at which the interface was last seen
  bool m_broken = false;
};

/// @brief Runs the lanes, each on a thread; throws what one of them threw.
void runLanes(std::vector<std::unique_ptr<Lane>>& lanes, Shared& shared) {
  Common::KeptException failure;
  std::vector<std::jthread> threads;
  for (const auto& lane : lanes) {
    threads.emplace_back([&, runner = lane.get()] {
      try {
        runner->run();
      } catch (...) {
        failure.keep(std::current_exception());
        shared.stop();
      }
    });
  }
  threads.clear();  // joins
  failure.rethrow();
}

/// @brief Makes the connections. @return false when there is nothing to send over
bool connectLanes(const StreamMaker& make, const StreamOptions& options, Shared& shared,
                  std::vector<std::unique_ptr<StreamLink>>& links,
                  std::vector<std::unique_ptr<Lane>>& lanes) {
  for (unsigned int number = 0; number < options.connections; ++number) {
    try {
      links.push_back(make(number));
    } catch (const std::system_error& error) {
      shared.tellEnd(shared.path().notConnected(error.code().value()));
      return false;
    }
    if (!links.back()) {
      shared.stop();
      return false;
    }
    lanes.push_back(std::make_unique<Lane>(*links.back(), options, number, shared));
  }
  return true;
}

/// @brief Of a path that was given up for its time: how much it carried.
void tellShortness(const StreamFigures& figures, const StreamOptions& options, const Path& path,
                   RunJournal& journal) {
  const std::uint64_t total = options.bytes * options.connections;
  const double seconds = std::chrono::duration<double>(options.pace.whole).count();
  report(journal, NetworkEvent::TimeIsOver,
         {path.interface(), fmt::format("{:.1f}", seconds),
          std::to_string(figures.bytes * 100 / total)});
  if (std::optional<Finding> finding = path.poor(options.pace, figures.bytes)) {
    report(journal, finding->event, std::move(finding->parameters));
  }
}

}  // namespace

StreamFigures verifyStreams(const StreamMaker& make, const StreamOptions& options, const Path& path,
                            RunJournal& journal) {
  Shared shared(options, path, journal);
  std::vector<std::unique_ptr<StreamLink>> links;
  std::vector<std::unique_ptr<Lane>> lanes;
  if (!connectLanes(make, options, shared, links, lanes)) {
    return {};
  }
  const auto begin = Clock::now();
  runLanes(lanes, shared);
  const bool isWhole = !shared.stopped() && !shared.isCut();
  const StreamFigures figures{shared.done(), Clock::now() - begin, isWhole};
  if (!isWhole) {
    return figures;
  }
  const double seconds = std::chrono::duration<double>(figures.elapsed).count();
  const double rate = seconds > 0 ? static_cast<double>(figures.bytes) / seconds : 0;
  report(journal, NetworkEvent::StreamVerified,
         {path.interface(), std::to_string(figures.bytes), rateText(rate),
          std::to_string(options.connections)});
  if (shared.isShort()) {
    tellShortness(figures, options, path, journal);
  }
  if (rate < options.minimumRate) {
    report(journal, NetworkEvent::SlowerThanAsked,
           {path.interface(), rateText(rate), rateText(options.minimumRate)});
  }
  return figures;
}

}  // namespace TarvexDiags::Network
