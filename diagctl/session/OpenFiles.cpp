#include "diagctl/session/OpenFiles.h"

#include <sys/resource.h>

#include <stdexcept>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

void allowOpenFiles(std::size_t needed) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= needed) {
    return;
  }
  const rlimit raised{needed, limit.rlim_max};
  if (limit.rlim_max < needed || setrlimit(RLIMIT_NOFILE, &raised) != 0) {
    throw std::runtime_error(
        tr("{} files may be open at once (see \"ulimit "
           "-n\"), and {} are needed: raise the limit, or "
           "run fewer tests at the same time",
           limit.rlim_max, needed));
  }
}

}  // namespace TarvexDiags::FrontEnd
