#include "packages/processor/FixedPoint.h"

#include <bit>
#include <cstring>

namespace TarvexDiags::Processor {

namespace {

/// first + first * ratio(0) + first * ratio(0) * ratio(1) + ..., until nothing is added.
template <typename Ratio>
FixedPoint seriesOf(FixedPoint first, Ratio ratio) {
  FixedPoint sum = first;
  FixedPoint term = first;
  // Faulty arithmetic must not keep it going for ever.
  constexpr std::int64_t mostTerms = 200;
  for (std::int64_t number = 0; number < mostTerms && term != FixedPoint(); ++number) {
    term = ratio(term, number);
    sum = sum + term;
  }
  return sum;
}

/// x - x^3/3 + x^5/5 - ..., or with all signs positive.
FixedPoint oddPowers(FixedPoint x, bool alternating) {
  const FixedPoint square = alternating ? -(x * x) : x * x;
  FixedPoint sum = x;
  FixedPoint power = x;
  for (std::int64_t divisor = 3; divisor < 400 && power != FixedPoint(); divisor += 2) {
    power = power * square;
    sum = sum + power / divisor;
  }
  return sum;
}

}  // namespace

FixedPoint FixedPoint::composed(bool negative, std::uint64_t significand, int exponent) {
  const int shift = exponent + kFractionBits;
  const int highest = shift + 63 - std::countl_zero(significand);
  if (significand == 0 || highest < 0) {
    return {};
  }
  if (highest >= kFractionBits + 7) {
    return wrapped(Magnitude{1} << 127);
  }
  const Magnitude wide = significand;
  return withSign(negative, shift >= 0 ? wide << shift : wide >> -shift);
}

FixedPoint FixedPoint::scaled(std::int64_t significand, int exponent) {
  const auto bits = static_cast<std::uint64_t>(significand);
  return composed(significand < 0, significand < 0 ? 0 - bits : bits, exponent);
}

FixedPoint FixedPoint::of(double value) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const auto exponent = static_cast<int>(bits >> 52 & 0x7ff);
  const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
  const std::uint64_t hidden = exponent == 0 ? 0 : std::uint64_t{1} << 52;
  return composed(bits >> 63 != 0, fraction | hidden, (exponent == 0 ? 1 : exponent) - 1075);
}

#if defined(__x86_64__)
FixedPoint FixedPoint::of(long double value) {
  std::uint64_t significand = 0;
  std::uint16_t signAndExponent = 0;
  std::memcpy(&significand, &value, sizeof(significand));
  std::memcpy(&signAndExponent, reinterpret_cast<const char*>(&value) + sizeof(significand),
              sizeof(signAndExponent));
  return composed(signAndExponent >> 15 != 0, significand,
                  static_cast<int>(signAndExponent & 0x7fff) - 16383 - 63);
}
#endif

FixedPoint FixedPoint::operator*(FixedPoint other) const {
  const Magnitude left = magnitude();
  const Magnitude right = other.magnitude();
  const auto low = [](Magnitude value) { return value & ~std::uint64_t{0}; };
  // Four products of halves; the carries between them meet in the middle.
  const Magnitude lowest = low(left) * low(right);
  const Magnitude first = (left >> 64) * low(right);
  const Magnitude second = low(left) * (right >> 64);
  const Magnitude middle = low(first) + low(second) + (lowest >> 64);
  const Magnitude high =
      (left >> 64) * (right >> 64) + (first >> 64) + (second >> 64) + (middle >> 64);
  const Magnitude fraction = (middle << 64) | low(lowest);
  return withSign((m_bits < 0) != (other.m_bits < 0),
                  (high << (128 - kFractionBits)) | (fraction >> kFractionBits));
}

FixedPoint FixedPoint::operator/(FixedPoint other) const {
  const Magnitude divisor = other.magnitude();
  if (divisor == 0) {
    return wrapped(Magnitude{1} << 127);
  }
  Magnitude quotient = magnitude() / divisor;
  Magnitude remainder = magnitude() % divisor;
  for (int bit = 0; bit < kFractionBits; ++bit) {
    // No carry is lost: magnitudes are below 2^127.
    remainder <<= 1;
    quotient <<= 1;
    if (remainder >= divisor) {
      remainder -= divisor;
      quotient |= 1;
    }
  }
  return withSign((m_bits < 0) != (other.m_bits < 0), quotient);
}

bool FixedPoint::isAbout(FixedPoint other, int bits) const {
  // What the series themselves may be off by, for numbers near zero.
  constexpr int ownBits = 8;
  return (*this - other).magnitude() <= (magnitude() >> bits) + (Magnitude{1} << ownBits);
}

FixedPoint exponentialMinusOne(FixedPoint x) {
  return seriesOf(x, [&](FixedPoint term, std::int64_t number) { return term * x / (number + 2); });
}

FixedPoint sine(FixedPoint x) {
  const FixedPoint square = -(x * x);
  return seriesOf(x, [&](FixedPoint term, std::int64_t number) {
    return term * square / ((2 * number + 2) * (2 * number + 3));
  });
}

FixedPoint cosine(FixedPoint x) {
  const FixedPoint square = -(x * x);
  return seriesOf(FixedPoint::scaled(1, 0), [&](FixedPoint term, std::int64_t number) {
    return term * square / ((2 * number + 1) * (2 * number + 2));
  });
}

FixedPoint arcTangent(FixedPoint x) {
  return oddPowers(x, true);
}

FixedPoint logarithmOfOneAnd(FixedPoint x) {
  // ln((1 + z) / (1 - z)) = 2 (z + z^3/3 + z^5/5 + ...)
  const FixedPoint z = x / (FixedPoint::scaled(2, 0) + x);
  const FixedPoint half = oddPowers(z, false);
  return half + half;
}

FixedPoint logarithmOfTwo() {
  static const FixedPoint kValue = logarithmOfOneAnd(FixedPoint::scaled(1, 0));
  return kValue;
}

}  // namespace TarvexDiags::Processor
