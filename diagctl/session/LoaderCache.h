#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// The list of shared objects that the system has made for the dynamic loader, which looks there
/// for what no run path and no variable leads to.
class LoaderCache {
 public:
  static constexpr const char* kFile = "/etc/ld.so.cache";

  /// Reads the list; of a file that is none, or that is damaged, what there is of one.
  explicit LoaderCache(const std::string& file = kFile);

  /// The paths that it has for a name, for whichever processor.
  std::vector<std::string> pathsOf(std::string_view name) const;

 private:
  std::size_t numberAt(std::size_t offset) const;
  std::string_view textAt(std::size_t offset) const;

  std::string m_list;  ///< from its head on
  std::size_t m_entries = 0;
};

}  // namespace TarvexDiags::FrontEnd
