#include "tests/packages/network/BrokenListing.h"

#include <dirent.h>
#include <dlfcn.h>

#include <cerrno>

namespace TarvexDiags::Network::BrokenListing {
namespace {

int failing = kNever;
int entries = 0;

}  // namespace

void failFrom(int entry) {
  failing = entry;
  entries = 0;
}

}  // namespace TarvexDiags::Network::BrokenListing

// In front of the C library's, for the whole test program.
extern "C" __attribute__((visibility("default"))) dirent* readdir(DIR* folder) {
  using namespace TarvexDiags::Network::BrokenListing;
  using Readdir = dirent* (*)(DIR*);
  static const auto kOriginal = reinterpret_cast<Readdir>(dlsym(RTLD_NEXT, "readdir"));
  if (failing != kNever && ++entries >= failing) {
    errno = EIO;
    return nullptr;
  }
  return kOriginal(folder);
}
