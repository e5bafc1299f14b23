#include "packages/processor/SoftFloat.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace TarvexDiags::Processor {

template <int exponentBits, int fractionBits>
auto SoftFloat<exponentBits, fractionBits>::decoded(std::uint64_t bits) -> Exact {
  const auto field = static_cast<int>(bits >> fractionBits & kExponentMask);
  const std::uint64_t fraction = bits & kFractionMask;
  const bool subnormal = field == 0;
  return {isNegative(bits), (subnormal ? kLowestExponent : field - kBias) - fractionBits,
          subnormal ? fraction : fraction | (std::uint64_t{1} << fractionBits)};
}

template <int exponentBits, int fractionBits>
int SoftFloat<exponentBits, fractionBits>::highestBit(Wide value) {
  const auto high = static_cast<std::uint64_t>(value >> 64);
  return high != 0 ? 127 - std::countl_zero(high)
                   : 63 - std::countl_zero(static_cast<std::uint64_t>(value));
}

template <int exponentBits, int fractionBits>
auto SoftFloat<exponentBits, fractionBits>::shiftedRightSticky(Wide value, int amount) -> Wide {
  if (amount > 127) {
    return value != 0 ? 1 : 0;
  }
  const Wide lost = value & ((Wide{1} << amount) - 1);
  return (value >> amount) | (lost != 0 ? 1 : 0);
}

template <int exponentBits, int fractionBits>
auto SoftFloat<exponentBits, fractionBits>::normalized(Exact value, int place) -> Exact {
  const int shift = place - highestBit(value.significand);
  value.significand =
      shift >= 0 ? value.significand << shift : shiftedRightSticky(value.significand, -shift);
  value.exponent -= shift;
  return value;
}

template <int exponentBits, int fractionBits>
auto SoftFloat<exponentBits, fractionBits>::sum(Exact left, Exact right, Rounding rounding)
    -> Exact {
  if (left.significand == 0 || right.significand == 0) {
    if (left.significand == 0 && right.significand == 0) {
      const bool negative =
          left.negative == right.negative ? left.negative : rounding == Rounding::Downward;
      return {negative, 0, 0};
    }
    return left.significand == 0 ? right : left;
  }
  // A place is left for the carry; the other operand lies to the right of it.
  left = normalized(left, 125);
  right = normalized(right, 125);
  if (left.exponent < right.exponent ||
      (left.exponent == right.exponent && left.significand < right.significand)) {
    std::swap(left, right);
  }
  const Wide smaller = shiftedRightSticky(right.significand, left.exponent - right.exponent);
  if (left.negative == right.negative) {
    left.significand += smaller;
  } else {
    left.significand -= smaller;
    if (left.significand == 0) {
      left.negative = rounding == Rounding::Downward;
    }
  }
  return left;
}

template <int exponentBits, int fractionBits>
bool SoftFloat<exponentBits, fractionBits>::roundsUp(bool negative, bool odd, int comparedWithHalf,
                                                     bool inexact, Rounding rounding) {
  switch (rounding) {
    case Rounding::ToNearest:
      return comparedWithHalf > 0 || (comparedWithHalf == 0 && odd);
    case Rounding::TowardZero:
      return false;
    case Rounding::Upward:
      return inexact && !negative;
    case Rounding::Downward:
      return inexact && negative;
  }
  return false;
}

template <int exponentBits, int fractionBits>
std::uint64_t SoftFloat<exponentBits, fractionBits>::overflown(bool negative, Rounding rounding) {
  const bool away = rounding == Rounding::ToNearest ||
                    rounding == (negative ? Rounding::Downward : Rounding::Upward);
  return withSign(negative, away ? kInfinity : kLargest);
}

template <int exponentBits, int fractionBits>
std::uint64_t SoftFloat<exponentBits, fractionBits>::rounded(const Exact& value,
                                                             Rounding rounding) {
  if (value.significand == 0) {
    return withSign(value.negative, 0);
  }
  const Exact top = normalized(value, 126);
  int exponent = top.exponent + 126;
  // Below the lowest exponent fewer bits are kept, down to none.
  const int kept = kPrecision - std::max(0, kLowestExponent - exponent);
  const int dropped = std::min(127 - kept, 128);
  const Wide half = dropped <= 127 ? Wide{1} << (dropped - 1) : ~Wide{0};
  const Wide rest = dropped <= 127 ? top.significand & ((Wide{1} << dropped) - 1) : top.significand;
  auto result = static_cast<std::uint64_t>(dropped <= 127 ? top.significand >> dropped : 0);
  const int comparedWithHalf = rest > half ? 1 : rest == half ? 0 : -1;
  if (roundsUp(value.negative, (result & 1) != 0, comparedWithHalf, rest != 0, rounding)) {
    ++result;
  }
  if (exponent < kLowestExponent) {
    // A carry into the exponent's field makes the lowest normal number, as it should.
    return withSign(value.negative, result);
  }
  if (result >> kPrecision != 0) {
    result >>= 1;
    ++exponent;
  }
  if (exponent > kBias) {
    return overflown(value.negative, rounding);
  }
  return withSign(value.negative, (static_cast<std::uint64_t>(exponent + kBias) << fractionBits) |
                                      (result & kFractionMask));
}

template <int exponentBits, int fractionBits>
std::uint64_t SoftFloat<exponentBits, fractionBits>::add(std::uint64_t left, std::uint64_t right,
                                                         Rounding rounding) {
  if (isNan(left) || isNan(right) || (isInfinite(left) && isInfinite(right) && left != right)) {
    return kNan;
  }
  if (isInfinite(left) || isInfinite(right)) {
    return isInfinite(left) ? left : right;
  }
  return rounded(sum(decoded(left), decoded(right), rounding), rounding);
}

template <int exponentBits, int fractionBits>
std::uint64_t SoftFloat<exponentBits, fractionBits>::multiply(std::uint64_t left,
                                                              std::uint64_t right,
                                                              Rounding rounding) {
  const bool negative = isNegative(left) != isNegative(right);
  if (isNan(left) || isNan(right) || (isInfinite(left) && isZero(right)) ||
      (isZero(left) && isInfinite(right))) {
    return kNan;
  }
  if (isInfinite(left) || isInfinite(right)) {
    return withSign(negative, kInfinity);
  }
  const Exact first = decoded(left);
  const Exact second = decoded(right);
  return rounded(
      {negative, first.exponent + second.exponent, first.significand * second.significand},
      rounding);
}

template <int exponentBits, int fractionBits>
std::uint64_t SoftFloat<exponentBits, fractionBits>::divide(std::uint64_t left, std::uint64_t right,
                                                            Rounding rounding) {
  const bool negative = isNegative(left) != isNegative(right);
  if (isNan(left) || isNan(right) || (isInfinite(left) && isInfinite(right)) ||
      (isZero(left) && isZero(right))) {
    return kNan;
  }
  if (isInfinite(left) || isZero(right)) {
    return withSign(negative, kInfinity);
  }
  if (isInfinite(right) || isZero(left)) {
    return withSign(negative, 0);
  }
  const Exact dividend = normalized(decoded(left), 126);
  const Exact divisor = normalized(decoded(right), kPrecision - 1);
  const Wide quotient = dividend.significand / divisor.significand;
  const Wide remainder = dividend.significand % divisor.significand;
  return rounded(
      {negative, dividend.exponent - divisor.exponent, quotient | (remainder != 0 ? 1 : 0)},
      rounding);
}

template <int exponentBits, int fractionBits>
std::uint64_t SoftFloat<exponentBits, fractionBits>::squareRoot(std::uint64_t value,
                                                                Rounding rounding) {
  if (isZero(value)) {
    return value;
  }
  if (isNan(value) || isNegative(value)) {
    return kNan;
  }
  if (isInfinite(value)) {
    return value;
  }
  Exact radicand = normalized(decoded(value), 125);
  if (radicand.exponent % 2 != 0) {
    radicand.significand <<= 1;
    --radicand.exponent;
  }
  // Bit by bit from the highest: keeps root * root <= radicand.
  Wide root = 0;
  for (int bit = 63; bit >= 0; --bit) {
    const Wide candidate = root | (Wide{1} << bit);
    if (candidate * candidate <= radicand.significand) {
      root = candidate;
    }
  }
  const bool exact = root * root == radicand.significand;
  // One more place for the sticky bit.
  return rounded({false, radicand.exponent / 2 - 1, (root << 1) | (exact ? 0 : 1)}, rounding);
}

template <int exponentBits, int fractionBits>
std::uint64_t SoftFloat<exponentBits, fractionBits>::multiplyAdd(std::uint64_t left,
                                                                 std::uint64_t right,
                                                                 std::uint64_t addend,
                                                                 Rounding rounding) {
  const bool negative = isNegative(left) != isNegative(right);
  if (isNan(left) || isNan(right) || isNan(addend) || (isInfinite(left) && isZero(right)) ||
      (isZero(left) && isInfinite(right))) {
    return kNan;
  }
  if (isInfinite(left) || isInfinite(right)) {
    const bool opposite = isInfinite(addend) && isNegative(addend) != negative;
    return opposite ? kNan : withSign(negative, kInfinity);
  }
  if (isInfinite(addend)) {
    return addend;
  }
  const Exact first = decoded(left);
  const Exact second = decoded(right);
  const Exact product = {negative, first.exponent + second.exponent,
                         first.significand * second.significand};
  return rounded(sum(product, decoded(addend), rounding), rounding);
}

template class SoftFloat<11, 52>;
template class SoftFloat<8, 23>;

}  // namespace TarvexDiags::Processor
