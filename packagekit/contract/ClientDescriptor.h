#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace TarvexDiags::PackageKit::Contract {

/// @brief Tells the packages of this process of a descriptor, by an environment variable. To be
/// called before other threads run. @return false, with errno, when that can't be.
[[nodiscard]] inline bool announceDescriptor(const char* variable, int descriptor) {
  struct stat identity {};
  const bool isKnown = fstat(descriptor, &identity) == 0;
  const std::string place = std::to_string(descriptor) + ":" + std::to_string(identity.st_dev) +
                            ":" + std::to_string(identity.st_ino);
  return isKnown && setenv(variable, place.c_str(), 1) == 0;
}

/// @brief The descriptor that the client has announced; -1 when there is none. A process that
/// inherits the variable has not the file, which device and inode tell.
inline int announcedDescriptor(const char* variable) {
  const char* const place = std::getenv(variable);
  int descriptor = -1;
  unsigned long device = 0;
  unsigned long inode = 0;
  struct stat identity {};
  const bool isThere =
      place != nullptr && std::sscanf(place, "%d:%lu:%lu", &descriptor, &device, &inode) == 3 &&
      fstat(descriptor, &identity) == 0 && identity.st_dev == device && identity.st_ino == inode;
  return isThere ? descriptor : -1;
}

}  // namespace TarvexDiags::PackageKit::Contract
