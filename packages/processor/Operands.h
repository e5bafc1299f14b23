#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "packages/processor/SoftFloat.h"
#include "packages/processor/Verifier.h"

// Operands are made by instructions of the core under test too, and a wrong one would do no more
// than change what is computed from then on, right each time. So each batch of them is made twice,
// by different instructions, and compared.

namespace TarvexDiags::Processor {

constexpr std::size_t kBatchSize = 512;

/// @brief The steps that operands are made of, each by the instruction for it.
struct Direct {
  using Word = std::uint64_t;
  static Word add(Word left, Word right) { return left + right; }
  static Word multiply(Word left, Word right) { return left * right; }
  static Word shiftLeft(Word word, Word amount) { return word << amount; }
  static Word shiftRight(Word word, Word amount) { return word >> amount; }
  static Word exclusiveOr(Word left, Word right) { return left ^ right; }
  static Word both(Word left, Word right) { return left & right; }
  static Word either(Word left, Word right) { return left | right; }
  static Word choose(bool condition, Word yes, Word no) { return condition ? yes : no; }
};

/// @brief The same steps by other instructions. Values are hidden from the compiler on the way, or
/// it would see through them.
struct Roundabout {
  using Word = std::uint64_t;

  [[gnu::always_inline]] static inline Word hidden(Word word) {
    asm volatile("" : "+r"(word));
    return word;
  }
  static Word add(Word left, Word right) { return left - hidden(~right) - 1; }
  static Word multiply(Word left, Word right) {
    const Word low = hidden(right & 0xffffffff);
    const Word high = hidden(right >> 32);
    return add(left * low, shiftLeft(left * high, 32));
  }
  static Word shiftLeft(Word word, Word amount) {
    const Word half = hidden(amount >> 1);
    return hidden(word << half) << (amount - half);
  }
  static Word shiftRight(Word word, Word amount) {
    const Word half = hidden(amount >> 1);
    return hidden(word >> half) >> (amount - half);
  }
  static Word exclusiveOr(Word left, Word right) {
    return hidden(left | right) - hidden(left & right);
  }
  static Word both(Word left, Word right) { return ~(hidden(~left) | hidden(~right)); }
  static Word either(Word left, Word right) { return ~(hidden(~left) & hidden(~right)); }
  static Word choose(bool condition, Word yes, Word no) {
    const Word mask = hidden(Word{0} - Word{condition});
    return add(both(yes, mask), both(no, ~mask));
  }
};

/// @brief Common::mixed by the steps of an arithmetic.
template <class Arithmetic>
std::uint64_t mixedBy(std::uint64_t counter) {
  using A = Arithmetic;
  counter = A::add(counter, 0x9e3779b97f4a7c15U);
  counter = A::multiply(A::exclusiveOr(counter, A::shiftRight(counter, 30)), 0xbf58476d1ce4e5b9U);
  counter = A::multiply(A::exclusiveOr(counter, A::shiftRight(counter, 27)), 0x94d049bb133111ebU);
  return A::exclusiveOr(counter, A::shiftRight(counter, 31));
}

/// The kinds of operands: each makes a word of two random ones.
namespace Operand {

/// @brief Any word, all alike.
struct Random {
  template <class Arithmetic>
  static std::uint64_t make(std::uint64_t, std::uint64_t word) {
    return word;
  }
};

/// @brief Words on which arithmetic likes to fail: 0, 1, all ones, borders, single bits, and any.
struct Integer {
  template <class Arithmetic>
  static std::uint64_t make(std::uint64_t choice, std::uint64_t word) {
    using A = Arithmetic;
    const std::uint64_t one = A::shiftLeft(1, A::both(word, 63));
    switch (A::both(choice, 7)) {
      case 0:
        return one;
      case 1:
        return A::exclusiveOr(one, ~std::uint64_t{0});
      case 2:
        return A::add(one, ~std::uint64_t{0});
      case 3:
        return A::choose(A::both(choice, 8) != 0, 0, ~std::uint64_t{0});
      case 4:
        return A::shiftRight(word, A::both(A::shiftRight(choice, 3), 63));
      default:
        return word;
    }
  }
};

/// @brief Any number: borders, denormals, infinities and NaN more often than chance would have
/// them.
template <class Soft>
struct Real {
  template <class Arithmetic>
  static std::uint64_t make(std::uint64_t choice, std::uint64_t word) {
    using A = Arithmetic;
    constexpr std::uint64_t lowest = Soft::kFractionMask + 1;
    constexpr std::array<std::uint64_t, 8> corners = {
        0, 1, Soft::kFractionMask, lowest, Soft::kLargest, Soft::kInfinity, Soft::kNan, lowest + 1};
    const std::uint64_t sign =
        A::choose(A::both(A::shiftRight(choice, 32), 1) != 0, Soft::kSignBit, 0);
    const std::uint64_t fraction = A::both(word, Soft::kFractionMask);
    const std::uint64_t detail = A::shiftRight(choice, 3);
    switch (A::both(choice, 7)) {
      case 0:
        return A::either(sign, corners[A::both(detail, corners.size() - 1)]);
      case 1:
        return A::either(sign, A::shiftRight(fraction, A::both(detail, 63)));
      case 2:
      case 3: {
        // Close to one another, so that sums cancel.
        const std::uint64_t exponent = A::add(Soft::kExponentMask / 2, A::both(detail, 3));
        return A::either(sign, A::either(A::multiply(exponent, lowest), fraction));
      }
      default:
        return A::both(word, Soft::kSignBit | (Soft::kSignBit - 1));
    }
  }
};

/// @brief Words of `Integer` as elements that are neither infinite nor NaN: the highest bit of each
/// exponent is missing, and the sign if they have to be positive.
template <typename Element, bool positive>
struct Finite {
  template <class Arithmetic>
  static std::uint64_t make(std::uint64_t choice, std::uint64_t word) {
    constexpr int digits = std::numeric_limits<Element>::digits;
    constexpr Element exponent = Element{1} << (digits - 2);
    constexpr Element sign = positive ? Element{1} << (digits - 1) : Element{0};
    constexpr std::uint64_t element = static_cast<Element>(~(exponent | sign));
    constexpr std::uint64_t mask = digits == 64 ? element : element | element << (digits % 64);
    return Arithmetic::both(Integer::make<Arithmetic>(choice, word), mask);
  }
};

}  // namespace Operand

/// @brief Makes the words that belong to a counter, two of its values for each.
/// @param words one or more: a question whether there are any would be one more instruction that
/// can be wrong, and nothing would come of it
template <class Kind, class Arithmetic>
[[gnu::noinline]] void makeOperands(std::uint64_t counter, std::span<std::uint64_t> words) {
  std::uint64_t* word = words.data();
  std::uint64_t* const end = word + words.size();
  do {
    const std::uint64_t choice = mixedBy<Arithmetic>(counter);
    const std::uint64_t raw = mixedBy<Arithmetic>(Arithmetic::add(counter, 1));
    *word = Kind::template make<Arithmetic>(choice, raw);
    counter = Arithmetic::add(counter, 2);
  } while (++word != end);
}

/// @brief Fills words with the next operands of a kind, and has the core's making of them verified.
/// @param words  their number is a multiple of kBatchSize, or below it
template <class Kind>
void drawOperands(Verifier& verifier, std::span<std::uint64_t> words) {
  std::array<std::uint64_t, kBatchSize> again{};
  for (std::size_t offset = 0; offset < words.size(); offset += kBatchSize) {
    const auto batch = words.subspan(offset, std::min(kBatchSize, words.size() - offset));
    const std::uint64_t counter = verifier.takeCounter(2 * batch.size());
    makeOperands<Kind, Direct>(counter, batch);
    makeOperands<Kind, Roundabout>(counter, std::span(again).first(batch.size()));
    verifier.verifyOperands(batch, std::span(again).first(batch.size()), counter);
  }
}

/// @brief A single operand of the kind Random.
inline std::uint64_t drawWord(Verifier& verifier) {
  std::array<std::uint64_t, 1> word{};
  drawOperands<Operand::Random>(verifier, word);
  return word[0];
}

}  // namespace TarvexDiags::Processor
