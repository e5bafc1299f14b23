// The floating-point unit, held against arithmetic in integers, in every rounding direction, and
// against a table of the corners of IEEE 754 with the exceptions that each must raise.

#include <array>
#include <bit>
#include <cfenv>
#include <cmath>
#include <limits>

#include "packages/processor/Batch.h"
#include "packages/processor/Checks.h"
#include "packages/processor/FloatEnvironment.h"
#include "packages/processor/SoftFloat.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace TarvexDiags::Processor {

namespace {

constexpr std::array<int, 4> kHardwareRounding = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD,
                                                  FE_DOWNWARD};
constexpr std::array<const char*, 4> kRoundingNames = {"to nearest", "toward zero", "upward",
                                                       "downward"};

/// How a type is encoded, and what is computed in integers of it.
template <typename Real>
struct Encoding;
template <>
struct Encoding<double> {
  using Bits = std::uint64_t;
  using Soft = SoftDouble;
};
template <>
struct Encoding<float> {
  using Bits = std::uint32_t;
  using Soft = SoftSingle;
};

template <typename Real>
Real realOf(std::uint64_t bits) {
  return std::bit_cast<Real>(static_cast<typename Encoding<Real>::Bits>(bits));
}

template <typename Real>
std::uint64_t bitsOf(Real value) {
  return std::bit_cast<typename Encoding<Real>::Bits>(value);
}

/// A batch of one operation in one rounding direction after the other.
template <typename Real, typename Operate, typename Reference>
void checkReals(Verifier& verifier, Operate operate, Reference reference) {
  using Soft = typename Encoding<Real>::Soft;
  const FloatEnvironment environment;
  std::array<std::array<std::uint64_t, kBatchSize>, 3> operands{};
  std::array<std::uint64_t, kBatchSize> found{};
  std::array<std::uint64_t, kBatchSize> expected{};
  for (std::size_t rounding = 0; rounding < kHardwareRounding.size(); ++rounding) {
    for (auto& operand : operands) {
      drawOperands<Operand::Real<Soft>>(verifier, operand);
    }
    const auto& first = operands[0];
    const auto& second = operands[1];
    const auto& third = operands[2];
    std::fesetround(kHardwareRounding[rounding]);
    for (std::size_t index = 0; index < kBatchSize; ++index) {
      const Real result =
          operate(opaque(realOf<Real>(first[index])), opaque(realOf<Real>(second[index])),
                  opaque(realOf<Real>(third[index])));
      found[index] = Soft::canonical(bitsOf(opaque(result)));
    }
    std::fesetround(FE_TONEAREST);
    for (std::size_t index = 0; index < kBatchSize; ++index) {
      expected[index] =
          reference(first[index], second[index], third[index], static_cast<Rounding>(rounding));
    }
    verifier.verify(found, expected, [&](std::size_t index) {
      return hexadecimal(first[index]) + ", " + hexadecimal(second[index]) + ", " +
             hexadecimal(third[index]) + ", rounded " + kRoundingNames[rounding];
    });
  }
}

template <typename Real>
struct Checks {
  using Soft = typename Encoding<Real>::Soft;
  using Bits = std::uint64_t;

  static void add(Verifier& verifier) {
    checkReals<Real>(
        verifier, [](Real left, Real right, Real) { return left + right; },
        [](Bits left, Bits right, Bits, Rounding mode) { return Soft::add(left, right, mode); });
  }
  static void subtract(Verifier& verifier) {
    checkReals<Real>(
        verifier, [](Real left, Real right, Real) { return left - right; },
        [](Bits left, Bits right, Bits, Rounding mode) {
          return Soft::subtract(left, right, mode);
        });
  }
  static void multiply(Verifier& verifier) {
    checkReals<Real>(
        verifier, [](Real left, Real right, Real) { return left * right; },
        [](Bits left, Bits right, Bits, Rounding mode) {
          return Soft::multiply(left, right, mode);
        });
  }
  static void divide(Verifier& verifier) {
    checkReals<Real>(
        verifier, [](Real left, Real right, Real) { return left / right; },
        [](Bits left, Bits right, Bits, Rounding mode) { return Soft::divide(left, right, mode); });
  }
  static void squareRoot(Verifier& verifier) {
    checkReals<Real>(
        verifier, [](Real value, Real, Real) { return std::sqrt(value); },
        [](Bits value, Bits, Bits, Rounding mode) { return Soft::squareRoot(value, mode); });
  }
};

std::int64_t wholeNumber(std::uint64_t left, std::uint64_t right) {
  return static_cast<std::int64_t>(left) >> (right % 64);
}

void convertFromInteger(Verifier& verifier) {
  checkWords(
      verifier,
      [](std::uint64_t left, std::uint64_t right) {
        return bitsOf(opaque(static_cast<double>(wholeNumber(left, right))));
      },
      [](std::uint64_t left, std::uint64_t right) {
        const std::int64_t number = wholeNumber(left, right);
        const auto magnitude = static_cast<std::uint64_t>(number);
        return SoftDouble::fromInteger(number < 0, number < 0 ? 0 - magnitude : magnitude,
                                       Rounding::ToNearest);
      });
}

/// What is left of a number when its fraction is cut off, by shifts alone.
std::int64_t truncated(std::uint64_t bits) {
  const auto exponent = static_cast<int>(bits >> 52 & 0x7ff) - 1075;
  const std::uint64_t significand = (bits & SoftDouble::kFractionMask) | (std::uint64_t{1} << 52);
  const std::uint64_t magnitude = exponent >= 0    ? significand << exponent
                                  : exponent > -53 ? significand >> -exponent
                                                   : 0;
  return static_cast<std::int64_t>((bits & SoftDouble::kSignBit) != 0 ? 0 - magnitude : magnitude);
}

void convertToInteger(Verifier& verifier) {
  // Exponents for which the result fits into 63 bits, and below.
  const auto number = [](std::uint64_t left, std::uint64_t right) {
    const std::uint64_t exponent = 1023 - 4 + right % 66;
    return (left & (SoftDouble::kSignBit | SoftDouble::kFractionMask)) | (exponent << 52);
  };
  checkWords(
      verifier,
      [number](std::uint64_t left, std::uint64_t right) {
        return static_cast<std::uint64_t>(
            static_cast<std::int64_t>(opaque(realOf<double>(number(left, right)))));
      },
      [number](std::uint64_t left, std::uint64_t right) {
        return static_cast<std::uint64_t>(truncated(number(left, right)));
      });
}

#if defined(__x86_64__)

[[gnu::target("fma")]] double fusedDouble(double left, double right, double addend) {
  return _mm_cvtsd_f64(_mm_fmadd_sd(_mm_set_sd(left), _mm_set_sd(right), _mm_set_sd(addend)));
}
[[gnu::target("fma")]] float fusedSingle(float left, float right, float addend) {
  return _mm_cvtss_f32(_mm_fmadd_ss(_mm_set_ss(left), _mm_set_ss(right), _mm_set_ss(addend)));
}
bool hasFma() {
  return __builtin_cpu_supports("fma");
}

#else

double fusedDouble(double left, double right, double addend) {
  return std::fma(left, right, addend);
}
float fusedSingle(float left, float right, float addend) {
  return std::fma(left, right, addend);
}
bool hasFma() {
  return true;
}

#endif

void fusedMultiplyAddDouble(Verifier& verifier) {
  checkReals<double>(verifier, fusedDouble, SoftDouble::multiplyAdd);
}

void fusedMultiplyAddSingle(Verifier& verifier) {
  checkReals<float>(verifier, fusedSingle, SoftSingle::multiplyAdd);
}

// --- Corners
// ---------------------------------------------------------------------------------------

struct Corner {
  char operation;  ///< + - * / and r for the square root
  Rounding rounding;
  double left;
  double right;
  std::uint64_t expected;
  int exceptions;
};

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();
constexpr double kLowest = std::numeric_limits<double>::min();
constexpr double kTiny = std::numeric_limits<double>::denorm_min();
constexpr double kAbove = 1.0 + std::numeric_limits<double>::epsilon();

constexpr auto kNearest = Rounding::ToNearest;
constexpr auto kZero = Rounding::TowardZero;
constexpr auto kUp = Rounding::Upward;
constexpr auto kDown = Rounding::Downward;

// IEEE Std 754-2019: 6.1 infinities, 6.3 signs of zeros, 7.2 to 7.6 exceptions.
constexpr Corner kCorners[] = {
    {'+', kNearest, 0.0, -0.0, 0x0000000000000000, 0},
    {'+', kDown, 0.0, -0.0, 0x8000000000000000, 0},
    {'+', kNearest, -0.0, -0.0, 0x8000000000000000, 0},
    {'-', kNearest, 1.0, 1.0, 0x0000000000000000, 0},
    {'-', kDown, 1.0, 1.0, 0x8000000000000000, 0},
    {'+', kNearest, kInfinite, 1.0, 0x7ff0000000000000, 0},
    {'-', kNearest, kInfinite, kInfinite, 0x7ff8000000000000, FE_INVALID},
    {'*', kNearest, kInfinite, 0.0, 0x7ff8000000000000, FE_INVALID},
    {'/', kNearest, 0.0, 0.0, 0x7ff8000000000000, FE_INVALID},
    {'/', kNearest, kInfinite, kInfinite, 0x7ff8000000000000, FE_INVALID},
    {'r', kNearest, -1.0, 0.0, 0x7ff8000000000000, FE_INVALID},
    {'r', kNearest, -0.0, 0.0, 0x8000000000000000, 0},
    {'/', kNearest, 1.0, 0.0, 0x7ff0000000000000, FE_DIVBYZERO},
    {'/', kNearest, -1.0, 0.0, 0xfff0000000000000, FE_DIVBYZERO},
    {'/', kNearest, 1.0, kInfinite, 0x0000000000000000, 0},
    {'*', kNearest, kLargest, 2.0, 0x7ff0000000000000, FE_OVERFLOW | FE_INEXACT},
    {'*', kZero, kLargest, 2.0, 0x7fefffffffffffff, FE_OVERFLOW | FE_INEXACT},
    {'*', kUp, -kLargest, 2.0, 0xffefffffffffffff, FE_OVERFLOW | FE_INEXACT},
    {'*', kDown, -kLargest, 2.0, 0xfff0000000000000, FE_OVERFLOW | FE_INEXACT},
    {'*', kNearest, kTiny, 0.5, 0x0000000000000000, FE_UNDERFLOW | FE_INEXACT},
    {'*', kUp, kTiny, 0.5, 0x0000000000000001, FE_UNDERFLOW | FE_INEXACT},
    {'*', kNearest, kLowest, 0.5, 0x0008000000000000, 0},
    {'+', kNearest, kLowest, -kTiny, 0x000fffffffffffff, 0},
    {'+', kNearest, kTiny, kTiny, 0x0000000000000002, 0},
    {'+', kNearest, 1.0, kTiny, 0x3ff0000000000000, FE_INEXACT},
    {'+', kUp, 1.0, kTiny, 0x3ff0000000000001, FE_INEXACT},
    {'-', kDown, 1.0, kTiny, 0x3fefffffffffffff, FE_INEXACT},
    {'*', kNearest, kAbove, kAbove, 0x3ff0000000000002, FE_INEXACT},
    {'*', kUp, kAbove, kAbove, 0x3ff0000000000003, FE_INEXACT},
    {'/', kNearest, 1.0, 3.0, 0x3fd5555555555555, FE_INEXACT},
    {'/', kUp, 1.0, 3.0, 0x3fd5555555555556, FE_INEXACT},
    {'r', kNearest, 2.0, 0.0, 0x3ff6a09e667f3bcd, FE_INEXACT},
    {'r', kDown, 2.0, 0.0, 0x3ff6a09e667f3bcc, FE_INEXACT},
    {'r', kNearest, kTiny, 0.0, 0x1e60000000000000, 0},
    {'/', kNearest, kTiny, 2.0, 0x0000000000000000, FE_UNDERFLOW | FE_INEXACT},
    {'-', kNearest, kLargest, -kLargest, 0x7ff0000000000000, FE_OVERFLOW | FE_INEXACT},
};

double computed(const Corner& corner) {
  const double left = opaque(corner.left);
  const double right = opaque(corner.right);
  switch (corner.operation) {
    case '+':
      return opaque(left + right);
    case '-':
      return opaque(left - right);
    case '*':
      return opaque(left * right);
    case '/':
      return opaque(left / right);
    default:
      return opaque(std::sqrt(left));
  }
}

std::string textOf(const Corner& corner) {
  return hexadecimal(bitsOf(corner.left)) + " " + corner.operation + " " +
         hexadecimal(bitsOf(corner.right)) + ", rounded " +
         kRoundingNames[static_cast<std::size_t>(corner.rounding)];
}

constexpr int kAllExceptions = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW | FE_UNDERFLOW | FE_INEXACT;

/// Calls for each corner, with the result and the exceptions that it raised.
template <typename Look>
void visitCorners(Look look) {
  const FloatEnvironment environment;
  for (const Corner& corner : kCorners) {
    std::fesetround(kHardwareRounding[static_cast<std::size_t>(corner.rounding)]);
    std::feclearexcept(FE_ALL_EXCEPT);
    const double result = computed(corner);
    const int raised = std::fetestexcept(kAllExceptions);
    std::fesetround(FE_TONEAREST);
    look(corner, SoftDouble::canonical(bitsOf(result)), raised);
  }
}

void cornerResults(Verifier& verifier) {
  std::array<std::uint64_t, std::size(kCorners)> found{};
  std::array<std::uint64_t, std::size(kCorners)> expected{};
  std::size_t index = 0;
  visitCorners([&](const Corner& corner, std::uint64_t result, int) {
    found[index] = result;
    expected[index++] = corner.expected;
  });
  verifier.verify(found, expected, [](std::size_t wrong) { return textOf(kCorners[wrong]); });
}

void cornerExceptions(Verifier& verifier) {
  std::array<std::uint64_t, std::size(kCorners)> found{};
  std::array<std::uint64_t, std::size(kCorners)> expected{};
  std::size_t index = 0;
  visitCorners([&](const Corner& corner, std::uint64_t, int raised) {
    found[index] = static_cast<std::uint64_t>(raised);
    expected[index++] = static_cast<std::uint64_t>(corner.exceptions);
  });
  verifier.verify(found, expected,
                  [](std::size_t wrong) { return "exceptions of " + textOf(kCorners[wrong]); });
}

}  // namespace

std::vector<Check> floatingPointChecks() {
  return {
      {"IEEE 754 corner results", always, cornerResults},
      {"IEEE 754 exception flags", always, cornerExceptions},
      {"double add", always, Checks<double>::add},
      {"double subtract", always, Checks<double>::subtract},
      {"double multiply", always, Checks<double>::multiply},
      {"double divide", always, Checks<double>::divide},
      {"double square root", always, Checks<double>::squareRoot},
      {"double fused multiply-add", hasFma, fusedMultiplyAddDouble},
      {"single add", always, Checks<float>::add},
      {"single subtract", always, Checks<float>::subtract},
      {"single multiply", always, Checks<float>::multiply},
      {"single divide", always, Checks<float>::divide},
      {"single square root", always, Checks<float>::squareRoot},
      {"single fused multiply-add", hasFma, fusedMultiplyAddSingle},
      {"integer to double", always, convertFromInteger},
      {"double to integer", always, convertToInteger},
  };
}

}  // namespace TarvexDiags::Processor
