#include "diagctl/session/Catalogue.h"

#include <fmt/format.h>

#include <memory>
#include <numeric>

#include "DeviceEnum/IDevice.h"
#include "diagctl/session/ControllerFailure.h"
#include "diagctl/session/Texts.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

using Controller = DiagCtrl::DiagnosticController;

std::string toString(const char* text) {
  return text != nullptr ? text : "";
}

/// The ids that a query hands out in a vector of the caller's.
template <class Query>
std::vector<int> idsOf(const std::string& what, Query query) {
  std::vector<int>* ids = nullptr;
  const Controller::errorCode code = query(ids);
  const std::unique_ptr<std::vector<int>> owned(ids);
  require(code, what);
  return *owned;
}

TestItem readTest(Controller& controller, int package, int id) {
  DiagCtrl::PackageTestInfo* info = nullptr;
  require(controller.getTest(package, static_cast<unsigned int>(id), info),
          tr("reading test {} of package {}", id, package));
  return {id,
          toString(info->getTestName()),
          toString(info->getTestDesc()),
          toString(info->getTestCapabilities()),
          toString(info->getTestOpenMode()),
          info->getTestEstimatedTime()};
}

DeviceItem readDevice(Controller& controller, const Texts& texts, int package, int id) {
  DeviceItem item;
  item.id = static_cast<unsigned int>(id);
  DiagCtrl::DiagDevice* device = nullptr;
  const std::string what = tr("reading device {} of package {}", id, package);
  require(controller.getDevice(package, item.id, device), what);
  const DeviceEnum::IDevice& described = *device->getIDevice();
  item.name = described.getDeviceName();
  item.tag = described.getResourceTag();
  item.disableName = described.getDisableDeviceName();
  require(controller.getDeviceStatus(package, id, item.status), what);
  item.statusText = texts.deviceStatus(package, item.status).value_or("");
  return item;
}

// What is neither enabled nor disabled on a device is not supported there.
void readPairs(Controller& controller, PackageItem& package) {
  for (const DeviceItem& device : package.devices) {
    for (const TestItem& test : package.tests) {
      package.pairs[{device.id, test.id}] = PairState::Unsupported;
    }
    const std::string what = tr("reading the tests of {}", device.name);
    for (const int test : idsOf(what, [&](auto*& ids) {
           return controller.getValidTestIdList(package.index, device.id, ids);
         })) {
      package.pairs[{device.id, test}] = PairState::Enabled;
    }
  }
  for (const TestItem& test : package.tests) {
    const std::string what = tr("reading the devices of {}", test.name);
    for (const int device : idsOf(what, [&](auto*& ids) {
           return controller.getDisableDeviceList(package.index, static_cast<unsigned int>(test.id),
                                                  ids);
         })) {
      package.pairs[{static_cast<unsigned int>(device), test.id}] = PairState::Disabled;
    }
  }
}

PackageItem readPackage(Controller& controller, const Texts& texts, int index) {
  DiagCtrl::DiagnosticPackage* description = nullptr;
  const std::string what = tr("reading package {}", index);
  require(controller.getDiagPackage(index, description), what);
  PackageItem item;
  item.index = index;
  item.baseName = toString(description->getPackageBaseName());
  item.name = toString(description->getPackageName());
  item.mnemonic = toString(description->getPackageMnemonic());
  item.version = toString(description->getPackageVersion());
  item.description = toString(description->getPackageDesc());
  item.takesMachine = description->checkSystemLock();
  for (const int test :
       idsOf(what, [&](auto*& ids) { return controller.getTestIdList(index, ids); })) {
    item.tests.push_back(readTest(controller, index, test));
  }
  for (const int device :
       idsOf(what, [&](auto*& ids) { return controller.getDeviceIdList(index, ids); })) {
    item.devices.push_back(readDevice(controller, texts, index, device));
  }
  item.withdrawnTests =
      idsOf(what, [&](auto*& ids) { return controller.getDisableTestList(index, ids); });
  readPairs(controller, item);
  return item;
}

std::vector<std::string> readDisabledPackages(Controller& controller) {
  DiagCtrl::PackageList* names = nullptr;
  require(controller.getDisablePackageList(names), tr("reading the packages that were left out"));
  const std::unique_ptr<DiagCtrl::PackageList> owned(names);
  return {owned->begin(), owned->end()};
}

}  // namespace

PairState PackageItem::stateOf(const DeviceItem& device, const TestItem& test) const {
  const auto entry = pairs.find({device.id, test.id});
  return entry != pairs.end() ? entry->second : PairState::Unsupported;
}

std::string PackageItem::describe(const DeviceItem& device, const TestItem& test) const {
  const auto reason = reasons.find({device.id, test.id});
  switch (stateOf(device, test)) {
    case PairState::Enabled:
      return tr("enabled");
    case PairState::Disabled:
      return tr("disabled by the package's configuration");
    case PairState::Unsupported:
    case PairState::Impossible:
      break;
  }
  return reason != reasons.end() ? tr("not supported: {}", reason->second) : tr("not supported");
}

SkipKind PackageItem::skipKindOf(const DeviceItem& device, const TestItem& test) const {
  const auto kind = skipKinds.find({device.id, test.id});
  return kind != skipKinds.end() ? kind->second : SkipKind::NotPossible;
}

std::size_t Catalogue::numberOfDevices() const {
  return std::accumulate(
      packages.begin(), packages.end(), std::size_t{0},
      [](std::size_t sum, const PackageItem& package) { return sum + package.devices.size(); });
}

void addLocalNames(Catalogue& catalogue, const Texts& texts) {
  for (PackageItem& package : catalogue.packages) {
    package.localName = texts.localName(package.index, "Package");
    package.localDescription = texts.localDescription(package.index, "Package");
    for (TestItem& test : package.tests) {
      const std::string section = fmt::format("TestID{}", test.id);
      test.localName = texts.localName(package.index, section);
      test.localDescription = texts.localDescription(package.index, section);
    }
  }
}

Catalogue readCatalogue(Controller& controller, const std::string& language) {
  const Texts texts(controller, language);
  Catalogue catalogue;
  int count = 0;
  require(controller.getNumberOfDiagPackages(count), tr("counting the packages"));
  for (int index = 1; index <= count; ++index) {
    DiagCtrl::DiagnosticPackage* package = nullptr;
    if (controller.getDiagPackage(index, package) == Controller::OBJECT_NOT_FOUND) {
      continue;  // lost when it was enumerated again
    }
    catalogue.packages.push_back(readPackage(controller, texts, index));
  }
  catalogue.disabledPackages = readDisabledPackages(controller);
  return catalogue;
}

}  // namespace TarvexDiags::FrontEnd
