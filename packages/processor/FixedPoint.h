#pragma once

#include <cstdint>

namespace TarvexDiags::Processor {

/// @brief Numbers from -128 to below 128 with 120 bits behind the point, computed with integer
/// instructions alone: what transcendental functions are held against. Each operation is good to a
/// few units of 2^-120; what leaves the range is wrong.
///
/// Thread-safety: a plain value.
class FixedPoint {
 public:
  __extension__ using Bits = __int128;
  static constexpr int kFractionBits = 120;

  constexpr FixedPoint() = default;
  /// @brief significand * 2^exponent; bits below the last place are cut off.
  static FixedPoint scaled(std::int64_t significand, int exponent);
  /// @brief The value of a number of the floating-point unit, cut off likewise. Infinities, NaN and
  /// numbers out of range give one out of all proportion, the lowest.
  static FixedPoint of(double value);
#if defined(__x86_64__)
  static FixedPoint of(long double value);
#endif

  FixedPoint operator+(FixedPoint other) const {
    return wrapped(raw() + other.raw());
  }
  FixedPoint operator-(FixedPoint other) const {
    return wrapped(raw() - other.raw());
  }
  FixedPoint operator-() const {
    return wrapped(0 - raw());
  }
  FixedPoint operator*(FixedPoint other) const;
  FixedPoint operator/(FixedPoint other) const;
  FixedPoint operator/(std::int64_t divisor) const {
    return FixedPoint(m_bits / divisor);
  }
  bool operator==(const FixedPoint& other) const = default;

  /// @brief Whether the other differs by no more than this one's magnitude * 2^-bits.
  bool isAbout(FixedPoint other, int bits) const;
  bool isNegative() const {
    return m_bits < 0;
  }
  /// @brief The upper half: units of 2^-56.
  std::uint64_t upperWord() const {
    return static_cast<std::uint64_t>(m_bits >> 64);
  }

 private:
  __extension__ using Magnitude = unsigned __int128;

  explicit constexpr FixedPoint(Bits bits) : m_bits(bits) {}
  static FixedPoint composed(bool negative, std::uint64_t significand, int exponent);
  static FixedPoint wrapped(Magnitude bits) {
    return FixedPoint(static_cast<Bits>(bits));
  }
  static FixedPoint withSign(bool negative, Magnitude magnitude) {
    return wrapped(negative ? 0 - magnitude : magnitude);
  }
  Magnitude raw() const {
    return static_cast<Magnitude>(m_bits);
  }
  Magnitude magnitude() const {
    return m_bits < 0 ? 0 - raw() : raw();
  }

  Bits m_bits = 0;
};

// Power series; arguments as far as these converge well.

/// @brief e^x - 1, for -4 to 4.
FixedPoint exponentialMinusOne(FixedPoint x);
/// @brief For -4 to 4.
FixedPoint sine(FixedPoint x);
FixedPoint cosine(FixedPoint x);
/// @brief For -0.5 to 0.5.
FixedPoint arcTangent(FixedPoint x);
/// @brief ln(1 + x), for -0.5 to 2.
FixedPoint logarithmOfOneAnd(FixedPoint x);
/// @brief ln 2.
FixedPoint logarithmOfTwo();

}  // namespace TarvexDiags::Processor
