#include "tests/controller/stress/Cast.h"

#include <array>

namespace TarvexDiags::TestSupport {

namespace {

using Scripted::Device;
using Scripted::Habits;

std::vector<Device> devicesOf(const std::vector<std::string>& tags) {
  std::vector<Device> devices;
  for (const std::string& tag : tags) {
    devices.push_back({.tag = tag, .name = tag});
  }
  return devices;
}

Habits badHabits(Random& random, bool isParallel) {
  Habits habits;
  habits.keepsReportingCompleted = oneIn(random, 2);
  habits.completesEarly = oneIn(random, 3);
  habits.completesOnAbort = oneIn(random, 2);
  habits.losesEvents = oneIn(random, 2);
  habits.ignoresAbort = oneIn(random, 3);
  habits.forgetsAbort = oneIn(random, 4);
  habits.givesEmptyVectors = oneIn(random, 2);
  habits.neverCompletes = isParallel && oneIn(random, 4);
  return habits;
}

Role quickRole(const std::string& name) {
  std::vector<std::string> tags;
  for (int number = 1; number <= 8; ++number) {
    tags.push_back(name + "/" + name + "-" + std::to_string(number));
  }
  return {.devices = devicesOf(tags), .weight = 20};
}

/// In half of the lives, two with each run mode, most requests are for one package.
const char* favouriteOf(unsigned int seed) {
  static constexpr std::array<const char*, 4> kFavourites = {"STICKY", nullptr, nullptr, "WHOLE"};
  return kFavourites[seed / 2 % kFavourites.size()];
}

}  // namespace

Cast castOf(unsigned int seed, bool isParallel, bool isQuick) {
  Random random(seed);
  Cast cast;
  cast["ALPHA"] = {.devices = devicesOf({"p/x", "p/y", "p"}), .weight = 4};
  cast["BETA"] = {.devices = devicesOf({"q/x", "p/q/z", "q"}), .weight = 4};
  cast["STICKY"] = {.devices = devicesOf({"p/s", "s/t"}),
                    .habits = {.keepsReportingCompleted = true},
                    .weight = isQuick ? 1U : 3U,
                    .isPatient = !isQuick,
                    .isSlowToHandOver = !isQuick && oneIn(random, 2)};
  cast["EARLY"] = {.devices = devicesOf({"q/e", "e"}), .habits = {.completesEarly = true}};
  cast["FORGETFUL"] = {.devices = devicesOf({"f", "r/x"}), .habits = {.forgetsAbort = true}};
  cast["WHOLE"] = {.devices = devicesOf({"w/x", "q", "w/z", "w/y", "w/g"}),
                   .habits = {.keepsReportingCompleted = oneIn(random, 3)},
                   .wantsMachine = true};
  cast["GAMMA"] = {.devices = devicesOf({"p/g", "h"}),
                   .habits = badHabits(random, isParallel),
                   .deliversAll = false};
  if (isQuick) {
    for (const char* const name : {"QUICK1", "QUICK2", "QUICK3", "QUICK4"}) {
      cast[name] = quickRole(name);
    }
  } else if (const char* const favourite = favouriteOf(seed); favourite != nullptr) {
    cast[favourite].weight = 8;
  }
  return cast;
}

}  // namespace TarvexDiags::TestSupport
