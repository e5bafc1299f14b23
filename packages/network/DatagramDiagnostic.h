#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>

#include "packages/network/Pace.h"
#include "packages/network/Path.h"

namespace TarvexDiags::Network {

/// @brief Both ends of a path for datagrams, neither of which ever blocks. A seam, as StreamLink.
class DatagramLink {
 public:
  DatagramLink() = default;
  DatagramLink(const DatagramLink&) = delete;
  DatagramLink& operator=(const DatagramLink&) = delete;
  virtual ~DatagramLink() = default;

  /// @brief The datagram's length, 0 when there is no room now, or a negative errno.
  virtual std::int64_t send(std::span<const std::byte> datagram) = 0;
  /// @brief The length of one datagram, 0 when there is none now, or a negative errno.
  virtual std::int64_t receive(std::span<std::byte> buffer) = 0;
  /// @brief Waits until there is something to receive, or the time is over.
  virtual void wait(std::chrono::milliseconds limit) = 0;

  /// @brief How many datagrams of that length the receiver's buffer surely holds.
  virtual std::uint64_t capacity(std::size_t /*length*/) const {
    return std::numeric_limits<std::uint64_t>::max();
  }
  /// @brief How many the receiver has thrown away so far because its buffer was full.
  virtual std::uint64_t overruns() const { return 0; }
};

struct DatagramOptions {
  std::uint64_t datagrams = 0;
  std::uint64_t seed = 0;
  std::size_t longest;  ///< bytes, at least 64; all lengths from the header's on occur
  /// Datagrams on their way at most: few enough for a socket's buffer, so that none may be lost.
  std::uint64_t inFlight = 32;
  std::chrono::milliseconds patience = std::chrono::seconds(1);  ///< for those that are late
  /// After so many waits in a row without an arrival, or so many losses, the path is as good as
  /// dead, and the rest is not sent.
  unsigned int mostSilences = 3;
  std::uint64_t mostLosses = 256;
  PaceLimits pace = {.stall = std::chrono::seconds(5)};  ///< a slower path is as good as dead too
  /// Copies and strange datagrams for each that was sent; a path that brings more makes a storm.
  std::uint64_t mostExtras = 4;
};

struct DatagramFigures {
  std::uint64_t arrived = 0;
  std::uint64_t bytes = 0;
};

/// @brief Sends numbered datagrams of all lengths and compares every byte that arrives. Tells those
/// that were lost, came twice or in another order, or were corrupted. What found no room in the
/// receiver's buffer is no loss. Ends early on a path that is as good as dead, brings endless
/// copies or needs more time than it gets, and tells what was found until then. Throws
/// std::system_error when the kernel refuses one for reasons of its own, and what the path throws
/// when its interface is gone.
DatagramFigures verifyDatagrams(DatagramLink& link, const DatagramOptions& options,
                                const Path& path, RunJournal& journal);

}  // namespace TarvexDiags::Network
