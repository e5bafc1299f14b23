#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "packagekit/UniqueDescriptor.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/internal/PoisonRecord.h"
#include "packagekit/internal/ReaperRecord.h"

namespace TarvexDiags::PackageKit {

/// How a process ended.
struct ProcessEnd {
  enum class Kind { Exited, Signalled, Unknown };  ///< unknown: somebody else took its status
  Kind kind = Kind::Unknown;
  int number = 0;  ///< exit status or signal
};

/// What a worker may do beside its work.
struct WorkerRights {
  Contract::Privileges privileges = {};  ///< of root's rights
  bool isDebugged = false;               ///< a debugger is to read it
};

/// One worker process: the leader of a process group of its own, with a socket to talk to it, a
/// pipe on which its standard output and error come, and a page for what it can't tell in any other
/// way. Of the host there gets into it the search path, language, time zone and directory of
/// temporary files, and nothing else: no other variable, no descriptor, no signal handler, no mask.
/// Its working directory is the root. It stays in the host's session, and so in its scheduling
/// group, as the nice value counts only against what is there.
///
/// The host's child is the worker's reaper: it passes signals on, and ends when the worker and all
/// that came of it have ended, those included that have left its group.
class WorkerProcess {
 public:
  /// Starts `executable` with the package's path; it makes itself `nice`, or as nice as the calling
  /// thread if that is more, before it loads the package. Throws std::system_error.
  /// @param purpose for whoever looks at the list of processes; empty: it runs a test.
  WorkerProcess(const std::string& executable, const std::string& packageFile, int nice,
                const WorkerRights& rights = {}, const std::string& purpose = {});

  /// Kills and reaps the process unless it was reaped or given up before.
  ~WorkerProcess();
  WorkerProcess(const WorkerProcess&) = delete;
  WorkerProcess& operator=(const WorkerProcess&) = delete;

  pid_t pid() const { return m_pid; }                              ///< of the reaper
  int socket() const { return m_socket.get(); }                    ///< non-blocking
  int output() const { return m_output.get(); }                    ///< non-blocking
  int processDescriptor() const { return m_pidDescriptor.get(); }  ///< readable at its end, or -1

  void closeOutput() { m_output.close(); }

  /// Whether all has ended; the process stays a zombie, so its id stays its own.
  bool hasEnded() const;

  /// Whether the worker is at its end but for threads that the kernel does not let go: its leader
  /// is a zombie or about to be one, and the others sleep where no signal reaches them. What is on
  /// its way out is seen like that for moments, too.
  bool isHeldInKernel() const;

  /// Has SIGSTOP, SIGCONT, SIGTERM or SIGKILL sent to the worker's whole group.
  void signalGroup(int signal) const;

  /// Kills what is left of the group of a process that was no reaper, has ended and was not reaped
  /// yet.
  void killRest() const;

  /// Takes the status of a worker that has ended.
  ProcessEnd reap();

  /// The poisoned memory that the process has met; nothing when it met none, or took care of it
  /// itself.
  std::optional<PoisonRecord> poison() const;

  /// Leaves the process to itself: it can't be ended.
  void giveUp() { m_pid = -1; }

  /// The call by which signals are sent, as an order to a reaper, or with a negative id to a group
  /// itself, unless a test puts another one there.
  static int (*sendSignal)(pid_t target, int signal, ReaperRecord& reaper);

 private:
  struct Unmap {
    void operator()(ReaperRecord* record) const;
  };
  bool isZombie() const;

  pid_t m_pid = -1;
  UniqueDescriptor m_socket;
  UniqueDescriptor m_output;
  UniqueDescriptor m_pidDescriptor;
  UniqueDescriptor m_records;  ///< see PoisonRecord and ReaperRecord
  std::unique_ptr<ReaperRecord, Unmap> m_reaper;
};

/// Takes the status of a given-up process that has ended meanwhile. @return false while it lives
bool reapIfEnded(pid_t pid);

}  // namespace TarvexDiags::PackageKit
