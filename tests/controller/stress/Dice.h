#pragma once

#include <random>

namespace TarvexDiags::TestSupport {

typedef std::mt19937 Random;

inline unsigned int below(Random& random, unsigned int limit) {
  return static_cast<unsigned int>(random() % limit);
}
inline bool oneIn(Random& random, unsigned int number) {
  return below(random, number) == 0;
}

}  // namespace TarvexDiags::TestSupport
