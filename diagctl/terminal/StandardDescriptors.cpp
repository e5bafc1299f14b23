#include "diagctl/terminal/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace TarvexDiags::FrontEnd {

bool holdStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // The lowest free number is given, so it is this one. A directory cannot be written by way of
    // the links in /proc either, as the device that takes everything could.
    if (fcntl(descriptor, F_GETFD) < 0 && open("/", O_PATH | O_DIRECTORY) != descriptor) {
      return false;
    }
  }
  return true;
}

}  // namespace TarvexDiags::FrontEnd
