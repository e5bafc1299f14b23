#include "packages/storage/Ranges.h"

#include <algorithm>

namespace TarvexDiags::Storage {

void Ranges::add(std::uint64_t first, std::uint64_t length) {
  m_total += length;
  if (!m_ranges.empty() && m_ranges.back().end == first) {
    m_ranges.back().end += length;
  } else {
    m_ranges.push_back({first, first + length});
  }
}

std::string Ranges::text() const {
  constexpr std::size_t kMostTold = 2048;  // what an event can carry ends at 64 KiB
  std::string text;
  for (std::size_t index = 0; index < std::min(m_ranges.size(), kMostTold); ++index) {
    const Range& range = m_ranges[index];
    text += (index == 0 ? "" : ", ") + std::to_string(range.first);
    if (range.end - range.first > 1) {
      text += "-" + std::to_string(range.end - 1);
    }
  }
  if (m_ranges.size() > kMostTold) {
    text += ", and " + std::to_string(m_ranges.size() - kMostTold) + " more";
  }
  return text;
}

}  // namespace TarvexDiags::Storage
