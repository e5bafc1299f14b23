#include "diagctl/command/Listing.h"

#include <fmt/format.h>

#include <map>
#include <string>

#include "diagctl/terminal/Printer.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

std::string statusOf(const DeviceItem& device) {
  return device.statusText.empty() ? tr("status {}", device.status) : device.statusText;
}

void showPackage(Printer& out, const PackageItem& package) {
  out.say("package {}: {} ({}, {}) version {}\n  {}\n", package.index, package.name,
          package.baseName, package.mnemonic, package.version, package.description);
  out.say("  {} devices, {} tests{}\n", package.devices.size(), package.tests.size(),
          package.takesMachine ? tr(", its tests run alone") : std::string());
  for (const int test : package.withdrawnTests) {
    out.say("  test {} is withdrawn for this machine or operating system\n", test);
  }
}

void showDevice(Printer& out, const PackageItem& package, const DeviceItem& device) {
  out.say("device {} of {}: {}\n  tag {}\n  {}\n", device.id, package.name, device.name, device.tag,
          statusOf(device));
  for (const TestItem& test : package.tests) {
    out.say("  test {} {}: {}\n", test.id, test.name, package.describe(device, test));
  }
}

void showTest(Printer& out, const PackageItem& package, const TestItem& test) {
  out.say("test {} of {}: {}\n  {}\n", test.id, package.name, test.name, test.description);
  if (!test.openMode.empty()) {
    out.say("  opens the device {}\n", test.openMode);
  }
  if (test.estimatedTime != 0) {
    out.say("  takes about {} s\n", test.estimatedTime);
  }
  for (const DeviceItem& device : package.devices) {
    out.say("  on {}: {}\n", device.name, package.describe(device, test));
  }
}

/// The devices of a test by what it is there: enabled, disabled, or not supported for a reason.
std::map<std::string, std::string> devicesByState(const PackageItem& package,
                                                  const TestItem& test) {
  std::map<std::string, std::string> devices;
  for (const DeviceItem& device : package.devices) {
    std::string& names = devices[package.describe(device, test)];
    names += (names.empty() ? "" : ", ") + device.name;
  }
  return devices;
}

}  // namespace

void listPackages(Printer& out, const Catalogue& catalogue) {
  for (const PackageItem& package : catalogue.packages) {
    out.say("{:3}  {:<12} {:<8} {:<24} {:>3} devices {:>3} tests\n", package.index,
            package.mnemonic, package.version, package.name, package.devices.size(),
            package.tests.size());
  }
  for (const std::string& name : catalogue.disabledPackages) {
    out.say("  -  {:<12} disabled by the control file\n", name);
  }
}

void listDevices(Printer& out, const Catalogue& catalogue) {
  for (const PackageItem& package : catalogue.packages) {
    for (const DeviceItem& device : package.devices) {
      out.print("{:<12} {:>3}  {:<28} {:<32} {}\n", package.mnemonic, device.id, device.name,
                device.tag, statusOf(device));
    }
  }
}

void listTests(Printer& out, const Catalogue& catalogue) {
  for (const PackageItem& package : catalogue.packages) {
    for (const TestItem& test : package.tests) {
      out.print("{:<12} {:>3}  {}\n", package.mnemonic, test.id, test.name);
      for (const auto& [state, names] : devicesByState(package, test)) {
        out.print("                   {}: {}\n", state, names);
      }
    }
    for (const int test : package.withdrawnTests) {
      out.say("{:<12} {:>3}  withdrawn for this machine or operating system\n", package.mnemonic,
              test);
    }
  }
}

bool showItem(Printer& out, const Catalogue& catalogue, const std::string& pattern) {
  bool isFound = false;
  for (const PackageItem& package : catalogue.packages) {
    if (matchesPackage(pattern, package)) {
      showPackage(out, package);
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
        showTest(out, package, test);
        isFound = true;
      }
    }
  }
  return isFound;
}

bool tellUnmatched(Printer& out, const Catalogue& catalogue, const SelectionPatterns& patterns) {
  const std::vector<std::string> unmatched = unmatchedPatterns(catalogue, patterns);
  for (const std::string& pattern : unmatched) {
    out.say("diagctl: nothing matches {}\n", pattern);
  }
  return unmatched.empty();
}

void tellWarnings(Printer& out, const std::vector<std::string>& warnings) {
  for (const std::string& warning : warnings) {
    out.write("diagctl: " + warning + "\n");
  }
}

void listPlan(Printer& out, const std::vector<SelectedPair>& pairs) {
  for (const SelectedPair& pair : pairs) {
    const bool isRun = pair.state == PairState::Enabled;
    out.say("{:<5} {}: {} on {}{}\n", isRun ? tr("run") : tr("skip"), pair.package->name,
            pair.test->name, pair.device->name,
            isRun ? "" : " (" + pair.package->describe(*pair.device, *pair.test) + ")");
  }
}

}  // namespace TarvexDiags::FrontEnd
