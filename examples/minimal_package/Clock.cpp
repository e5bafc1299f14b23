#include <chrono>
#include <fstream>

#include "packagekit/PackageKit.h"

using namespace TarvexDiags::PackageKit;
using Clock = std::chrono::steady_clock;

static std::vector<Device> findClocks(const Environment&) {
  std::string source;
  std::getline(std::ifstream("/sys/devices/system/clocksource/clocksource0/current_clocksource"),
               source);
  return {{.name = "Clock (" + source + ")", .resourceTag = "host/clocksource0"}};
}

constexpr auto kReadings = required<long>("Readings");

static Verdict neverStepsBack(TestContext& context) {
  const long readings = context.value(kReadings);
  const auto start = Clock::now();
  auto last = start;
  for (long reading = 0; reading < readings; ++reading) {
    const auto next = Clock::now();
    if (next < last) {
      return failed(1, {std::to_string((last - next).count())});
    }
    last = next;
    context.throwIfStopped();
    context.progress(static_cast<unsigned int>(reading * 100 / readings));
  }
  context.measurement("reading", static_cast<double>((last - start).count() / readings), "ns");
  return passed();
}

TARVEX_PACKAGE(package) {
  package.discover(findClocks);
  package.test(1, neverStepsBack).reads({kReadings});
}
