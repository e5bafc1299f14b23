// Every width of vectors that the processor has, operation by operation, against scalar
// instructions.

#include <algorithm>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <utility>

#include "packages/processor/Batch.h"
#include "packages/processor/Checks.h"
#include "packages/processor/VectorKernels.h"

namespace TarvexDiags::Processor {

namespace {

void fill(Verifier& verifier, VectorBatch::Words& operand, Element element, bool positive) {
  if (element == Element::Doubles && positive) {
    drawOperands<Operand::Finite<std::uint64_t, true>>(verifier, operand);
  } else if (element == Element::Doubles) {
    drawOperands<Operand::Finite<std::uint64_t, false>>(verifier, operand);
  } else if (element == Element::Singles) {
    drawOperands<Operand::Finite<std::uint32_t, false>>(verifier, operand);
  } else {
    drawOperands<Operand::Integer>(verifier, operand);
  }
}

/// Equal elements among the operands, for comparisons.
void makeSomeEqual(Verifier& verifier, VectorBatch& batch) {
  const std::span<std::uint64_t> second = std::span(batch.second).first(batch.second.size() / 8);
  std::copy_n(batch.first.begin(), second.size(), second.begin());
  verifier.verifyCopy(second, std::span(batch.first).first(second.size()));
}

template <const VectorKernels& kernels, std::size_t number>
void checkOperation(Verifier& verifier) {
  const VectorKernel& kernel = kernels[number];
  VectorBatch batch{};
  const bool root = std::strncmp(kernel.name, "square", 6) == 0;
  for (auto* operand : {&batch.first, &batch.second, &batch.third}) {
    fill(verifier, *operand, kernel.element, root);
  }
  makeSomeEqual(verifier, batch);
  kernel.run(batch);
  auto found = batch.result;
  // What the scalar instructions leave out must not look like their result.
  std::transform(found.begin(), found.end(), batch.result.begin(), std::bit_not<>());
  kScalarKernels[number].run(batch);
  verifier.verify(found, batch.result, [&](std::size_t index) {
    return hexadecimal(batch.first[index]) + ", " + hexadecimal(batch.second[index]) + ", " +
           hexadecimal(batch.third[index]);
  });
}

template <const VectorKernels& kernels, std::size_t... numbers>
void append(std::vector<Check>& checks, const std::string& width, bool (*available)(),
            std::index_sequence<numbers...>) {
  (checks.push_back(
       {width + " " + kernels[numbers].name, available, checkOperation<kernels, numbers>}),
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
