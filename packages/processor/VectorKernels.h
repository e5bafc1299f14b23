#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace TarvexDiags::Processor {

/// Operands and results of a vector operation: so many bytes at a time, whatever the width.
constexpr std::size_t vectorBatchBytes = 4096;

/// @brief Three operands and room for the result, aligned for the widest vectors.
struct VectorBatch {
  alignas(64) std::array<std::byte, vectorBatchBytes> first;
  alignas(64) std::array<std::byte, vectorBatchBytes> second;
  alignas(64) std::array<std::byte, vectorBatchBytes> third;
  alignas(64) std::array<std::uint64_t, vectorBatchBytes / sizeof(std::uint64_t)> result;
};

/// @brief What fits into the elements of an operation.
enum class Element { Bytes, Halves, Words, DoubleWords, Singles, Doubles };

/// @brief One operation on all elements of a batch, in one width or in plain form.
struct VectorKernel {
  const char* name;
  Element element;
  void (*run)(VectorBatch& batch);
};

/// The same operations in the same order in all of them.
constexpr std::size_t vectorOperationCount = 37;
using VectorKernels = std::array<VectorKernel, vectorOperationCount>;

///  @brief One element after the other, in scalar instructions: what the vectors are held against.
extern const VectorKernels scalarKernels;

#if defined(__x86_64__)
extern const VectorKernels sseKernels;
extern const VectorKernels avx2Kernels;
extern const VectorKernels avx512Kernels;
#endif

}  // namespace TarvexDiags::Processor
