// Integer arithmetic, each instruction held against a way that does without it.

#include <bit>

#include "packages/processor/Batch.h"
#include "packages/processor/Checks.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace TarvexDiags::Processor {

namespace {

using Word = std::uint64_t;
__extension__ using DoubleWord = unsigned __int128;

constexpr int kBits = 64;

/// Adds bit by bit, with logic alone.
Word rippleAdd(Word left, Word right) {
  while (right != 0) {
    const Word carry = left & right;
    left ^= right;
    // Opaque, or the compiler sees through it and adds.
    right = opaque(carry) << 1;
  }
  return left;
}

struct Product {
  Word high;
  Word low;
};

/// Multiplies as on paper: a shifted copy for each bit.
Product shiftAndAddProduct(Word left, Word right) {
  Product product{0, 0};
  for (int bit = kBits - 1; bit >= 0; --bit) {
    product.high = (product.high << 1) | (product.low >> 63);
    product.low <<= 1;
    if ((opaque(right) >> bit & 1) != 0) {
      const Word low = product.low + left;
      product.high += low < left ? 1 : 0;
      product.low = low;
    }
  }
  return product;
}

struct Quotient {
  Word quotient;
  Word remainder;
};

/// Divides as on paper: a comparison and a subtraction for each bit.
Quotient longDivision(Word dividend, Word divisor) {
  Quotient result{0, 0};
  for (int bit = kBits - 1; bit >= 0; --bit) {
    const bool carry = (result.remainder >> 63) != 0;
    result.remainder = (result.remainder << 1) | (opaque(dividend) >> bit & 1);
    if (carry || result.remainder >= divisor) {
      result.remainder -= divisor;
      result.quotient |= Word{1} << bit;
    }
  }
  return result;
}

/// Moves each bit by itself; what is moved beyond the word is handed to `lost`.
template <typename Place>
Word movedBits(Word word, Place place) {
  Word moved = 0;
  for (int bit = 0; bit < kBits; ++bit) {
    const int target = place(bit);
    if ((opaque(word) >> bit & 1) != 0 && target >= 0 && target < kBits) {
      moved |= Word{1} << target;
    }
  }
  return moved;
}

int countedOnes(Word word) {
  int count = 0;
  for (int bit = 0; bit < kBits; ++bit) {
    count += static_cast<int>(opaque(word) >> bit & 1);
  }
  return count;
}

int firstOneFrom(Word word, int start, int step) {
  int count = 0;
  for (int bit = start; bit >= 0 && bit < kBits; bit += step) {
    if ((opaque(word) >> bit & 1) != 0) {
      break;
    }
    ++count;
  }
  return count;
}

int amountOf(Word word) {
  return static_cast<int>(word % kBits);
}

Word notZero(Word word) {
  return word == 0 ? 1 : word;
}

void add(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return left + right; }, rippleAdd);
}

void subtract(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return left - right; },
      [](Word left, Word right) { return rippleAdd(rippleAdd(left, ~right), 1); });
}

/// The upper half tells whether the carry went over.
void addWithCarry(Verifier& verifier) {
  checkWords(
      verifier,
      [](Word left, Word right) {
        const DoubleWord sum =
            ((DoubleWord{left} << kBits) | right) + ((DoubleWord{right} << kBits) | left);
        return static_cast<Word>(sum >> kBits);
      },
      [](Word left, Word right) {
        const Word low = rippleAdd(left, right);
        const Word carry = ((left & right) | ((left | right) & ~low)) >> 63;
        return rippleAdd(rippleAdd(left, right), carry);
      });
}

void multiplyLow(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return left * right; },
      [](Word left, Word right) { return shiftAndAddProduct(left, right).low; });
}

void multiplyHigh(Verifier& verifier) {
  checkWords(
      verifier,
      [](Word left, Word right) { return static_cast<Word>((DoubleWord{left} * right) >> kBits); },
      [](Word left, Word right) { return shiftAndAddProduct(left, right).high; });
}

void divide(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return left / notZero(right); },
      [](Word left, Word right) { return longDivision(left, notZero(right)).quotient; });
}

void remainder(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return left % notZero(right); },
      [](Word left, Word right) { return longDivision(left, notZero(right)).remainder; });
}

void shiftLeft(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return left << amountOf(right); },
      [](Word left, Word right) {
        return movedBits(left, [&](int bit) { return bit + amountOf(right); });
      });
}

void shiftRight(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return left >> amountOf(right); },
      [](Word left, Word right) {
        return movedBits(left, [&](int bit) { return bit - amountOf(right); });
      });
}

void shiftRightSigned(Verifier& verifier) {
  checkWords(
      verifier,
      [](Word left, Word right) {
        return static_cast<Word>(static_cast<std::int64_t>(left) >> amountOf(right));
      },
      [](Word left, Word right) {
        const Word moved = movedBits(left, [&](int bit) { return bit - amountOf(right); });
        const Word filled = movedBits(~Word{0}, [&](int bit) { return bit - amountOf(right); });
        return (left >> 63) != 0 ? moved | ~filled : moved;
      });
}

void rotate(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return std::rotl(left, amountOf(right)); },
      [](Word left, Word right) {
        return movedBits(left, [&](int bit) { return (bit + amountOf(right)) % kBits; });
      });
}

void swapBytes(Verifier& verifier) {
  checkWords(
      verifier, [](Word left, Word right) { return __builtin_bswap64(left ^ right); },
      [](Word left, Word right) {
        return movedBits(left ^ right, [](int bit) { return 56 - bit / 8 * 8 + bit % 8; });
      });
}

void compareSigned(Verifier& verifier) {
  checkWords(
      verifier,
      [](Word left, Word right) {
        return Word{static_cast<std::int64_t>(left) < static_cast<std::int64_t>(right)};
      },
      [](Word left, Word right) {
        const Word difference = rippleAdd(rippleAdd(left, ~right), 1);
        const Word overflow = (left ^ right) & (left ^ difference);
        return (difference ^ overflow) >> 63;
      });
}

#if defined(__x86_64__)

// In functions of their own, for the instructions go only where the attribute stands.
[[gnu::target("popcnt")]] Word ones(Word left, Word right) {
  return static_cast<Word>(__builtin_popcountll(left ^ right));
}
[[gnu::target("lzcnt")]] Word leadingZeros(Word left, Word right) {
  return _lzcnt_u64(left & right);
}
[[gnu::target("bmi")]] Word trailingZeros(Word left, Word right) {
  return _tzcnt_u64(left & right);
}
[[gnu::target("bmi2")]] Word deposit(Word left, Word right) {
  return _pdep_u64(left, right);
}
[[gnu::target("bmi2")]] Word extract(Word left, Word right) {
  return _pext_u64(left, right);
}

void countOnes(Verifier& verifier) {
  checkWords(verifier, ones,
             [](Word left, Word right) { return static_cast<Word>(countedOnes(left ^ right)); });
}
void countLeadingZeros(Verifier& verifier) {
  checkWords(verifier, leadingZeros, [](Word left, Word right) {
    return static_cast<Word>(firstOneFrom(left & right, kBits - 1, -1));
  });
}
void countTrailingZeros(Verifier& verifier) {
  checkWords(verifier, trailingZeros, [](Word left, Word right) {
    return static_cast<Word>(firstOneFrom(left & right, 0, 1));
  });
}
void depositBits(Verifier& verifier) {
  checkWords(verifier, deposit, [](Word left, Word right) {
    Word result = 0;
    int source = 0;
    for (int bit = 0; bit < kBits; ++bit) {
      if ((opaque(right) >> bit & 1) != 0) {
        result |= (left >> source++ & 1) << bit;
      }
    }
    return result;
  });
}
void extractBits(Verifier& verifier) {
  checkWords(verifier, extract, [](Word left, Word right) {
    Word result = 0;
    int target = 0;
    for (int bit = 0; bit < kBits; ++bit) {
      if ((opaque(right) >> bit & 1) != 0) {
        result |= (left >> bit & 1) << target++;
      }
    }
    return result;
  });
}

bool hasPopcnt() {
  return __builtin_cpu_supports("popcnt");
}
// Every processor with BMI has LZCNT as well; compilers of today cannot ask for it by name.
bool hasBmi() {
  return __builtin_cpu_supports("bmi");
}
bool hasBmi2() {
  return __builtin_cpu_supports("bmi2");
}

#endif

}  // namespace

std::vector<Check> integerChecks() {
  return {
    {"integer add", always, add}, {"integer subtract", always, subtract},
        {"integer add with carry", always, addWithCarry},
        {"integer multiply, low half", always, multiplyLow},
        {"integer multiply, high half", always, multiplyHigh}, {"integer divide", always, divide},
        {"integer remainder", always, remainder}, {"shift left", always, shiftLeft},
        {"shift right", always, shiftRight}, {"shift right signed", always, shiftRightSigned},
        {"rotate", always, rotate}, {"swap bytes", always, swapBytes},
        {"compare signed", always, compareSigned},
#if defined(__x86_64__)
        {"count ones (POPCNT)", hasPopcnt, countOnes},
        {"count leading zeros (LZCNT)", hasBmi, countLeadingZeros},
        {"count trailing zeros (TZCNT)", hasBmi, countTrailingZeros},
        {"deposit bits (PDEP)", hasBmi2, depositBits},
        {"extract bits (PEXT)", hasBmi2, extractBits},
#endif
  };
}

}  // namespace TarvexDiags::Processor
