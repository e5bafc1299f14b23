#include "diagctl/command/Listing.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string>

#include "diagctl/report/Figures.h"
#include "diagctl/session/PackageSettings.h"
#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"
#include "packagekit/contract/Capabilities.h"
#include "packagekit/contract/Texts.h"

namespace TarvexDiags::FrontEnd {

namespace {

namespace Contract = PackageKit::Contract;

constexpr std::size_t kLeastHeads = 5;  ///< columns of what a plan does with a test

std::string statusOf(const DeviceItem& device) {
  return device.statusText.empty() ? tr("status {}", device.status) : device.statusText;
}

std::string privilegesOf(const TestRemarks& remarks) {
  return remarks.privileges.empty() ? tr("none") : remarks.privileges;
}

// What it is called, and what to ask for it by where that is something else.
template <class Item>
std::string nameToAskFor(const Item& item) {
  return item.localName.empty() ? item.name : item.localName + Contract::inBrackets(item.name);
}

void showPackage(Printer& out, const PackageItem& package, const std::string& directory) {
  out.say("package {}: {} ({}, {}) version {}\n  {}\n", package.index, nameToAskFor(package),
          package.baseName, package.mnemonic, package.version, package.toldDescription());
  out.print("  {}, {}{}\n", trn("1 device", "{} devices", package.devices.size()),
            trn("1 test", "{} tests", package.tests.size()),
            package.takesMachine ? tr(", its tests run alone") : std::string());
  for (const TestItem& test : package.tests) {
    out.say("  test {} {}: root's rights that it keeps: {}\n", test.id, nameToAskFor(test),
            privilegesOf(remarksOfTest(directory, package.baseName, test.id)));
  }
  for (const int test : package.withdrawnTests) {
    out.say("  test {} is withdrawn for this machine or operating system\n", test);
  }
}

// It stands beside the name, which stays the same when memory is plugged.
std::string sizeOf(const DeviceItem& device) {
  return device.bytes > 0 ? describeCoverage(static_cast<double>(device.bytes), 0) : "";
}

bool isPossible(const PackageItem& package, const DeviceItem& device, const TestItem& test) {
  return package.stateOf(device, test) != PairState::Impossible;
}

void showDevice(Printer& out, const PackageItem& package, const DeviceItem& device) {
  out.say("device {} of {}: {}\n  tag {}\n  {}\n", device.id, package.toldName(), device.name,
          device.tag, statusOf(device));
  if (device.bytes > 0) {
    out.say("  size {}\n", sizeOf(device));
  }
  for (const TestItem& test : package.tests) {
    if (isPossible(package, device, test)) {
      out.say("  test {} {}: {}\n", test.id, nameToAskFor(test), package.describe(device, test));
    }
  }
}

void showRemarks(Printer& out, const TestItem& test, const TestRemarks& remarks) {
  if (!remarks.needs.empty()) {
    out.say("  needs {}\n", remarks.needs);
  }
  if (Contract::hasCapability(test.capabilities, Contract::kDestructive)) {
    out.say("  runs only with --allow-disruptive\n");
  }
  if (!test.openMode.empty()) {
    out.say("  opens the device {}\n", test.openMode);
  }
  if (!remarks.writes.empty()) {
    out.say("  writes {}\n", remarks.writes);
  }
  out.say("  root's rights that it keeps: {}\n", privilegesOf(remarks));
}

void showSettings(Printer& out, const std::vector<SettingItem>& settings) {
  if (settings.empty()) {
    return;
  }
  Table table({tr("  SETTING"), tr("VALUE"), tr("UNIT"), tr("MEANING")});
  for (const SettingItem& item : settings) {
    table.add({"  " + item.key, item.value.empty() ? "-" : item.value, item.unit, item.meaning});
  }
  table.write(out);
}

void showTest(Printer& out, const PackageItem& package, const TestItem& test,
              const std::string& directory) {
  out.say("test {} of {}: {}\n  {}\n", test.id, package.toldName(), nameToAskFor(test),
          test.toldDescription());
  showRemarks(out, test, remarksOfTest(directory, package.baseName, test.id));
  if (test.estimatedTime != 0) {
    out.say("  takes about {} s\n", test.estimatedTime);
  }
  for (const DeviceItem& device : package.devices) {
    if (isPossible(package, device, test)) {
      out.say("  on {}: {}\n", device.name, package.describe(device, test));
    }
  }
  showSettings(out, settingsOfTest(directory, package.baseName, test.id));
}

/// The devices of a test by what it is there: enabled, disabled, or not supported for a reason.
std::map<std::string, std::string> devicesByState(const PackageItem& package,
                                                  const TestItem& test) {
  std::map<std::string, std::string> devices;
  for (const DeviceItem& device : package.devices) {
    if (isPossible(package, device, test)) {
      std::string& names = devices[package.describe(device, test)];
      names += (names.empty() ? "" : ", ") + device.name;
    }
  }
  return devices;
}

}  // namespace

void listPackages(Printer& out, const Catalogue& catalogue) {
  Table table({tr("NO"), tr("PACKAGE"), tr("VERSION"), tr("NAME"), tr("DEVICES"), tr("TESTS")});
  for (const PackageItem& package : catalogue.packages) {
    table.add({std::to_string(package.index), package.mnemonic, package.version,
               nameToAskFor(package), std::to_string(package.devices.size()),
               std::to_string(package.tests.size())});
  }
  for (const std::string& name : catalogue.disabledPackages) {
    table.add({"-", name, "", tr("disabled by the control file")});
  }
  for (const LostPackage& package : catalogue.lostPackages) {
    table.add({"-", package.baseName, "", tr("left out: {}", package.reason)});
  }
  table.write(out);
}

void listDevices(Printer& out, const Catalogue& catalogue) {
  Table table({tr("PACKAGE"), tr("NO"), tr("DEVICE"), tr("SIZE"), tr("TAG"), tr("STATUS")});
  for (const PackageItem& package : catalogue.packages) {
    for (const DeviceItem& device : package.devices) {
      table.add({package.mnemonic, std::to_string(device.id), device.name, sizeOf(device),
                 device.tag, statusOf(device)});
    }
  }
  table.write(out);
}

void listTests(Printer& out, const Catalogue& catalogue) {
  Table table({tr("PACKAGE"), tr("NO"), tr("TEST")});
  for (const PackageItem& package : catalogue.packages) {
    for (const TestItem& test : package.tests) {
      table.add({package.mnemonic, std::to_string(test.id), nameToAskFor(test)});
      for (const auto& [state, names] : devicesByState(package, test)) {
        table.add({"", "", fmt::format("  {}: {}", state, names)});
      }
    }
    for (const int test : package.withdrawnTests) {
      table.add({package.mnemonic, std::to_string(test),
                 tr("withdrawn for this machine or operating system")});
    }
  }
  table.write(out);
}

void listPlaces(Printer& out, const Configuration& configuration) {
  out.say("\nControl file: {}\n", configuration.origin());
  for (const std::string& directory : configuration.packageDirectories()) {
    out.say("Packages:     {}\n", directory);
  }
  for (const std::string& overlay : configuration.overlays()) {
    out.say("Settings:     {}\n", overlay);
  }
  if (!configuration.isEmbedded()) {
    out.say("Logs:         {}\n", logDirectoryOf(configuration.path()));
  }
}

bool showItem(Printer& out, const Catalogue& catalogue, const std::string& pattern,
              const std::string& directory) {
  bool isFound = false;
  for (const PackageItem& package : catalogue.packages) {
    if (matchesPackage(pattern, package)) {
      showPackage(out, package, directory);
      isFound = true;
    }
    for (const DeviceItem& device : package.devices) {
      if (matchesDevice(pattern, device)) {
        showDevice(out, package, device);
        isFound = true;
      }
    }
    for (const TestItem& test : package.tests) {
      if (matchesTest(pattern, test)) {
        showTest(out, package, test, directory);
        isFound = true;
      }
    }
  }
  return isFound;
}

void tellWarnings(Printer& out, const std::vector<std::string>& warnings) {
  for (const std::string& warning : warnings) {
    out.write("diagctl: " + warning + "\n");
  }
}

void listPlan(Printer& out, const std::vector<SelectedPair>& pairs) {
  const std::string run = tr("run");
  const std::string skip = tr("skip");
  const std::size_t width = std::max({kLeastHeads, columnsOf(run), columnsOf(skip)});
  for (const SelectedPair& pair : pairs) {
    const bool isRun = pair.state == PairState::Enabled;
    out.print(
        "{} {}{}\n", padded(isRun ? run : skip, width),
        tr("{}: {} on {}", pair.package->toldName(), pair.test->toldName(), pair.device->name),
        isRun ? "" : " (" + pair.package->describe(*pair.device, *pair.test) + ")");
  }
}

}  // namespace TarvexDiags::FrontEnd
