// A package that does nothing, and one test that tells the time.

#include <chrono>

#include "packagekit/PackageKit.h"

using namespace TarvexDiags::PackageKit;

static std::vector<Device> findDevices(const Environment&) {
  return {{.name = "Nothing", .resourceTag = "bench/nothing0"}};
}

static Verdict doNothing(TestContext&) {
  return passed();
}

static Verdict tellTheTime(TestContext& context) {
  for (int event = 0; event < 500; ++event) {
    context.sleepFor(std::chrono::milliseconds(1));
    context.information(
        1, {std::to_string(std::chrono::steady_clock::now().time_since_epoch().count())});
  }
  return passed();
}

TARVEX_PACKAGE(package) {
  package.discover(findDevices);
  package.test(1, doNothing);
  package.test(2, tellTheTime);
}
