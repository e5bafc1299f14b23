#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace TarvexDiags::Processor {

/// Operands and results of a vector operation: so many bytes at a time, whatever the width.
constexpr std::size_t kVectorBatchBytes = 4096;

/// @brief Three operands and room for the result, aligned for the widest vectors.
struct VectorBatch {
  using Words = std::array<std::uint64_t, kVectorBatchBytes / sizeof(std::uint64_t)>;

  alignas(64) Words first;
  alignas(64) Words second;
  alignas(64) Words third;
  alignas(64) Words result;

  static const std::byte* bytesOf(const Words& words) {
    return reinterpret_cast<const std::byte*>(words.data());
  }
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
constexpr std::size_t kVectorOperationCount = 37;
using VectorKernels = std::array<VectorKernel, kVectorOperationCount>;

/// @brief One element after the other, in scalar instructions: what the vectors are held against.
extern const VectorKernels kScalarKernels;

#if defined(__x86_64__)
extern const VectorKernels kSseKernels;
extern const VectorKernels kAvx2Kernels;
extern const VectorKernels kAvx512Kernels;
#endif

}  // namespace TarvexDiags::Processor
