// Every width of vectors that the processor has, operation by operation, against scalar
// instructions.

#include <bit>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "packages/processor/Batch.h"
#include "packages/processor/Checks.h"
#include "packages/processor/VectorKernels.h"

namespace TarvexDiags::Processor {

namespace {

/// A number that is neither infinite nor NaN: the highest bit of the exponent is missing.
template <typename Word>
Word finite(Word word, bool positive) {
  constexpr int highestOfExponent = std::numeric_limits<Word>::digits - 2;
  word &= ~(Word{1} << highestOfExponent);
  return positive ? word & (std::numeric_limits<Word>::max() >> 1) : word;
}

void fill(std::array<std::byte, kVectorBatchBytes>& operand, Element element, bool positive,
          Common::RandomSequence& random) {
  for (std::size_t offset = 0; offset < kVectorBatchBytes; offset += sizeof(std::uint64_t)) {
    std::uint64_t word = testWord(random);
    if (element == Element::Doubles) {
      word = finite(word, positive);
    } else if (element == Element::Singles) {
      const std::uint64_t low = finite(static_cast<std::uint32_t>(word), positive);
      word = low | std::uint64_t{finite(static_cast<std::uint32_t>(word >> 32), positive)} << 32;
    }
    std::memcpy(operand.data() + offset, &word, sizeof(word));
  }
}

std::uint64_t wordAt(const std::array<std::byte, kVectorBatchBytes>& operand, std::size_t index) {
  std::uint64_t word = 0;
  std::memcpy(&word, operand.data() + index * sizeof(word), sizeof(word));
  return word;
}

template <const VectorKernels& kernels, std::size_t number>
void checkOperation(Verifier& verifier) {
  const VectorKernel& kernel = kAvx512Kernels[number];
  VectorBatch batch{};
  const bool root = std::strncmp(kernel.name, "square", 6) == 0;
  for (auto* operand : {&batch.first, &batch.second, &batch.third}) {
    fill(*operand, kernel.element, root, verifier.random());
  }
  // Equal elements among them, for comparisons.
  std::memcpy(batch.second.data(), batch.first.data(), kVectorBatchBytes / 8);
  kernel.run(batch);
  auto found = batch.result;
  kScalarKernels[number].run(batch);
  verifier.verify(found, batch.result, [&](std::size_t index) {
    return hexadecimal(wordAt(batch.first, index)) + ", " +
           hexadecimal(wordAt(batch.second, index)) + ", " +
           hexadecimal(wordAt(batch.third, index));
  });
}

template <const VectorKernels& kernels, std::size_t... numbers>
void append(std::vector<Check>& checks, const std::string& width, bool (*available)(),
            std::index_sequence<numbers...>) {
  (checks.push_back({width + " " + kAvx512Kernels[numbers].name, available,
                     checkOperation<kAvx512Kernels, numbers>}),
   ...);
}

#if defined(__x86_64__)
bool hasSsse3() {
  return __builtin_cpu_supports("ssse3");
}
bool hasAvx2() {
  return __builtin_cpu_supports("avx2");
}
bool hasAvx512() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512dq");
}
#endif

}  // namespace

std::vector<Check> vectorChecks() {
  std::vector<Check> checks;
#if defined(__x86_64__)
  constexpr std::make_index_sequence<kVectorOperationCount> all;
  append<kSseKernels>(checks, "128-bit", hasSsse3, all);
  append<kAvx2Kernels>(checks, "256-bit", hasAvx2, all);
  append<kAvx512Kernels>(checks, "512-bit", hasAvx512, all);
#endif
  return checks;
}

}  // namespace TarvexDiags::Processor
