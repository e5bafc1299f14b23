#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "packages/processor/Verifier.h"

namespace TarvexDiags::Processor {

constexpr std::size_t kBatchSize = 512;

/// @brief Words on which arithmetic likes to fail: 0, 1, all ones, borders, single bits, and any.
inline std::uint64_t testWord(Common::RandomSequence& random) {
  const std::uint64_t choice = random.next();
  const std::uint64_t word = random.next();
  switch (choice % 8) {
    case 0:
      return std::uint64_t{1} << (word % 64);
    case 1:
      return ~(std::uint64_t{1} << (word % 64));
    case 2:
      return (std::uint64_t{1} << (word % 64)) - 1;
    case 3:
      return choice & 8 ? 0 : ~std::uint64_t{0};
    case 4:
      return word >> (choice / 8 % 64);
    default:
      return word;
  }
}

/// @brief Runs an operation on words of two operands in a tight loop, then what it is held against.
///
/// @param operate    what the processor shall do: a function of two words
/// @param reference  the same in another way, through other instructions
template <typename Operate, typename Reference>
void checkWords(Verifier& verifier, Operate operate, Reference reference) {
  std::array<std::uint64_t, kBatchSize> left{};
  std::array<std::uint64_t, kBatchSize> right{};
  std::array<std::uint64_t, kBatchSize> found{};
  std::array<std::uint64_t, kBatchSize> expected{};
  for (std::size_t index = 0; index < kBatchSize; ++index) {
    left[index] = testWord(verifier.random());
    right[index] = testWord(verifier.random());
  }
  for (std::size_t index = 0; index < kBatchSize; ++index) {
    found[index] = operate(opaque(left[index]), opaque(right[index]));
  }
  for (std::size_t index = 0; index < kBatchSize; ++index) {
    expected[index] = reference(left[index], right[index]);
  }
  verifier.verify(found, expected, [&](std::size_t index) {
    return hexadecimal(left[index]) + ", " + hexadecimal(right[index]);
  });
}

}  // namespace TarvexDiags::Processor
