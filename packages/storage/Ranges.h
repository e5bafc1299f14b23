#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace TarvexDiags::Storage {

/// @brief Numbers of blocks or sectors, joined where they follow each other.
class Ranges {
 public:
  /// @param first not below one that was added before
  void add(std::uint64_t first, std::uint64_t length);

  std::uint64_t total() const { return m_total; }
  std::size_t count() const { return m_ranges.size(); }

  /// @brief "4660-4669, 5000"; beyond some thousand the rest is a count, "and 12 more".
  std::string text() const;

 private:
  struct Range {
    std::uint64_t first = 0;
    std::uint64_t end = 0;  ///< behind the last
  };

  std::vector<Range> m_ranges;
  std::uint64_t m_total = 0;
};

}  // namespace TarvexDiags::Storage
