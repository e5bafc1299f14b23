#include "diagctl/session/LoaderWishes.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <optional>

#include "diagctl/report/OpenedFile.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kLongestText = 4096;
constexpr std::size_t kMostEntries = 65536;

std::string replaced(std::string text, const std::string& word, const std::string& value) {
  for (std::size_t at = text.find(word); at != std::string::npos;
       at = text.find(word, at + value.size())) {
    text.replace(at, word.size(), value);
  }
  return text;
}

std::string expanded(const std::string& element, const std::string& origin) {
  const std::string path = replaced(replaced(element, "${ORIGIN}", origin), "$ORIGIN", origin);
  return path.substr(0, path.find('$'));
}

/// A file whose numbers nobody has looked at yet.
class ObjectFile {
 public:
  explicit ObjectFile(const std::string& path)
      : m_file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    struct stat info {};
    ElfW(Ehdr) header{};
    if (!m_file || fstat(m_file.get(), &info) != 0 || !S_ISREG(info.st_mode) || !read(header, 0) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_phentsize != sizeof(ElfW(Phdr))) {
      return;
    }
    for (std::size_t index = 0; index < header.e_phnum; ++index) {
      ElfW(Phdr) segment{};
      if (!read(segment, header.e_phoff + index * sizeof segment)) {
        return;
      }
      m_segments.push_back(segment);
    }
  }

  std::optional<ElfW(Phdr)> segment(ElfW(Word) type) const {
    const auto found =
        std::find_if(m_segments.begin(), m_segments.end(),
                     [&](const ElfW(Phdr) & segment) { return segment.p_type == type; });
    return found == m_segments.end() ? std::nullopt : std::optional(*found);
  }

  std::vector<ElfW(Dyn)> dynamicEntries() const {
    std::vector<ElfW(Dyn)> entries;
    const auto place = segment(PT_DYNAMIC);
    ElfW(Dyn) entry{};
    while (place && entries.size() < kMostEntries &&
           read(entry, place->p_offset + entries.size() * sizeof entry) && entry.d_tag != DT_NULL) {
      entries.push_back(entry);
    }
    return entries;
  }

  /// The place in the file of what is loaded to an address.
  std::optional<std::size_t> offsetOf(ElfW(Addr) address) const {
    for (const ElfW(Phdr) & segment : m_segments) {
      if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
          address - segment.p_vaddr < segment.p_filesz) {
        return segment.p_offset + (address - segment.p_vaddr);
      }
    }
    return std::nullopt;
  }

  std::string text(std::size_t offset) const {
    std::string text(kLongestText, '\0');
    const ssize_t size = pread(m_file.get(), text.data(), text.size(), static_cast<off_t>(offset));
    text.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return text.substr(0, text.find('\0'));
  }

 private:
  template <class Structure>
  bool read(Structure& structure, std::size_t offset) const {
    return pread(m_file.get(), &structure, sizeof structure, static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(sizeof structure);
  }

  OpenedFile m_file;
  std::vector<ElfW(Phdr)> m_segments;
};

}  // namespace

std::vector<std::string> elementsOf(const std::string& list, const char* separators) {
  std::vector<std::string> elements;
  for (std::size_t begin = 0; !list.empty() && begin <= list.size();) {
    const std::size_t end = std::min(list.find_first_of(separators, begin), list.size());
    elements.push_back(end == begin ? "." : list.substr(begin, end - begin));
    begin = end + 1;
  }
  return elements;
}

LoaderWishes loaderWishesOf(const std::string& file) {
  const ObjectFile object(file);
  LoaderWishes wishes;
  if (const auto place = object.segment(PT_INTERP)) {
    wishes.interpreter = object.text(place->p_offset);
  }
  const std::vector<ElfW(Dyn)> entries = object.dynamicEntries();
  const auto table = std::find_if(entries.begin(), entries.end(),
                                  [](const ElfW(Dyn) & entry) { return entry.d_tag == DT_STRTAB; });
  const auto texts = table == entries.end() ? std::nullopt : object.offsetOf(table->d_un.d_ptr);
  if (!texts) {
    return wishes;
  }
  const std::string origin = std::filesystem::path(file).parent_path().string();
  for (const ElfW(Dyn) & entry : entries) {
    if (entry.d_tag == DT_NEEDED) {
      wishes.needed.push_back(object.text(*texts + entry.d_un.d_val));
    } else if (entry.d_tag == DT_RUNPATH || entry.d_tag == DT_RPATH) {
      for (const std::string& element : elementsOf(object.text(*texts + entry.d_un.d_val), ":")) {
        wishes.directories.push_back(expanded(element, origin));
      }
    }
  }
  return wishes;
}

}  // namespace TarvexDiags::FrontEnd
