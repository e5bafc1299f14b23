#include "diagctl/session/OpenFiles.h"

#include <sys/resource.h>

#include <algorithm>
#include <stdexcept>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

void allowOpenFiles(OpenFiles files) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= files.wanted) {
    return;
  }
  const rlimit raised{std::min<rlim_t>(files.wanted, limit.rlim_max), limit.rlim_max};
  const rlim_t allowed = setrlimit(RLIMIT_NOFILE, &raised) == 0 ? raised.rlim_cur : limit.rlim_cur;
  if (allowed < files.needed) {
    throw std::runtime_error(tr(
        "{} files may be open at once (see \"ulimit -n\"), and {} are needed: raise the limit, or "
        "run fewer tests at the same time",
        allowed, files.needed));
  }
}

}  // namespace TarvexDiags::FrontEnd
