// The process in which the tests of a package run. It loads the package and lets it do the rest.
//
// Usage: tarvex-package-worker <package> <process id of the host> <nice> <privileges> <debugged>
// [<purpose>], started by the kit alone: the socket to the host is descriptor 3, what both share in
// memory descriptor 4. The process that the host starts is the reaper; the worker is its child. The
// purpose is for whoever looks at the list of processes.

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include "packagekit/PhysicalAddress.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/worker/Confinement.h"
#include "packagekit/worker/PoisonWatch.h"
#include "packagekit/worker/Reaper.h"

static const int kSocket = 3;
static const int kUnusable = 126;

// When memory runs out the kernel shall take the test and not the program that runs it.
static void becomeFirstVictim() {
  const int file = open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
  if (file >= 0) {
    const ssize_t written = write(file, "1000", 4);
    (void)written;
    close(file);
  }
}

// A test takes what is left of the processor, so that the host keeps up with all tests. A host that
// is nicer itself has been told to be.
static void makeNice(long nice) {
  if (getpriority(PRIO_PROCESS, 0) < nice) {
    setpriority(PRIO_PROCESS, 0, static_cast<int>(nice));
  }
}

int main(int count, char** arguments) {
  namespace Kit = TarvexDiags::PackageKit;
  if (count != 6 && count != 7) {
    fprintf(stderr,
            "usage: %s <package> <host> <nice> <privileges> <debugged> [<purpose>], started by a "
            "diagnostic package\n",
            arguments[0]);
    return kUnusable;
  }
  const auto host = static_cast<pid_t>(strtol(arguments[2], nullptr, 10));
  Kit::renounceMore();
  Kit::runBelowReaper(host);
  becomeFirstVictim();
  makeNice(strtol(arguments[3], nullptr, 10));
  // What was printed before a crash is told, so it may not wait in a buffer.
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  fcntl(kSocket, F_SETFD, FD_CLOEXEC);
  Kit::watchForPoison();
  Kit::openPageMap();
  Kit::useKeptPageMap();
  const bool isDebugged = strtol(arguments[5], nullptr, 10) != 0;
  if (!Kit::confine(Kit::Contract::privilegesFrom(arguments[4]), host, isDebugged)) {
    return kUnusable;
  }

  void* const package = dlopen(arguments[1], RTLD_LAZY);
  if (package == nullptr) {
    fprintf(stderr, "%s\n", dlerror());
    return kUnusable;
  }
  void* const entry = dlsym(package, "runPackageWorker");
  if (entry == nullptr) {
    fprintf(stderr, "%s\n", dlerror());
    return kUnusable;
  }
  return reinterpret_cast<int (*)(int)>(entry)(kSocket);
}
