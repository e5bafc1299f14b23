#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace TarvexDiags::Svg {

/// A place on an axis that is named.
struct Tick {
  double value = 0;
  std::string text;
};

/// Round numbers of one distance (1, 2 or 5 of a power of ten), from below the lowest to above the
/// highest value, so that an axis from the first to the last of them holds all that is within
/// 1e300.
/// @param most about how many; at least 2.
std::vector<Tick> ticksAround(double lowest, double highest, std::size_t most);

/// Times within a span, from 0 on, at distances that clocks have: "0:30", "1:00:00", below a minute
/// "0.2 s". @param seconds the end of the span, above 0; beyond 1e12 it is taken for that. @param
/// most at least 2.
std::vector<Tick> timesWithin(double seconds, std::size_t most);

}  // namespace TarvexDiags::Svg
