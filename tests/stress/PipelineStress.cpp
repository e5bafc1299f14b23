// Many clients do at random whatever a client may do, to packages good and bad, in both run modes.
// What must hold at every moment is watched from inside the packages; what must hold in the end is
// checked when all requests are over.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "tests/stress/Life.h"

namespace TarvexDiags::TestSupport {

namespace {

using Clock = std::chrono::steady_clock;

int numberFrom(const char* variable, int otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr || *text == '\0' ? otherwise : std::atoi(text);
}

TEST(PipelineStress, whatever_clients_do_every_request_ends_and_nothing_is_left) {
  const auto seconds = std::chrono::seconds(std::max(1, numberFrom("TARVEX_STRESS_SECONDS", 5)));
  const auto length = std::min<std::chrono::milliseconds>(std::chrono::seconds(3), seconds / 2);
  auto seed = static_cast<unsigned int>(numberFrom("TARVEX_STRESS_SEED", 1));
  const auto end = Clock::now() + seconds;
  unsigned long survived = 0;
  int epochs = 0;
  while (Clock::now() < end && !HasFailure()) {
    SCOPED_TRACE("TARVEX_STRESS_SEED=" + std::to_string(seed));
    survived += Life(seed, seed % 2 == 0, length).run();
    ++seed;
    ++epochs;
  }
  EXPECT_GT(survived, 0U);
  std::cout << "survived " << survived << " requests in " << epochs << " lives of a controller, "
            << seconds.count() << " s, last seed " << seed - 1 << std::endl;
}

}  // namespace

}  // namespace TarvexDiags::TestSupport
