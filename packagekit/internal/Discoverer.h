#pragma once

#include <memory>
#include <string>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/contract/Privileges.h"
#include "packagekit/internal/DiscoverySession.h"

namespace TarvexDiags::PackageKit {

/// Where a discovery runs, and for how long.
struct DiscoveryPlace {
  std::string packageName;  ///< base name, for who is told of it
  std::string workerFile;   ///< empty: there is none
  std::string packageFile;
  Contract::Privileges privileges;  ///< what the process keeps of root's rights
  WorkerLimits limits;
};

/// Looks for the devices of a package, each time in a worker of its own: when it is asked for them,
/// or ahead, on a thread of its own, so that the packages of a client are looked through beside
/// each other. Thread-safe.
class Discoverer {
 public:
  Discoverer();
  Discoverer(const Discoverer&) = delete;
  Discoverer& operator=(const Discoverer&) = delete;
  /// Ends what was begun and nobody has asked for.
  ~Discoverer();

  /// Begins ahead; what was begun before is ended. Where no thread can be had nothing is begun.
  void begin(const DiscoverySetup& setup, const DiscoveryPlace& place);

  /// The devices: of the discovery that was begun with this setup, once, or of one that begins now.
  /// Waits for its end.
  Discovered find(const DiscoverySetup& setup, const DiscoveryPlace& place);

 private:
  class Ahead;

  System::Mutex m_lock;
  std::unique_ptr<Ahead> m_ahead TARVEXDIAGS_GUARDED_BY(m_lock);
};

}  // namespace TarvexDiags::PackageKit
