#include "packages/storage/RecordBytes.h"

#include <algorithm>
#include <numeric>

namespace TarvexDiags::Storage {

std::uint8_t byteAt(Record record, std::size_t at) {
  return at < record.size() ? record[at] : 0;
}

std::uint64_t littleEndian(Record record, std::size_t at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t place = width; place-- > 0;) {
    value = value << 8 | byteAt(record, at + place);
  }
  return value;
}

std::uint64_t bigEndian(Record record, std::size_t at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t place = 0; place < width; ++place) {
    value = value << 8 | byteAt(record, at + place);
  }
  return value;
}

Record partOf(Record record, std::size_t at, std::size_t length) {
  const std::size_t from = std::min(at, record.size());
  return record.subspan(from, std::min(length, record.size() - from));
}

bool addsUpToZero(Record record) {
  return std::accumulate(record.begin(), record.end(), 0U) % 256 == 0;
}

std::string printable(Record text) {
  std::string clean;
  for (const std::uint8_t byte : text) {
    const bool isPrintable = byte >= ' ' && byte <= '~';
    clean += isPrintable ? static_cast<char>(byte) : byte == 0 ? ' ' : '?';
  }
  const auto first = clean.find_first_not_of(' ');
  const auto last = clean.find_last_not_of(' ');
  return first == std::string::npos ? std::string() : clean.substr(first, last - first + 1);
}

}  // namespace TarvexDiags::Storage
