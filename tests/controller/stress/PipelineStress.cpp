// Many clients do at random whatever a client may do, to packages good and bad, in both run modes.
// What must hold at every moment is watched from inside the packages; what must hold in the end is
// checked when all requests are over.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <string>

#include "tests/controller/stress/Life.h"

namespace TarvexDiags::TestSupport {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long kRequestsOfQuickLife = 10'000;

unsigned long numberFrom(const char* variable, unsigned long otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr || *text == '\0' ? otherwise : std::strtoul(text, nullptr, 10);
}

unsigned int firstSeed() {
  return static_cast<unsigned int>(numberFrom("TARVEX_STRESS_SEED", 1));
}

/// Both modes, with long queues and with short ones; at every third seed a shut-down under load.
LifePlan planOf(unsigned int seed) {
  return {.seed = seed,
          .isParallel = seed % 2 == 0,
          .hasShortQueues = seed / 2 % 2 == 0,
          .endsUnderLoad = seed % 3 == 0};
}

unsigned long live(const LifePlan& plan) {
  SCOPED_TRACE("TARVEX_STRESS_SEED=" + std::to_string(plan.seed));
  return Life(plan).run();
}

TEST(PipelineStress, whatever_clients_do_every_request_ends_and_nothing_is_left) {
  const auto seconds = std::chrono::seconds(std::max(1UL, numberFrom("TARVEX_STRESS_SECONDS", 5)));
  unsigned int seed = firstSeed();
  const auto end = Clock::now() + seconds;
  unsigned long survived = 0;
  int lives = 0;
  while (Clock::now() < end && !HasFailure()) {
    LifePlan plan = planOf(seed);
    plan.length = std::min<std::chrono::milliseconds>(plan.length, seconds / 2);
    survived += live(plan);
    ++seed;
    ++lives;
  }
  EXPECT_GT(survived, 0U);
  std::cout << "survived " << survived << " requests in " << lives << " lives of a controller, "
            << seconds.count() << " s, last seed " << seed - 1 << std::endl;
}

TEST(PipelineStress, as_many_requests_as_asked_for_survive) {
  const unsigned long wanted = numberFrom("TARVEX_STRESS_REQUESTS", 2000);
  unsigned int seed = firstSeed();
  const auto begin = Clock::now();
  unsigned long survived = 0;
  while (survived < wanted && !HasFailure()) {
    LifePlan plan = planOf(seed);
    plan.length = std::chrono::minutes(10);
    plan.requests = std::min(kRequestsOfQuickLife, wanted - survived);
    plan.isQuick = true;
    plan.hasShortQueues = false;
    survived += live(plan);
    ++seed;
  }
  const std::chrono::duration<double> passed = Clock::now() - begin;
  std::cout << "survived " << survived << " short requests, " << std::fixed << std::setprecision(0)
            << static_cast<double>(survived) / passed.count() << " a second, last seed " << seed - 1
            << std::endl;
  EXPECT_GE(survived, wanted);
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
