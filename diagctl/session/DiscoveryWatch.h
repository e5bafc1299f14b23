#pragma once

#include <functional>
#include <map>
#include <string>

#include "System/Mutex.h"
#include "System/ThreadAnnotations.h"
#include "packagekit/contract/DiscoveryLines.h"

namespace TarvexDiags::FrontEnd {

/// Follows the packages while the controller has them look for their devices, which it waits for:
/// tells a person which of them takes long, has all of them end when the program was asked to, and
/// keeps why packages were left out. To be made before other threads run.
class DiscoveryWatch {
 public:
  /// Does something during which packages look for their devices. Lets through what that throws.
  void follow(const std::function<void()>& enumeration);

  /// Why packages were left out since the last call: for each, by base name, a reason for people.
  std::map<std::string, std::string> takeFailures();

 private:
  void listen(int end);
  void takeLines();

  const PackageKit::Contract::DiscoveryInbox m_inbox;
  bool m_hasEnded = false;  ///< discoveries were asked to end; touched by the thread that listens
  System::Mutex m_lock;
  std::map<std::string, std::string> m_failures TARVEXDIAGS_GUARDED_BY(m_lock);
};

}  // namespace TarvexDiags::FrontEnd
