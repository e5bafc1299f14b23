#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TarvexDiags::PackageKit {

/// What a frame on the socket between host and worker says. Its fields follow in this order.
enum class FrameType : std::uint16_t {
  Setup = 1,          ///< host: the pass; see PassSetup
  Stop = 2,           ///< host: end the test soon
  Ready = 3,          ///< worker: the package is loaded. Process id
  TestBegin = 4,      ///< worker: position of the test in the setup's list
  Progress = 5,       ///< worker: percent of the test
  Event = 6,          ///< worker: type, code, parameters
  TestEnd = 7,        ///< worker: position, TestEnding, code, parameters
  PassEnd = 8,        ///< worker: nothing more will come
  Discover = 9,       ///< host: where to look for devices; see DiscoverySetup
  DeviceFound = 10,   ///< worker: see FoundDevice
  DiscoveryEnd = 11,  ///< worker: number of devices, what went wrong (empty: nothing)
};

/// How a test ended, as the worker saw it.
enum class TestEnding : std::uint16_t {
  Passed = 0,
  Unusual = 1,
  Failed = 2,
  NotSupported = 3,
  Stopped = 4,
  Trouble = 5,  ///< the code is one of the kit's errors
};

/// Bytes that are no frame, or a frame with wrong contents.
class FrameError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Builds one frame. Both ends run on one machine and load one shared object, so numbers go in the
/// machine's own order; the header's version guards against a package that was replaced meanwhile.
/// A frame carries the time at which it was begun: it may be read much later, by a host that was
/// stopped or is busy. The clock is the one that both ends have in common and nobody sets.
class FrameWriter {
 public:
  using Clock = std::chrono::steady_clock;

  explicit FrameWriter(FrameType type, Clock::time_point time = Clock::now());
  FrameWriter& number(std::uint64_t value);
  FrameWriter& text(std::string_view value);
  FrameWriter& texts(const std::vector<std::string>& values);

  /// The whole frame, header included. Texts of several hundred kilobytes are cut to fit.
  const std::string& bytes();

 private:
  std::string m_bytes;
};

/// One received frame. The fields are taken in order; each throws FrameError when there is none.
class Frame {
 public:
  Frame() = default;
  Frame(FrameType type, std::string payload, FrameWriter::Clock::time_point time = {})
      : m_type(type), m_time(time), m_payload(std::move(payload)) {}

  FrameType type() const { return m_type; }
  /// When it was begun, as its sender says.
  FrameWriter::Clock::time_point time() const { return m_time; }
  std::uint64_t number();
  std::string text();
  std::vector<std::string> texts();

  /// A number that must not be above the limit.
  std::uint64_t number(std::uint64_t limit);

  std::size_t size() const { return m_payload.size(); }
  /// Whether all fields were taken.
  bool isAtEnd() const { return m_position == m_payload.size(); }

 private:
  std::string_view take(std::size_t size);

  FrameType m_type = FrameType::Stop;
  FrameWriter::Clock::time_point m_time;
  std::string m_payload;
  std::size_t m_position = 0;
};

/// Cuts a stream of bytes into frames. What is left when the stream ends was cut off in mid-frame.
class FrameReader {
 public:
  void add(const char* bytes, std::size_t size);

  /// Takes the next whole frame; false when there is none yet. Throws FrameError for bytes that
  /// cannot be one, and then the stream is of no further use.
  bool next(Frame& frame);

  std::size_t unfinishedBytes() const { return m_buffer.size() - m_start; }

 private:
  std::string m_buffer;
  std::size_t m_start = 0;
};

}  // namespace TarvexDiags::PackageKit
