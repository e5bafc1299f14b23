#pragma once

#include <string>
#include <vector>

#include "DiagCtrl/GlobalSettings.h"

namespace TarvexDiags::FrontEnd {

/// Has the packages look for their devices beside each other, before the controller asks one after
/// the other. Packages that cannot be loaded or begin nothing ahead are left to the controller.
class AheadDiscovery {
 public:
  /// Loads the packages that a control file does not name to be left out, whatever machine it names
  /// them for. They stay loaded as long as the object is there, which must be until they were
  /// enumerated: what was begun ends with them.
  explicit AheadDiscovery(const std::string& controlFile);
  ~AheadDiscovery();
  AheadDiscovery(const AheadDiscovery&) = delete;
  AheadDiscovery& operator=(const AheadDiscovery&) = delete;

  /// Begins with all of them.
  void begin(DiagCtrl::GlobalSettings::diagMode mode) const;

 private:
  struct Package {
    std::string description;
    void* library;
  };

  std::string m_logDirectory;
  std::vector<Package> m_packages;
};

}  // namespace TarvexDiags::FrontEnd
