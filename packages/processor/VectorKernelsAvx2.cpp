#include "packages/processor/VectorKernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace TarvexDiags::Processor {

namespace {

#define TARVEX_SIMD [[gnu::target("avx2")]]
#define TARVEX_INLINE [[gnu::always_inline]] TARVEX_SIMD inline

constexpr std::size_t vectorBytes = 32;
using Integers = __m256i;

TARVEX_INLINE Integers shuffleBytesOf(Integers a, Integers b) {
  return _mm256_shuffle_epi8(a, b);
}
TARVEX_INLINE Integers addSaturatedOf(Integers a, Integers b) {
  return _mm256_adds_epu8(a, b);
}
TARVEX_INLINE Integers averageBytesOf(Integers a, Integers b) {
  return _mm256_avg_epu8(a, b);
}
TARVEX_INLINE Integers multiplyAddHalvesOf(Integers a, Integers b) {
  return _mm256_madd_epi16(a, b);
}
TARVEX_INLINE Integers multiplyWideOf(Integers a, Integers b) {
  return _mm256_mul_epu32(a, b);
}
TARVEX_INLINE Integers squareRootDoublesOf(Integers a, Integers) {
  return _mm256_castpd_si256(_mm256_sqrt_pd(_mm256_castsi256_pd(a)));
}

#include "packages/processor/VectorBody.inc"

}  // namespace

const VectorKernels kAvx2Kernels = {{
#include "packages/processor/VectorTable.inc"
}};

}  // namespace TarvexDiags::Processor

#endif
