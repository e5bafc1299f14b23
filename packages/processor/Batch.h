#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "packages/processor/Operands.h"
#include "packages/processor/Verifier.h"

namespace TarvexDiags::Processor {

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
  drawOperands<Operand::Integer>(verifier, left);
  drawOperands<Operand::Integer>(verifier, right);
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
