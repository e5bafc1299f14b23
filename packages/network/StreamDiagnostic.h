#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "packages/network/Pace.h"
#include "packages/network/Path.h"

namespace TarvexDiags::Network {

/// @brief Both ends of one connection, neither of which ever blocks. A seam: tests put faults into
/// it. Used by one thread at a time.
class StreamLink {
 public:
  StreamLink() = default;
  StreamLink(const StreamLink&) = delete;
  StreamLink& operator=(const StreamLink&) = delete;
  virtual ~StreamLink() = default;

  /// @brief Bytes taken over, 0 when there is no room now, or a negative errno.
  virtual std::int64_t send(std::span<const std::byte> bytes) = 0;
  /// @brief Bytes received, 0 when there are none now, or a negative errno.
  virtual std::int64_t receive(std::span<std::byte> buffer) = 0;
  /// @brief Waits until there is something to receive or room to send, or the time is over.
  virtual void wait(bool forRoom, std::chrono::milliseconds limit) = 0;
};

struct StreamOptions {
  std::uint64_t bytes = 0;  ///< to send over each connection
  std::uint64_t seed = 0;
  unsigned int connections = 1;  ///< each has a thread of its own
  /// Bytes on their way at most. What fits into the processor's cache makes a loopback fastest.
  std::uint64_t inFlight = std::uint64_t{256} << 10;
  PaceLimits pace;         ///< of all connections together; slower is an error
  double minimumRate = 0;  ///< bytes a second; slower is a warning
};

struct StreamFigures {
  std::uint64_t bytes = 0;  ///< received and compared
  std::chrono::nanoseconds elapsed{0};
  bool isWhole =
      false;  ///< every connection was made and kept to the end, or as long as it may last
};

/// @brief Makes the connection of the given number; called on the caller's thread. Null when the
/// test was stopped meanwhile; throws std::system_error when no connection can be made.
using StreamMaker = std::function<std::unique_ptr<StreamLink>(unsigned int number)>;

/// @brief Sends data over connections and compares every byte that arrives. Tells corrupted bytes,
/// bytes that were lost or came twice, and a connection that could not be made, broke or stood
/// still. What a slow path has not carried in its time is not sent. Throws std::system_error when
/// the kernel refuses a transfer for reasons of its own, and what the path throws when its
/// interface is gone.
///
/// Each connection's two ends are served by one thread, in turns: nothing waits for another thread,
/// and the data is still in the cache when it is compared.
StreamFigures verifyStreams(const StreamMaker& make, const StreamOptions& options, const Path& path,
                            RunJournal& journal);

}  // namespace TarvexDiags::Network
