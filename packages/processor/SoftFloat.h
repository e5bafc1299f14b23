#pragma once

#include <cstdint>

namespace TarvexDiags::Processor {

/// @brief The four rounding directions of IEEE 754 that hardware has.
enum class Rounding { ToNearest, TowardZero, Upward, Downward };

/// @brief Floating-point arithmetic in integer instructions: what the floating-point unit is held
/// against. Numbers are the bits of their encoding; each NaN that comes out is the same one, `nan`.
///
/// IEEE Std 754-2019, clauses 3.4 (encodings), 4.3 (rounding), 5.4 and 6 (operations, infinities,
/// NaN, signs of zeros). Exact results are held in 127 bits with a sticky lowest bit and rounded
/// once.
///
/// @tparam exponentBits, fractionBits  11 and 52 for double, 8 and 23 for float
template <int exponentBits, int fractionBits>
class SoftFloat {
 public:
  static constexpr std::uint64_t kFractionMask = (std::uint64_t{1} << fractionBits) - 1;
  static constexpr std::uint64_t kExponentMask = (std::uint64_t{1} << exponentBits) - 1;
  static constexpr std::uint64_t kSignBit = std::uint64_t{1} << (exponentBits + fractionBits);
  static constexpr std::uint64_t kInfinity = kExponentMask << fractionBits;
  static constexpr std::uint64_t kLargest = kInfinity - 1;
  static constexpr std::uint64_t kNan = kInfinity | (std::uint64_t{1} << (fractionBits - 1));

  static bool isNan(std::uint64_t bits) { return (bits & ~kSignBit) > kInfinity; }
  /// @brief The one NaN for all of them; anything else as it is.
  static std::uint64_t canonical(std::uint64_t bits) { return isNan(bits) ? kNan : bits; }

  static std::uint64_t add(std::uint64_t left, std::uint64_t right, Rounding rounding);
  static std::uint64_t subtract(std::uint64_t left, std::uint64_t right, Rounding rounding) {
    return isNan(right) ? kNan : add(left, right ^ kSignBit, rounding);
  }
  static std::uint64_t multiply(std::uint64_t left, std::uint64_t right, Rounding rounding);
  static std::uint64_t divide(std::uint64_t left, std::uint64_t right, Rounding rounding);
  static std::uint64_t squareRoot(std::uint64_t value, Rounding rounding);
  /// @brief left * right + addend, rounded once.
  static std::uint64_t multiplyAdd(std::uint64_t left, std::uint64_t right, std::uint64_t addend,
                                   Rounding rounding);
  /// @brief A whole number as the nearest that the format has.
  static std::uint64_t fromInteger(bool negative, std::uint64_t magnitude, Rounding rounding) {
    return rounded({negative && magnitude != 0, 0, magnitude}, rounding);
  }

 private:
  __extension__ using Wide = unsigned __int128;

  static constexpr int kPrecision = fractionBits + 1;
  static constexpr int kBias = (1 << (exponentBits - 1)) - 1;
  static constexpr int kLowestExponent = 1 - kBias;

  /// significand * 2^exponent; no infinity, no NaN.
  struct Exact {
    bool negative;
    int exponent;
    Wide significand;
  };

  static bool isInfinite(std::uint64_t bits) { return (bits & ~kSignBit) == kInfinity; }
  static bool isZero(std::uint64_t bits) { return (bits & ~kSignBit) == 0; }
  static bool isNegative(std::uint64_t bits) { return (bits & kSignBit) != 0; }
  static std::uint64_t withSign(bool negative, std::uint64_t magnitude) {
    return negative ? magnitude | kSignBit : magnitude;
  }

  static Exact decoded(std::uint64_t bits);
  static int highestBit(Wide value);
  static Wide shiftedRightSticky(Wide value, int amount);
  /// The same number with its highest bit at a place; bits that fall off stick to the lowest.
  static Exact normalized(Exact value, int place);
  static Exact sum(Exact left, Exact right, Rounding rounding);
  static bool roundsUp(bool negative, bool odd, int comparedWithHalf, bool inexact,
                       Rounding rounding);
  static std::uint64_t rounded(const Exact& value, Rounding rounding);
  static std::uint64_t overflown(bool negative, Rounding rounding);
};

using SoftDouble = SoftFloat<11, 52>;
using SoftSingle = SoftFloat<8, 23>;

extern template class SoftFloat<11, 52>;
extern template class SoftFloat<8, 23>;

}  // namespace TarvexDiags::Processor
