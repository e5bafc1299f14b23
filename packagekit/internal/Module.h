#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/Exports.h"
#include "packagekit/Package.h"
#include "packagekit/Settings.h"
#include "packagekit/internal/Discoverer.h"

namespace TarvexDiags::PackageKit {

/// The one object behind the exports of a loaded package: where its files are, what its author
/// defined, and which of its devices hang. Lives from the first export called until the shared
/// object is closed. Thread-safe.
class Module {
 public:
  static Module& instance();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  ~Module();

  void setConfigFile(const char* file);
  void setLogDirectory(const char* directory);
  Settings settings() const;

  /// The package's base name: that of its configuration file.
  std::string baseName() const;

  /// A file in the log directory, by default the package's own log, named after it; a name with a
  /// "/" is taken as it is. Empty without a log directory.
  std::string logFile(const std::string& name = {}) const;
  void log(const std::string& line) const;

  /// Reads the names of the tests, once for each time that the configuration file was set: it may
  /// be gone when they are to be told.
  void keepTestNames();
  /// The name of a test; "?" for one that has none.
  std::string testName(int testId);

  /// The author's package, filled at the first call. Null when that failed, which the log tells.
  const Package* package(DefineFunction define);

  /// What discovery and predicates are given.
  Environment environment(DiagnosticMode mode) const;

  /// The path of this package's shared object.
  const std::string& packageFile() const { return m_packageFile; }

  /// The worker executable: named by the key `WorkerPath`, or the first one found beside the
  /// package and in the places where it is built and installed. Empty when there is none. Looked
  /// for once for each time that the configuration file was set.
  std::string workerFile();

  /// Looks for the devices; waits for the end of that. One that nothing can end is taken note of.
  Discovered discover(DiagnosticMode mode, const std::string& resourceString,
                      unsigned int deviceType);
  /// Begins to look for them ahead, in the place that the configuration file names.
  void beginDiscovery(DiagnosticMode mode);

  /// Workers that nothing can end, by the resource tag of their device.
  void markHung(const std::string& resourceTag, pid_t worker);
  std::optional<pid_t> hungWorker(const std::string& resourceTag) const;
  /// One that was aborted and ends as soon as the kernel lets go of it: what it waits for there may
  /// come, or not.
  void markLeaving(const std::string& resourceTag, pid_t worker);
  /// Nothing once it has ended.
  std::optional<pid_t> leavingWorker(const std::string& resourceTag);
  /// Nobody waits for their ends any more.
  void forgetHung();

 private:
  Module();
  void reapForgotten() TARVEXDIAGS_REQUIRES(m_lock);
  std::string findWorker() const TARVEXDIAGS_REQUIRES(m_lock);
  DiscoverySetup discoverySetup(DiagnosticMode mode, const std::string& resourceString,
                                unsigned int deviceType) const;
  DiscoveryPlace discoveryPlace();
  Contract::Privileges discoveryPrivileges();

  const std::string m_packageFile;
  mutable System::Mutex m_lock;
  std::string m_configFile TARVEXDIAGS_GUARDED_BY(m_lock);
  std::string m_logDirectory TARVEXDIAGS_GUARDED_BY(m_lock);
  std::string m_workerFile TARVEXDIAGS_GUARDED_BY(m_lock);
  std::optional<std::map<int, std::string>> m_testNames TARVEXDIAGS_GUARDED_BY(m_lock);
  bool m_defined TARVEXDIAGS_GUARDED_BY(m_lock) = false;
  std::unique_ptr<Package> m_package TARVEXDIAGS_GUARDED_BY(m_lock);
  std::map<std::string, pid_t> m_hung TARVEXDIAGS_GUARDED_BY(m_lock);
  std::map<std::string, pid_t> m_leaving TARVEXDIAGS_GUARDED_BY(m_lock);
  std::vector<pid_t> m_forgotten TARVEXDIAGS_GUARDED_BY(m_lock);
  Discoverer m_discoverer;
};

}  // namespace TarvexDiags::PackageKit
