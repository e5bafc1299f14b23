#include "packagekit/internal/Frame.h"

#include <algorithm>
#include <cstring>

#include "packagekit/contract/Texts.h"

namespace TarvexDiags::PackageKit {

namespace {

constexpr std::uint32_t kMagic = 0x4b585654;  // "TVXK"
constexpr std::uint16_t kVersion = 4;
constexpr std::size_t kLargestText = 64 * 1024;
constexpr std::size_t kLargestPayload = 1024 * 1024;
constexpr std::uint64_t kMostTexts = 4096;
// Texts that find no room are still there, as empty ones, and numbers are never left out.
constexpr std::size_t kLargestFrame = kLargestPayload + (kMostTexts + 64) * sizeof(std::uint64_t);

struct Header {
  std::uint32_t magic;
  std::uint16_t version;
  std::uint16_t type;
  std::uint32_t length;
  std::uint32_t checksum;
};
static_assert(sizeof(Header) == 16, "the header has no padding");

/// Nanoseconds of the clock; the first thing behind the header, before the fields.
using Time = std::int64_t;

// FNV-1a: not against malice, but against a test that writes into the wrong descriptor or memory.
std::uint32_t checksumOf(std::string_view bytes) {
  std::uint32_t hash = 2166136261U;
  for (const char byte : bytes) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
  }
  return hash;
}

}  // namespace

FrameWriter::FrameWriter(FrameType type, Clock::time_point time) : m_bytes(sizeof(Header), '\0') {
  Header header{kMagic, kVersion, static_cast<std::uint16_t>(type), 0, 0};
  std::memcpy(m_bytes.data(), &header, sizeof header);
  const Time nanoseconds = std::chrono::nanoseconds(time.time_since_epoch()).count();
  number(static_cast<std::uint64_t>(nanoseconds));
}

FrameWriter& FrameWriter::number(std::uint64_t value) {
  char bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  m_bytes.append(bytes, sizeof bytes);
  return *this;
}

FrameWriter& FrameWriter::text(std::string_view value) {
  const std::size_t room =
      kLargestPayload - std::min(kLargestPayload, m_bytes.size() + sizeof(std::uint64_t));
  const std::size_t size = std::min({value.size(), kLargestText, room});
  number(size);
  m_bytes.append(value.data(), size);
  return *this;
}

FrameWriter& FrameWriter::texts(const std::vector<std::string>& values) {
  const std::size_t count = std::min<std::size_t>(values.size(), kMostTexts);
  number(count);
  for (std::size_t index = 0; index < count; ++index) {
    text(values[index]);
  }
  return *this;
}

const std::string& FrameWriter::bytes() {
  Header header{};
  std::memcpy(&header, m_bytes.data(), sizeof header);
  const std::string_view payload = std::string_view(m_bytes).substr(sizeof header);
  header.length = static_cast<std::uint32_t>(payload.size());
  header.checksum = checksumOf(payload);
  std::memcpy(m_bytes.data(), &header, sizeof header);
  return m_bytes;
}

std::string_view Frame::take(std::size_t size) {
  if (size > m_payload.size() - m_position) {
    throw FrameError(Contract::kFrameTooShort);
  }
  const auto taken = std::string_view(m_payload).substr(m_position, size);
  m_position += size;
  return taken;
}

std::uint64_t Frame::number() {
  std::uint64_t value = 0;
  std::memcpy(&value, take(sizeof value).data(), sizeof value);
  return value;
}

std::uint64_t Frame::number(std::uint64_t limit) {
  const std::uint64_t value = number();
  if (value > limit) {
    throw FrameError(Contract::kFrameOutOfRange);
  }
  return value;
}

std::string Frame::text() {
  return std::string(take(number(kLargestText)));
}

std::vector<std::string> Frame::texts() {
  std::vector<std::string> values(number(kMostTexts));
  for (std::string& value : values) {
    value = text();
  }
  return values;
}

void FrameReader::add(const char* bytes, std::size_t size) {
  if (m_start > 0 && (m_start == m_buffer.size() || m_start > kLargestPayload)) {
    m_buffer.erase(0, m_start);
    m_start = 0;
  }
  m_buffer.append(bytes, size);
}

bool FrameReader::next(Frame& frame) {
  Header header{};
  if (unfinishedBytes() < sizeof header) {
    return false;
  }
  std::memcpy(&header, m_buffer.data() + m_start, sizeof header);
  if (header.magic != kMagic) {
    throw FrameError(Contract::kNoFrame);
  }
  if (header.version != kVersion) {
    throw FrameError(Contract::kFrameOfOtherVersion);
  }
  if (header.length > kLargestFrame) {
    throw FrameError(Contract::kFrameTooLong);
  }
  if (unfinishedBytes() - sizeof header < header.length) {
    return false;
  }
  std::string payload = m_buffer.substr(m_start + sizeof header, header.length);
  if (checksumOf(payload) != header.checksum) {
    throw FrameError(Contract::kFrameDamaged);
  }
  m_start += sizeof header + header.length;
  if (payload.size() < sizeof(Time)) {
    throw FrameError(Contract::kFrameTooShort);
  }
  Time time = 0;
  std::memcpy(&time, payload.data(), sizeof time);
  payload.erase(0, sizeof time);
  frame = Frame(static_cast<FrameType>(header.type), std::move(payload),
                FrameWriter::Clock::time_point(std::chrono::nanoseconds(time)));
  return true;
}

}  // namespace TarvexDiags::PackageKit
