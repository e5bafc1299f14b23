#include "DiagCtrl/internal/ground/AppendedFile.h"

#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ios>
#include <utility>

namespace TarvexDiags::DiagCtrl {

namespace {

constexpr int kFlags =
    O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t kMode = 0666;  // less what the umask takes

bool isRegular(int aiDescriptor) {
  struct stat status = {};
  return fstat(aiDescriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

bool openForAppending(std::ofstream& arStream, const std::string& arPath) {
  const int descriptor = open(arPath.c_str(), kFlags, kMode);
  if (descriptor >= 0 && isRegular(descriptor)) {
    // The standard's streams open names alone, and a name may lead elsewhere by then.
    __gnu_cxx::stdio_filebuf<char> buffer(descriptor, std::ios::out | std::ios::app);
    if (buffer.is_open()) {
      *arStream.rdbuf() = std::move(static_cast<std::filebuf&>(buffer));
      arStream.clear();
      return true;
    }
  }
  if (descriptor >= 0) {
    close(descriptor);
  }
  arStream.setstate(std::ios::failbit);
  return false;
}

}  // namespace TarvexDiags::DiagCtrl
