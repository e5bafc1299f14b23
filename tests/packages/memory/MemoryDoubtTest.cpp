// A comparison that sees a difference which nobody finds when he looks for it: a register that
// flipped, and memory that is right.

#include <gtest/gtest.h>

#include "packages/memory/Kernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <cstring>
#include <memory>
#include <new>

namespace TarvexDiags::Memory {

namespace {

#define TARVEX_SIMD [[gnu::target("avx2")]]

/// How many comparisons are wrong from now on.
int wrongComparisons = 0;

typedef std::uint64_t Register __attribute__((vector_size(32), may_alias));

TARVEX_SIMD [[gnu::always_inline]] inline void streamRegister(void* to, Register value) {
  _mm256_stream_si256(static_cast<__m256i*>(to), reinterpret_cast<__m256i>(value));
}

TARVEX_SIMD [[gnu::always_inline]] inline bool anySet(Register value) {
  const auto bits = reinterpret_cast<__m256i>(value);
  return _mm256_testz_si256(bits, bits) == 0 || wrongComparisons-- > 0;
}

void orderStores() {
  _mm_sfence();
}

bool supported() {
  return __builtin_cpu_supports("avx2");
}

#include "packages/memory/KernelBody.inc"

const Kernels kDoubtfulKernels = {"doubtful", supported, fill,         verify,
                                  march,      copy,      scatterWords, orderStores};

TEST(MemoryDoubtTest, lines_whose_difference_nobody_finds_are_looked_at_again) {
  if (!kDoubtfulKernels.supported()) {
    GTEST_SKIP() << "no AVX2";
  }
  static_assert(kLinesInGroup > 1);
  constexpr std::align_val_t alignment{kLineBytes};
  auto* const data = static_cast<std::byte*>(::operator new(kBlockBytes, alignment));
  const Block block = {data, 3};
  const Pattern pattern = Pattern::random(7);
  kDoubtfulKernels.fill(block, pattern);
  FoundLine found{};
  constexpr std::size_t begin = 2 * kLinesInGroup;
  wrongComparisons = 1;
  EXPECT_EQ(kDoubtfulKernels.verify(block, begin, pattern, found), begin);
  EXPECT_EQ(std::memcmp(found.words.data(), data + begin * kLineBytes, kLineBytes), 0);
  wrongComparisons = 0;
  EXPECT_EQ(kDoubtfulKernels.verify(block, begin + 1, pattern, found), kLinesInBlock);
  ::operator delete(data, alignment);
}

}  // namespace
}  // namespace TarvexDiags::Memory

#endif
