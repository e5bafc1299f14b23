// The package: the kernel's counters as one device, and what is counted as its tests.

#include <string>

#include "packagekit/PackageKit.h"
#include "packages/common/ContextJournal.h"
#include "packages/common/SystemRoot.h"
#include "packages/errors/CountedErrors.h"
#include "packages/errors/CrashRecords.h"

namespace TarvexDiags::Errors {
namespace {

using PackageKit::Device;
using PackageKit::Environment;
using PackageKit::Support;
using PackageKit::TestContext;
using PackageKit::TestRow;

std::vector<Device> findCounters(const Environment& environment) {
  Device device;
  device.name = "Counters of the kernel";
  device.resourceTag = environment.parentTag() + "/error-counters";
  device.properties = {{Common::kSystemRootProperty, Common::systemRootOf(environment)}};
  return {device};
}

/// For a look beforehand, of which nobody hears but whether it is possible.
class UnheardJournal : public RunJournal {
 public:
  void report(unsigned int /*code*/, std::vector<std::string> /*parameters*/) override {}
  void progress(unsigned int /*percent*/) override {}
  bool stopRequested() override { return false; }
};

using Look = void (*)(const std::string& device, const SystemFiles& files, RunJournal& journal);

TestRow row(int number, Look look) {
  return {.number = number,
          .body =
              [=](TestContext& context) {
                const std::string& device = context.device().name;
                return Common::judged(context, [&](RunJournal& journal) {
                  look(device, Common::filesOf(context.device()), journal);
                });
              },
          .support =
              [=](const Device& device, const Environment&) {
                try {
                  UnheardJournal unheard;
                  look(device.name, Common::filesOf(device), unheard);
                } catch (const NotSupported& refusal) {
                  return Common::unsupported(refusal);
                }
                return Support::yes();
              }};
}

}  // namespace

void define(PackageKit::Package& package) {
  package.discover(findCounters);
  package.reads({Common::kSystemRoot});
  package.tests({row(1, judgeMemory), row(2, judgePcie), row(3, judgeDisks),
                 row(4, judgeInterfaces), row(5, tellCrashRecords)});
}

}  // namespace TarvexDiags::Errors

TARVEX_PACKAGE(package) {
  TarvexDiags::Errors::define(package);
}
