#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "DiagCtrl/DiagnosticController.h"
#include "diagctl/report/RunEvents.h"

namespace TarvexDiags::FrontEnd {

class Texts;

/// Whether a test can run on a device.
enum class PairState {
  Enabled,
  Disabled,
  Unsupported,
  Impossible,  ///< the test is not for devices of this kind: nothing is said of the pair
};

struct TestItem {
  int id = 0;
  std::string name = {};
  std::string description = {};
  std::string capabilities = {};
  std::string openMode = {};
  int estimatedTime = 0;
  std::string localName = {};         ///< in the chosen language; empty: the name is told
  std::string localDescription = {};  ///< the same

  /// What people are told; who asks for the test calls it by its name or number.
  const std::string& toldName() const { return localName.empty() ? name : localName; }
  const std::string& toldDescription() const {
    return localDescription.empty() ? description : localDescription;
  }
};

struct DeviceItem {
  unsigned int id = 0;
  std::string name = {};
  std::string tag = {};
  std::string disableName = {};
  unsigned int status = 0;
  std::string statusText = {};  ///< in the chosen language; empty if the package has none
  std::uint64_t bytes = 0;      ///< how large it is; 0 where the package does not tell
};

struct PackageItem {
  int index = 0;
  std::string baseName = {};
  std::string name = {};
  std::string mnemonic = {};
  std::string version = {};
  std::string description = {};
  bool takesMachine = false;  ///< its tests run alone
  std::vector<TestItem> tests;
  std::vector<DeviceItem> devices;
  std::vector<int> withdrawnTests;  ///< withdrawn for this machine or operating system
  std::map<std::pair<unsigned int, int>, PairState> pairs;      ///< by device and test
  std::map<std::pair<unsigned int, int>, std::string> reasons;  ///< why not supported, if known
  std::map<std::pair<unsigned int, int>, SkipKind> skipKinds;   ///< the same in a word
  std::string localName = {};         ///< in the chosen language; empty: the name is told
  std::string localDescription = {};  ///< the same

  const std::string& toldName() const { return localName.empty() ? name : localName; }
  const std::string& toldDescription() const {
    return localDescription.empty() ? description : localDescription;
  }

  PairState stateOf(const DeviceItem& device, const TestItem& test) const;
  /// What the state of a pair means, for people: "not supported: there is no such sensor".
  std::string describe(const DeviceItem& device, const TestItem& test) const;
  /// The kind of reason for which a pair is skipped.
  SkipKind skipKindOf(const DeviceItem& device, const TestItem& test) const;
};

/// A package that is there and could not be used.
struct LostPackage {
  std::string baseName;
  std::string reason;  ///< for people
};

/// What an enumeration found, copied, so that it can be looked at without the controller.
struct Catalogue {
  std::vector<PackageItem> packages;
  std::vector<std::string> disabledPackages;  ///< base names that the control file left out
  std::vector<LostPackage> lostPackages;

  std::size_t numberOfDevices() const;
};

/// Fills in what packages and tests are called in the language of the texts.
/// @param texts must have kept those of the packages.
void addLocalNames(Catalogue& catalogue, const Texts& texts);

/// Reads the whole catalogue of an enumerated controller.
/// @param language for the texts of device statuses.
/// @throws ControllerFailure
Catalogue readCatalogue(DiagCtrl::DiagnosticController& controller, const std::string& language);

}  // namespace TarvexDiags::FrontEnd
