#include "packages/processor/VectorKernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace TarvexDiags::Processor {

namespace {

#define TARVEX_SIMD [[gnu::target("ssse3")]]
#define TARVEX_INLINE [[gnu::always_inline]] TARVEX_SIMD inline

constexpr std::size_t vectorBytes = 16;
using Integers = __m128i;

TARVEX_INLINE Integers shuffleBytesOf(Integers a, Integers b) {
  return _mm_shuffle_epi8(a, b);
}
TARVEX_INLINE Integers addSaturatedOf(Integers a, Integers b) {
  return _mm_adds_epu8(a, b);
}
TARVEX_INLINE Integers averageBytesOf(Integers a, Integers b) {
  return _mm_avg_epu8(a, b);
}
TARVEX_INLINE Integers multiplyAddHalvesOf(Integers a, Integers b) {
  return _mm_madd_epi16(a, b);
}
TARVEX_INLINE Integers multiplyWideOf(Integers a, Integers b) {
  return _mm_mul_epu32(a, b);
}
TARVEX_INLINE Integers squareRootDoublesOf(Integers a, Integers) {
  return _mm_castpd_si128(_mm_sqrt_pd(_mm_castsi128_pd(a)));
}

#include "packages/processor/VectorBody.inc"

}  // namespace

const VectorKernels kSseKernels = {{
#include "packages/processor/VectorTable.inc"
}};

}  // namespace TarvexDiags::Processor

#endif
