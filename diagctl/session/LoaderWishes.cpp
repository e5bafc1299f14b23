#include "diagctl/session/LoaderWishes.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/utsname.h>

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

/// The values of one of the loader's words, each in both ways to write it.
std::vector<std::string> replacedByEach(const std::vector<std::string>& texts,
                                        const std::string& word,
                                        const std::vector<std::string>& values) {
  std::vector<std::string> results;
  for (const std::string& text : texts) {
    for (const std::string& value : values) {
      results.push_back(replaced(replaced(text, "${" + word + "}", value), "$" + word, value));
      if (results.back() == text) {
        break;
      }
    }
  }
  return results;
}

std::vector<std::string> platforms() {
  utsname system{};
  uname(&system);
  return {system.machine, "haswell", "xeon_phi"};
}

/// The first line of a script holds its interpreter and one argument.
void readScript(const std::string& begin, LoaderWishes& wishes) {
  static constexpr const char* kBlanks = " \t";
  const std::string line = begin.substr(2, begin.find('\n') - 2);
  const std::size_t name = std::min(line.find_first_not_of(kBlanks), line.size());
  const std::size_t end = std::min(line.find_first_of(kBlanks, name), line.size());
  wishes.interpreter = line.substr(name, end - name);
  const std::size_t argument = line.find_first_not_of(kBlanks, end);
  if (argument != std::string::npos) {
    wishes.argument = line.substr(argument, line.find_last_not_of(kBlanks) + 1 - argument);
  }
}

/// A file whose numbers nobody has looked at yet.
class ObjectFile {
 public:
  explicit ObjectFile(const std::string& path)
      : m_file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    struct stat info {};
    ElfW(Ehdr) header{};
    if (!m_file || fstat(m_file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
      m_file = OpenedFile();
      return;
    }
    if (!read(header, 0) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
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

std::vector<std::string> expansionsOf(const std::string& path, const std::string& file) {
  if (path.find('$') == std::string::npos) {
    return {path};
  }
  const std::string origin = std::filesystem::path(file).parent_path().string();
  return replacedByEach(
      replacedByEach(replacedByEach({path}, "ORIGIN", {origin}), "LIB",
                     {"lib", "lib64", "lib/" + platforms().front() + "-linux-gnu"}),
      "PLATFORM", platforms());
}

std::vector<std::string> variantDirectoriesOf(const std::string& directory) {
  std::vector<std::string> directories;
  for (const char* const name :
       {"glibc-hwcaps", "tls", "haswell", "xeon_phi", "avx512_1", "x86_64"}) {
    directories.push_back(directory + "/" + name);
  }
  return directories;
}

LoaderWishes loaderWishesOf(const std::string& file) {
  const ObjectFile object(file);
  LoaderWishes wishes;
  if (const std::string begin = object.text(0); begin.starts_with("#!")) {
    readScript(begin, wishes);
    return wishes;
  }
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
  wishes.keepsToItself = std::any_of(entries.begin(), entries.end(), [](const ElfW(Dyn) & entry) {
    return entry.d_tag == DT_RUNPATH;
  });
  const ElfW(Sxword) kindOfPath = wishes.keepsToItself ? DT_RUNPATH : DT_RPATH;
  for (const ElfW(Dyn) & entry : entries) {
    if (entry.d_tag == DT_NEEDED) {
      wishes.needed.push_back(object.text(*texts + entry.d_un.d_val));
    } else if (entry.d_tag == kindOfPath) {
      for (const std::string& element : elementsOf(object.text(*texts + entry.d_un.d_val), ":")) {
        const std::vector<std::string> each = expansionsOf(element, file);
        wishes.directories.insert(wishes.directories.end(), each.begin(), each.end());
      }
    }
  }
  return wishes;
}

}  // namespace TarvexDiags::FrontEnd
