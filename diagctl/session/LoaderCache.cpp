#include "diagctl/session/LoaderCache.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>

namespace TarvexDiags::FrontEnd {

namespace {

// A list of the older format may stand in front. Places of texts count from the head.
constexpr std::string_view kBegin = "glibc-ld.so.cache1.1";
constexpr std::size_t kNumberOfEntries = kBegin.size();
constexpr std::size_t kFirstEntry = 48;
constexpr std::size_t kSizeOfEntry = 24;
constexpr std::size_t kName = 4;  // within an entry
constexpr std::size_t kPath = 8;

}  // namespace

LoaderCache::LoaderCache(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  m_list.assign(std::istreambuf_iterator<char>(stream), {});
  m_list.erase(0, std::min(m_list.find(kBegin), m_list.size()));
  if (m_list.size() >= kFirstEntry) {
    m_entries = std::min(numberAt(kNumberOfEntries), (m_list.size() - kFirstEntry) / kSizeOfEntry);
  }
}

std::vector<std::string> LoaderCache::pathsOf(std::string_view name) const {
  const std::string ended = std::string(name) + '\0';
  std::vector<std::string> paths;
  for (std::size_t index = 0; index < m_entries; ++index) {
    const std::size_t entry = kFirstEntry + index * kSizeOfEntry;
    const std::size_t text = std::min(numberAt(entry + kName), m_list.size());
    if (m_list.compare(text, ended.size(), ended) == 0) {
      paths.emplace_back(textAt(numberAt(entry + kPath)));
    }
  }
  return paths;
}

std::size_t LoaderCache::numberAt(std::size_t offset) const {
  std::uint32_t number = 0;
  std::memcpy(&number, m_list.data() + offset, sizeof number);
  return number;
}

std::string_view LoaderCache::textAt(std::size_t offset) const {
  const std::string_view rest = std::string_view(m_list).substr(std::min(offset, m_list.size()));
  return rest.substr(0, rest.find('\0'));
}

}  // namespace TarvexDiags::FrontEnd
