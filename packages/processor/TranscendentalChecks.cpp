// Functions that have no exact result: of the x87 unit, and of the mathematical library in double
// and complex numbers. All are held against power series in integers, within the error that each is
// allowed.

#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "packages/common/RandomSequence.h"
#include "packages/processor/Checks.h"
#include "packages/processor/FixedPoint.h"
#include "packages/processor/FloatEnvironment.h"
#include "packages/processor/LoadChecks.h"
#include "packages/processor/Operands.h"

namespace TarvexDiags::Processor {

namespace {

constexpr std::size_t kArguments = 32;

/// Two results at most: real and imaginary part, or sine and cosine.
template <typename Real>
using Results = std::array<Real, 2>;
using Reference = std::array<FixedPoint, 2>;

/// What is computed of two arguments from -1 to below 1, and how exact it has to be.
template <typename Real>
struct Function {
  const char* name;
  Results<Real> (*compute)(Real x, Real y);
  Reference (*reference)(FixedPoint x, FixedPoint y);
  int bits;  ///< the error allowed is 2^-bits of the result
};

/// Words of which few enough bits are left that arguments can be halved and added to without loss.
template <typename Real>
struct Argument {
  template <class Arithmetic>
  static std::uint64_t make(std::uint64_t, std::uint64_t word) {
    return Arithmetic::both(word, sizeof(Real) > sizeof(double) ? ~0xffULL : ~0xffffULL);
  }
};

template <typename Real>
Real realOf(std::uint64_t word) {
  return static_cast<Real>(static_cast<std::int64_t>(word)) * static_cast<Real>(0x1p-63);
}

FixedPoint fixedOf(std::uint64_t word) {
  return FixedPoint::scaled(static_cast<std::int64_t>(word), -63);
}

/// A result that is exact enough counts as the very one, so that all bits can be compared.
std::uint64_t wordOf(FixedPoint found, FixedPoint reference, int bits) {
  const std::uint64_t expected = reference.upperWord();
  if (reference.isAbout(found, bits)) {
    return expected;
  }
  return found.upperWord() == expected ? ~expected : found.upperWord();
}

template <typename Real>
void checkFunction(Verifier& verifier, const Function<Real>& function) {
  const FloatEnvironment environment;
  std::array<std::uint64_t, 2 * kArguments> arguments{};
  std::array<Results<Real>, kArguments> results{};
  std::array<std::uint64_t, 2 * kArguments> found{};
  std::array<std::uint64_t, 2 * kArguments> expected{};
  drawOperands<Argument<Real>>(verifier, arguments);
  for (std::size_t index = 0; index < kArguments; ++index) {
    results[index] = function.compute(opaque(realOf<Real>(arguments[2 * index])),
                                      opaque(realOf<Real>(arguments[2 * index + 1])));
  }
  for (std::size_t index = 0; index < kArguments; ++index) {
    const Reference reference =
        function.reference(fixedOf(arguments[2 * index]), fixedOf(arguments[2 * index + 1]));
    for (std::size_t part = 0; part < reference.size(); ++part) {
      const FixedPoint value = FixedPoint::of(results[index][part]);
      found[2 * index + part] = wordOf(value, reference[part], function.bits);
      expected[2 * index + part] = reference[part].upperWord();
    }
  }
  verifier.verify(found, expected, [&](std::size_t index) {
    return hexadecimal(arguments[index / 2 * 2]) + ", " +
           hexadecimal(arguments[index / 2 * 2 + 1]) + " in units of 2^-63, part " +
           std::to_string(index % 2 + 1) + " in units of 2^-56";
  });
}

FixedPoint number(std::int64_t value) {
  return FixedPoint::scaled(value, 0);
}
FixedPoint halfOf(FixedPoint value) {
  return value / 2;
}
/// From 1 to below 2.
FixedPoint oneToTwo(FixedPoint x) {
  return halfOf(number(3) + x);
}
template <typename Real>
Real oneToTwo(Real x) {
  return static_cast<Real>(1.5) + x / 2;
}
Reference single(FixedPoint value) {
  return {value, FixedPoint()};
}
FixedPoint exponential(FixedPoint x) {
  return number(1) + exponentialMinusOne(x);
}
FixedPoint logarithm(FixedPoint x) {
  return logarithmOfOneAnd(x - number(1));
}

// --- Double and complex ---

// The mathematical library promises one unit in the last place, 2^-52 at most; complex arithmetic
// adds up some roundings.
constexpr int kDoubleBits = 51;

using Complex = std::complex<double>;

Results<double> partsOf(const Complex& value) {
  return {value.real(), value.imag()};
}

/// A product of which no part comes close to zero, where there is nothing to compare by.
Complex complexProduct(double x, double y) {
  return opaque(Complex(oneToTwo(x), 0.25)) * opaque(Complex(2, oneToTwo(y)));
}

Reference complexProductReference(FixedPoint x, FixedPoint y) {
  const FixedPoint quarter = number(1) / 4;
  const FixedPoint real = oneToTwo(x);
  const FixedPoint imaginary = oneToTwo(y);
  return {real * number(2) - quarter * imaginary, real * imaginary + quarter * number(2)};
}

Reference complexQuotientReference(FixedPoint x, FixedPoint y) {
  // (3 + i (1 to 2)) / ((1 to 2) + i/4)
  const FixedPoint quarter = number(1) / 4;
  const FixedPoint imaginary = oneToTwo(x);
  const FixedPoint divisor = oneToTwo(y);
  const FixedPoint norm = divisor * divisor + quarter * quarter;
  return {(number(3) * divisor + imaginary * quarter) / norm,
          (imaginary * divisor - number(3) * quarter) / norm};
}

constexpr std::array<Function<double>, 11> kDoubleFunctions = {{
    {"double exponential",
     [](double x, double) -> Results<double> {
       return {std::exp(x), 0};
     },
     [](FixedPoint x, FixedPoint) { return single(exponential(x)); }, kDoubleBits},
    {"double logarithm",
     [](double x, double) -> Results<double> {
       return {std::log(oneToTwo(x)), 0};
     },
     [](FixedPoint x, FixedPoint) { return single(logarithm(oneToTwo(x))); }, kDoubleBits},
    {"double sine and cosine",
     [](double x, double y) -> Results<double> {
       return {std::sin(x), std::cos(y)};
     },
     [](FixedPoint x, FixedPoint y) {
       return Reference{sine(x), cosine(y)};
     },
     kDoubleBits},
    {"double tangent",
     [](double x, double) -> Results<double> {
       return {std::tan(x), 0};
     },
     [](FixedPoint x, FixedPoint) { return single(sine(x) / cosine(x)); }, kDoubleBits},
    {"double arc tangent",
     [](double x, double) -> Results<double> {
       return {std::atan(x / 2), 0};
     },
     [](FixedPoint x, FixedPoint) { return single(arcTangent(halfOf(x))); }, kDoubleBits},
    {"double power",
     [](double x, double y) -> Results<double> {
       return {std::pow(oneToTwo(x), y), 0};
     },
     [](FixedPoint x, FixedPoint y) { return single(exponential(y * logarithm(oneToTwo(x)))); },
     kDoubleBits},
    {"double hyperbolic tangent",
     [](double x, double) -> Results<double> {
       return {std::tanh(x), 0};
     },
     [](FixedPoint x, FixedPoint) {
       const FixedPoint grown = exponentialMinusOne(x + x);
       return single(grown / (grown + number(2)));
     },
     kDoubleBits - 1},
    {"complex multiply", [](double x, double y) { return partsOf(complexProduct(x, y)); },
     complexProductReference, kDoubleBits - 1},
    {"complex divide",
     [](double x, double y) {
       return partsOf(opaque(Complex(3, oneToTwo(x))) / opaque(Complex(oneToTwo(y), 0.25)));
     },
     complexQuotientReference, kDoubleBits - 3},
    {"complex exponential",
     [](double x, double y) { return partsOf(std::exp(opaque(Complex(x, y)))); },
     [](FixedPoint x, FixedPoint y) {
       return Reference{exponential(x) * cosine(y), exponential(x) * sine(y)};
     },
     kDoubleBits - 1},
    {"complex logarithm",
     [](double x, double y) { return partsOf(std::log(opaque(Complex(2 * oneToTwo(x), y)))); },
     [](FixedPoint x, FixedPoint y) {
       const FixedPoint real = oneToTwo(x) + oneToTwo(x);
       const FixedPoint eighth = (real * real + y * y) / 8;
       const FixedPoint three = logarithmOfTwo() * number(3);
       return Reference{halfOf(logarithm(eighth) + three), arcTangent(y / real)};
     },
     kDoubleBits - 1},
}};

template <std::size_t number>
void checkDouble(Verifier& verifier) {
  checkFunction(verifier, kDoubleFunctions[number]);
}

#if defined(__x86_64__)

// --- x87 ---

using Extended = long double;

// One unit in the last place of 64 bits; the four of the trigonometric functions that emulators
// compute in double are held to that, and all their bits to what other cores make of them.
constexpr int kExtendedBits = 62;
constexpr int kTrigonometricBits = 50;
// Arithmetic is rounded to nearest: half a unit.
constexpr int kRoundedBits = 64;

Results<Extended> powerOfTwoMinusOne(Extended x, Extended) {
  asm("f2xm1" : "+t"(x));
  return {x, 0};
}
Results<Extended> sineOf(Extended x, Extended) {
  asm("fsin" : "+t"(x));
  return {x, 0};
}
Results<Extended> cosineOf(Extended x, Extended) {
  asm("fcos" : "+t"(x));
  return {x, 0};
}
Results<Extended> sineAndCosineOf(Extended x, Extended) {
  Extended sine = 0;
  Extended cosine = 0;
  asm("fsincos" : "=t"(cosine), "=u"(sine) : "0"(x));
  return {sine, cosine};
}
Results<Extended> tangentOf(Extended x, Extended) {
  Extended one = 0;
  Extended tangent = 0;
  asm("fptan" : "=t"(one), "=u"(tangent) : "0"(x));
  return {tangent, one};
}
Results<Extended> arcTangentOf(Extended x, Extended) {
  Extended result = 0;
  asm("fpatan" : "=t"(result) : "0"(Extended{2}), "u"(x) : "st(1)");
  return {result, 0};
}
Results<Extended> logarithmTimes(Extended x, Extended y) {
  Extended result = 0;
  asm("fyl2x" : "=t"(result) : "0"(oneToTwo(x)), "u"(y) : "st(1)");
  return {result, 0};
}
Results<Extended> logarithmOfOneAndTimes(Extended x, Extended y) {
  Extended result = 0;
  asm("fyl2xp1" : "=t"(result) : "0"(x / 4), "u"(y) : "st(1)");
  return {result, 0};
}
/// Both parts of a number at once: its exponent and its significand, put together again.
Results<Extended> takenApart(Extended x, Extended y) {
  Extended significand = 0;
  Extended exponent = 0;
  asm("fxtract" : "=t"(significand), "=u"(exponent) : "0"(oneToTwo(y) / 8));
  Extended scaled = 0;
  asm("fscale" : "=t"(scaled) : "0"(x), "u"(exponent));
  return {scaled, significand};
}
/// What is left of a division whose quotient is a whole number.
Results<Extended> remainderOf(Extended x, Extended y) {
  Extended result = 0;
  asm("fprem" : "=t"(result) : "0"(oneToTwo(x)), "u"(oneToTwo(y) / 2) : "cc");
  return {result, 0};
}

FixedPoint remainderReference(FixedPoint dividend, FixedPoint divisor) {
  constexpr int largestQuotient = 3;
  for (int count = 0; count < largestQuotient && !(dividend - divisor).isNegative(); ++count) {
    dividend = dividend - divisor;
  }
  return dividend;
}

FixedPoint binaryLogarithmOfOneAnd(FixedPoint x) {
  return logarithmOfOneAnd(x) / logarithmOfTwo();
}

constexpr std::array<Function<Extended>, 13> kExtendedFunctions = {{
    {"x87 add and subtract (FADD, FSUB)",
     [](Extended x, Extended y) -> Results<Extended> {
       return {x + y, x - y};
     },
     [](FixedPoint x, FixedPoint y) {
       return Reference{x + y, x - y};
     },
     kRoundedBits},
    {"x87 multiply (FMUL)",
     [](Extended x, Extended y) -> Results<Extended> {
       return {x * y, oneToTwo(x) * y};
     },
     [](FixedPoint x, FixedPoint y) {
       return Reference{x * y, oneToTwo(x) * y};
     },
     kRoundedBits},
    {"x87 divide (FDIV)",
     [](Extended x, Extended y) -> Results<Extended> {
       return {x / oneToTwo(y), oneToTwo(x) / oneToTwo(y)};
     },
     [](FixedPoint x, FixedPoint y) {
       return Reference{x / oneToTwo(y), oneToTwo(x) / oneToTwo(y)};
     },
     kRoundedBits},
    {"x87 square root (FSQRT)",
     [](Extended x, Extended y) -> Results<Extended> {
       return {std::sqrt(oneToTwo(x) * oneToTwo(x)), std::sqrt(oneToTwo(y))};
     },
     [](FixedPoint x, FixedPoint y) {
       return Reference{oneToTwo(x), exponential(halfOf(logarithm(oneToTwo(y))))};
     },
     kExtendedBits},
    {"x87 power of two (F2XM1)", powerOfTwoMinusOne,
     [](FixedPoint x, FixedPoint) { return single(exponentialMinusOne(x * logarithmOfTwo())); },
     kExtendedBits},
    {"x87 sine (FSIN)", sineOf, [](FixedPoint x, FixedPoint) { return single(sine(x)); },
     kTrigonometricBits},
    {"x87 cosine (FCOS)", cosineOf, [](FixedPoint x, FixedPoint) { return single(cosine(x)); },
     kTrigonometricBits},
    {"x87 sine and cosine (FSINCOS)", sineAndCosineOf,
     [](FixedPoint x, FixedPoint) {
       return Reference{sine(x), cosine(x)};
     },
     kTrigonometricBits},
    {"x87 tangent (FPTAN)", tangentOf,
     [](FixedPoint x, FixedPoint) {
       return Reference{sine(x) / cosine(x), number(1)};
     },
     kTrigonometricBits},
    {"x87 arc tangent (FPATAN)", arcTangentOf,
     [](FixedPoint x, FixedPoint) { return single(arcTangent(halfOf(x))); }, kExtendedBits},
    {"x87 logarithms (FYL2X, FYL2XP1)",
     [](Extended x, Extended y) -> Results<Extended> {
       return {logarithmTimes(x, y)[0], logarithmOfOneAndTimes(x, y)[0]};
     },
     [](FixedPoint x, FixedPoint y) {
       return Reference{y * binaryLogarithmOfOneAnd(oneToTwo(x) - number(1)),
                        y * binaryLogarithmOfOneAnd(x / 4)};
     },
     kExtendedBits},
    {"x87 scale and extract (FSCALE, FXTRACT)", takenApart,
     [](FixedPoint x, FixedPoint y) {
       return Reference{x / 8, oneToTwo(y)};
     },
     kRoundedBits},
    {"x87 partial remainder (FPREM)", remainderOf,
     [](FixedPoint x, FixedPoint y) {
       return single(remainderReference(oneToTwo(x), halfOf(oneToTwo(y))));
     },
     kRoundedBits},
}};

template <std::size_t number>
void checkExtended(Verifier& verifier) {
  checkFunction(verifier, kExtendedFunctions[number]);
}

template <std::size_t... numbers>
void appendExtended(std::vector<Check>& checks, std::index_sequence<numbers...>) {
  (checks.push_back({kExtendedFunctions[numbers].name, always, checkExtended<numbers>}), ...);
}

#endif

// --- All bits ---

/// The value bits alone: what fills the type up to its size may be anything.
template <typename Real>
void appendBits(std::vector<std::uint64_t>& words, Real value) {
  constexpr std::size_t valueBytes = sizeof(Real) > sizeof(double) ? 10 : sizeof(Real);
  std::array<std::uint64_t, 2> parts{};
  std::memcpy(parts.data(), &value, valueBytes);
  words.insert(words.end(), parts.begin(), parts.end());
}

template <typename Real, std::size_t count>
void appendResults(std::vector<std::uint64_t>& words,
                   const std::array<Function<Real>, count>& functions,
                   std::span<const std::uint64_t> arguments) {
  for (const auto& function : functions) {
    for (std::size_t index = 0; index < arguments.size(); index += 2) {
      for (const auto value : function.compute(opaque(realOf<Real>(arguments[index])),
                                               opaque(realOf<Real>(arguments[index + 1])))) {
        appendBits(words, value);
      }
    }
  }
}

/// Of all functions: the lowest bits too, which the series leave open.
std::uint64_t allBits(std::uint64_t seed) {
  const FloatEnvironment environment;
  std::array<std::uint64_t, 2 * kArguments> arguments{};
  makeOperands<Argument<double>, Direct>(Common::mixed(seed), arguments);
  std::vector<std::uint64_t> words;
  appendResults(words, kDoubleFunctions, arguments);
#if defined(__x86_64__)
  appendResults(words, kExtendedFunctions, arguments);
#endif
  return digestOf(words);
}

void checkAllBits(Verifier& verifier) {
  constexpr std::uint64_t seeds = 2;
  verifyDigest(verifier);
  verifier.verifyAgreed(allBits, drawWord(verifier) % seeds + 1);
}

template <std::size_t... numbers>
void appendDouble(std::vector<Check>& checks, std::index_sequence<numbers...>) {
  (checks.push_back({kDoubleFunctions[numbers].name, always, checkDouble<numbers>}), ...);
}

}  // namespace

std::vector<Check> transcendentalChecks() {
  std::vector<Check> checks;
#if defined(__x86_64__)
  appendExtended(checks, std::make_index_sequence<kExtendedFunctions.size()>());
#endif
  appendDouble(checks, std::make_index_sequence<kDoubleFunctions.size()>());
  checks.push_back({"transcendental functions, all bits", always, checkAllBits});
  return checks;
}

}  // namespace TarvexDiags::Processor
