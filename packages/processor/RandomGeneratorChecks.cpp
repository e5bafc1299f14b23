// The processor's random generators: that they give numbers, that they are not stuck, and that no
// bit leans to one side. Thresholds are so far out that a good generator does not meet them in
// years.

#include <array>
#include <cmath>
#include <cstdlib>

#include "packages/processor/Checks.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace TarvexDiags::Processor {

#if defined(__x86_64__)

namespace {

constexpr std::size_t kDrawn = 4096;
using Draws = std::array<std::uint64_t, kDrawn>;

// Intel, "Digital Random Number Generator Software Implementation Guide", 5.2.1: a generator that
// gives nothing ten times in a row is out of order. RDSEED may run dry and needs more patience.
constexpr int kRandomRetries = 10;
constexpr int kSeedRetries = 1000000;

[[gnu::target("rdrnd")]] bool drawRandom(std::uint64_t& word) {
  unsigned long long value = 0;
  for (int attempt = 0; attempt < kRandomRetries; ++attempt) {
    if (_rdrand64_step(&value) != 0) {
      word = value;
      return true;
    }
  }
  return false;
}

[[gnu::target("rdseed")]] bool drawSeed(std::uint64_t& word) {
  unsigned long long value = 0;
  for (int attempt = 0; attempt < kSeedRetries; ++attempt) {
    if (_rdseed64_step(&value) != 0) {
      word = value;
      return true;
    }
    __builtin_ia32_pause();
  }
  return false;
}

using Draw = bool (*)(std::uint64_t& word);

/// @return how many draws gave nothing
std::uint64_t drawAll(Draw draw, Draws& draws) {
  std::uint64_t failures = 0;
  for (std::uint64_t& word : draws) {
    failures += draw(word) ? 0 : 1;
    if (failures > 3) {
      return kDrawn;
    }
  }
  return failures;
}

std::string numberOf(std::size_t index) {
  return "draw " + std::to_string(index);
}

/// Repetition count test, NIST SP 800-90B, 4.4.1, with a cut-off of two for words of 64 bits.
template <Draw draw>
void notStuck(Verifier& verifier) {
  Draws draws{};
  std::array<std::uint64_t, 1> failures = {drawAll(draw, draws)};
  verifier.verifyEach(
      failures,
      [&](std::size_t) { return std::string(failures[0] == 0 ? "" : "a number at each draw"); },
      [](std::size_t) { return std::string("draws that gave nothing"); });
  if (failures[0] != 0) {
    return;
  }
  verifier.verifyEach(
      draws,
      [&](std::size_t index) {
        const bool repeated = index > 0 && draws[index] == draws[index - 1];
        const bool flat = draws[index] == 0 || draws[index] == ~std::uint64_t{0};
        return std::string(repeated ? "not the number drawn before"
                           : flat   ? "neither all zeros nor all ones"
                                    : "");
      },
      numberOf);
}

///  Counts of ones in each bit, and of changes from draw to draw: half of the draws, within 8
///  sigma.
template <Draw draw>
void notBiased(Verifier& verifier) {
  Draws draws{};
  if (drawAll(draw, draws) != 0) {
    return;  // told by the other check
  }
  std::array<std::uint64_t, 128> counts{};
  for (std::size_t index = 0; index < kDrawn; ++index) {
    const std::uint64_t changed = draws[index] ^ draws[(index + 1) % kDrawn];
    for (std::size_t bit = 0; bit < 64; ++bit) {
      counts[bit] += draws[index] >> bit & 1;
      counts[64 + bit] += changed >> bit & 1;
    }
  }
  const auto half = static_cast<std::int64_t>(kDrawn / 2);
  const auto allowed = static_cast<std::int64_t>(8 * std::sqrt(static_cast<double>(kDrawn)) / 2);
  verifier.verifyEach(
      counts,
      [&](std::size_t index) {
        const std::int64_t distance = std::abs(static_cast<std::int64_t>(counts[index]) - half);
        return distance <= allowed
                   ? std::string()
                   : "between " + hexadecimal(static_cast<std::uint64_t>(half - allowed)) +
                         " and " + hexadecimal(static_cast<std::uint64_t>(half + allowed));
      },
      [](std::size_t index) {
        return std::string(index < 64 ? "ones" : "changes") + " of bit " +
               std::to_string(index % 64) + " in 4096 draws";
      });
}

/// Chi-square of the bytes: 255 degrees of freedom, mean 255, deviation sqrt(510).
template <Draw draw>
void evenBytes(Verifier& verifier) {
  Draws draws{};
  if (drawAll(draw, draws) != 0) {
    return;
  }
  std::array<std::uint64_t, 256> counts{};
  for (const std::uint64_t word : draws) {
    for (int shift = 0; shift < 64; shift += 8) {
      ++counts[word >> shift & 0xff];
    }
  }
  const double expected = static_cast<double>(kDrawn) * 8 / 256;
  double square = 0;
  for (const std::uint64_t count : counts) {
    const double distance = static_cast<double>(count) - expected;
    square += distance * distance / expected;
  }
  constexpr std::uint64_t highest = 255 + 12 * 23;
  std::array<std::uint64_t, 1> found = {static_cast<std::uint64_t>(square)};
  verifier.verifyEach(
      found,
      [&](std::size_t) {
        return found[0] <= highest ? std::string() : "no more than " + hexadecimal(highest);
      },
      [](std::size_t) { return std::string("chi-square of the bytes of 4096 draws"); });
}

bool hasRandom() {
  unsigned int eax = 0;
  unsigned int ebx = 0;
  unsigned int ecx = 0;
  unsigned int edx = 0;
  return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx >> 30 & 1) != 0;
}

bool hasSeed() {
  unsigned int eax = 0;
  unsigned int ebx = 0;
  unsigned int ecx = 0;
  unsigned int edx = 0;
  return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx >> 18 & 1) != 0;
}

}  // namespace

std::vector<Check> randomGeneratorChecks() {
  return {
      {"random generator (RDRAND), stuck", hasRandom, notStuck<drawRandom>},
      {"random generator (RDRAND), bias of bits", hasRandom, notBiased<drawRandom>},
      {"random generator (RDRAND), bytes", hasRandom, evenBytes<drawRandom>},
      {"random seeds (RDSEED), stuck", hasSeed, notStuck<drawSeed>},
      {"random seeds (RDSEED), bias of bits", hasSeed, notBiased<drawSeed>},
      {"random seeds (RDSEED), bytes", hasSeed, evenBytes<drawSeed>},
  };
}

#else

std::vector<Check> randomGeneratorChecks() {
  return {};
}

#endif

}  // namespace TarvexDiags::Processor
