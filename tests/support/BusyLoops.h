#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace TarvexDiags::TestSupport {

/// Two loops a core that do nothing, at the priority of the processes in which tests run or
/// another.
class BusyLoops {
 public:
  explicit BusyLoops(int niceness = 10) {
    for (long left = 2 * sysconf(_SC_NPROCESSORS_ONLN); left > 0; --left) {
      const pid_t loop = fork();
      if (loop == 0) {
        setpriority(PRIO_PROCESS, 0, niceness);
        for (volatile bool isOver = false; !isOver;) {
        }
        _exit(0);
      }
      m_loops.push_back(loop);
    }
  }
  ~BusyLoops() {
    for (const pid_t loop : m_loops) {
      kill(loop, SIGKILL);
      waitpid(loop, nullptr, 0);
    }
  }
  BusyLoops(const BusyLoops&) = delete;
  BusyLoops& operator=(const BusyLoops&) = delete;

 private:
  std::vector<pid_t> m_loops;
};

}  // namespace TarvexDiags::TestSupport
