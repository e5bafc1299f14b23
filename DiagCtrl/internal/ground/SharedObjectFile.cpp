#include "DiagCtrl/internal/ground/SharedObjectFile.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace TarvexDiags::DiagCtrl {

namespace {

class OpenFile {
 public:
  explicit OpenFile(const char* apcPath)
      : miDescriptor(open(apcPath, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~OpenFile() {
    if (miDescriptor >= 0) {
      close(miDescriptor);
    }
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  /// Size of a regular file; 0 for anything else.
  unsigned long size() const {
    struct stat status = {};
    const bool isFile =
        miDescriptor >= 0 && fstat(miDescriptor, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? static_cast<unsigned long>(status.st_size) : 0;
  }

  template <class Structure>
  bool read(Structure& arStructure, unsigned long aulOffset) const {
    return pread(miDescriptor, &arStructure, sizeof arStructure, static_cast<off_t>(aulOffset)) ==
           static_cast<ssize_t>(sizeof arStructure);
  }

 private:
  int miDescriptor;
};

bool isCutOff(const char* apcPath) {
  const OpenFile file(apcPath);
  const unsigned long size = file.size();
  ElfW(Ehdr) header;
  if (size == 0 || !file.read(header, 0) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
      header.e_phentsize != sizeof(ElfW(Phdr))) {
    return false;
  }
  for (unsigned long index = 0; index < header.e_phnum; ++index) {
    ElfW(Phdr) segment;
    if (!file.read(segment, header.e_phoff + index * sizeof segment)) {
      return true;
    }
    const bool isMapped = segment.p_type == PT_LOAD;
    if (isMapped && (segment.p_filesz > size || segment.p_offset > size - segment.p_filesz)) {
      return true;
    }
  }
  return false;
}

// Judged without opening it: that alone can block, or set a device going.
bool isSpecial(const char* apcPath) {
  struct stat status = {};
  return stat(apcPath, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

const char* faultOfSharedObject(const char* apcPath) {
  if (apcPath == nullptr || std::strchr(apcPath, '/') == nullptr) {
    return nullptr;
  }
  if (isSpecial(apcPath)) {
    return "not a file";
  }
  return isCutOff(apcPath) ? "file is cut off" : nullptr;
}

}  // namespace TarvexDiags::DiagCtrl
