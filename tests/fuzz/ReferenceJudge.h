#pragma once

// What a worker's messages and its end come to, read and judged without the kit's own code.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "packagekit/internal/Frame.h"
#include "packagekit/internal/WorkerProcess.h"

namespace TarvexDiags::Fuzz {

/// Not as an enumeration of the kit, so that the two cannot err alike.
enum class Came { Passed, Unusual, Failed };

/// An event with a code of a package, as it has to reach the client.
struct PackageEvent {
  std::uint64_t type = 0;  ///< 0 information, 1 warning, 2 error
  std::uint64_t code = 0;
  std::vector<std::string> parameters = {};

  bool operator==(const PackageEvent&) const = default;
};

inline bool isReserved(std::uint64_t code) {
  return code >= 9000 && code <= 9099;
}

/// The fields of a frame; nothing from the first on that is none.
class Fields {
 public:
  explicit Fields(std::string_view rest) : m_rest(rest) {}

  bool areSound() const { return m_areSound; }

  std::uint64_t number(std::uint64_t most = std::numeric_limits<std::uint64_t>::max()) {
    std::uint64_t value = 0;
    const std::string_view bytes = take(sizeof value);
    if (m_areSound) {
      std::memcpy(&value, bytes.data(), sizeof value);
      m_areSound = value <= most;
    }
    return m_areSound ? value : 0;
  }

  std::vector<std::string> texts() {
    std::vector<std::string> values;
    for (std::uint64_t left = number(4096); left > 0 && m_areSound; --left) {
      values.emplace_back(take(number(65536)));
    }
    return values;
  }

 private:
  std::string_view take(std::uint64_t size) {
    m_areSound = m_areSound && size <= m_rest.size();
    const std::string_view taken = m_areSound ? m_rest.substr(0, size) : std::string_view();
    m_rest.remove_prefix(taken.size());
    return taken;
  }

  std::string_view m_rest;
  bool m_areSound = true;
};

/// What one worker, with one test to run, was heard to say.
class Hearing {
 public:
  Hearing(std::string_view bytes, bool tellsLog, bool tellsThroughput)
      : m_tellsLog(tellsLog), m_tellsThroughput(tellsThroughput) {
    while (!bytes.empty() && !isBroken && hearFrame(bytes)) {
    }
  }

  bool isReady = false;
  bool hasBegun = false;
  bool isComplete = false;
  bool isBroken = false;  ///< what came next was no message, or none that could come then
  bool hasRaisedError = false;
  std::optional<PackageKit::TestEnding> ending = {};
  PackageEvent verdict = {};  ///< as a package's event, where it is one of its own
  std::vector<PackageEvent> events = {};
  std::size_t measurements = 0;
  std::size_t logLines = 0;
  std::size_t throughputs = 0;

 private:
  // Whether there was a whole one, or what cannot be one.
  bool hearFrame(std::string_view& bytes) {
    constexpr std::size_t headerSize = 16;
    constexpr std::uint32_t longest = 1024 * 1024 + (4096 + 64) * 8;
    if (bytes.size() < headerSize) {
      return false;
    }
    const auto length = part<std::uint32_t>(bytes, 8);
    isBroken =
        bytes.substr(0, 4) != "TVXK" || part<std::uint16_t>(bytes, 4) != 4 || length > longest;
    if (isBroken || bytes.size() - headerSize < length) {
      return isBroken;
    }
    constexpr std::size_t timeSize = 8;  // any is taken for one
    const std::string_view payload = bytes.substr(headerSize, length);
    isBroken = part<std::uint32_t>(bytes, 12) != checksumOf(payload) || length < timeSize ||
               !takeMessage(part<std::uint16_t>(bytes, 6), Fields(payload.substr(timeSize)));
    bytes.remove_prefix(headerSize + length);
    return true;
  }

  template <class Number>
  static Number part(std::string_view bytes, std::size_t place) {
    Number number{};
    std::memcpy(&number, bytes.data() + place, sizeof number);
    return number;
  }

  static std::uint32_t checksumOf(std::string_view payload) {
    std::uint32_t sum = 0x811c9dc5;
    for (const char byte : payload) {
      sum ^= static_cast<std::uint8_t>(byte);
      sum *= 0x01000193;
    }
    return sum;
  }

  bool isInTest() const { return hasBegun && !ending; }

  // Whether it may come now.
  bool takeMessage(unsigned int type, Fields fields) {
    switch (type) {
      case 3:
        isReady = true;
        return true;
      case 4: {
        const std::uint64_t position = fields.number();
        const bool isDue = fields.areSound() && isReady && !hasBegun && position == 0;
        hasBegun = hasBegun || isDue;
        return isDue;
      }
      case 5:
        fields.number(100);
        return fields.areSound();
      case 6:
        return takeEvent(fields);
      case 7:
        return takeEnd(fields);
      case 8: {
        const bool isDue = !isComplete && ending.has_value();
        isComplete = isComplete || isDue;
        return isDue;
      }
      default:
        return false;
    }
  }

  bool takeEvent(Fields fields) {
    PackageEvent event;
    event.type = fields.number(2);
    event.code = fields.number(std::numeric_limits<std::uint32_t>::max());
    event.parameters = fields.texts();
    if (!fields.areSound() || !isInTest()) {
      return false;
    }
    if (!isReserved(event.code)) {
      hasRaisedError = hasRaisedError || event.type == 2;
      events.push_back(std::move(event));
      return true;
    }
    const bool isMeasurement = event.code == 9062 && event.parameters.size() == 3;
    const bool isLogLine = event.code == 9064 && m_tellsLog && event.parameters.size() == 1;
    const bool isThroughput =
        event.code == 9065 && m_tellsThroughput && event.parameters.size() == 2;
    throughputs += event.type == 0 && isThroughput ? 1 : 0;
    measurements += event.type == 0 && isMeasurement ? 1 : 0;
    logLines += event.type == 0 && isLogLine ? 1 : 0;
    return event.type == 0 && (isMeasurement || isLogLine || isThroughput);
  }

  bool takeEnd(Fields fields) {
    using PackageKit::TestEnding;
    const std::uint64_t position = fields.number();
    const auto told = static_cast<TestEnding>(fields.number(5));
    const std::uint64_t code = fields.number(std::numeric_limits<std::uint32_t>::max());
    std::vector<std::string> words = fields.texts();
    if (!fields.areSound() || !isInTest() || position != 0 || !mayEnd(told, code, words.size())) {
      return false;
    }
    ending = told;
    verdict = {told == TestEnding::Failed ? 2U : 1U, code, std::move(words)};
    return true;
  }

  static bool mayEnd(PackageKit::TestEnding told, std::uint64_t code, std::size_t words) {
    using PackageKit::TestEnding;
    switch (told) {
      case TestEnding::Passed:
      case TestEnding::Stopped:
        return code == 0 && words == 0;
      case TestEnding::Unusual:
      case TestEnding::Failed:
        return !isReserved(code);
      case TestEnding::NotSupported:
        return code == 9040 && words == 2;
      case TestEnding::Trouble:
        break;
    }
    // What a process can see of itself: neither a crash nor a time-out nor a kill.
    const std::vector<std::uint64_t> known = {9003, 9004, 9005, 9006, 9007, 9013, 9014, 9017};
    const std::size_t due = code == 9005 ? 2 : 1;  // how it is known that the device is gone
    return words == due && std::find(known.begin(), known.end(), code) != known.end();
  }

  bool m_tellsLog;
  bool m_tellsThroughput;
};

/// What a test came to whose worker was heard like that.
/// @param isAborted before the test ended
inline Came judged(const Hearing& heard, const PackageKit::ProcessEnd& end, bool isAborted) {
  using PackageKit::TestEnding;
  const bool endedWell = end.kind != PackageKit::ProcessEnd::Kind::Signalled && end.number == 0;
  if (!heard.isReady || !heard.hasBegun) {
    return Came::Unusual;
  }
  if (!heard.ending) {
    return heard.hasRaisedError ? Came::Failed : Came::Unusual;
  }
  if (*heard.ending == TestEnding::Failed) {
    return Came::Failed;
  }
  const bool saysPassed = *heard.ending == TestEnding::Passed && !isAborted;
  if (heard.hasRaisedError) {
    return saysPassed ? Came::Unusual : Came::Failed;
  }
  const bool isSound = saysPassed && heard.isComplete && !heard.isBroken && endedWell;
  return isSound ? Came::Passed : Came::Unusual;
}

}  // namespace TarvexDiags::Fuzz
