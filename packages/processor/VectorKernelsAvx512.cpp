#include "packages/processor/VectorKernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace TarvexDiags::Processor {

namespace {

#define TARVEX_SIMD [[gnu::target("avx512f,avx512bw,avx512dq")]]
#define TARVEX_INLINE [[gnu::always_inline]] TARVEX_SIMD inline

constexpr std::size_t vectorBytes = 64;
using Integers = __m512i;

// g++ 12 warns of its own headers where they leave the mask out.
constexpr __mmask8 kAllElements = 0xff;

TARVEX_INLINE Integers shuffleBytesOf(Integers a, Integers b) {
  return _mm512_shuffle_epi8(a, b);
}
TARVEX_INLINE Integers addSaturatedOf(Integers a, Integers b) {
  return _mm512_adds_epu8(a, b);
}
TARVEX_INLINE Integers averageBytesOf(Integers a, Integers b) {
  return _mm512_avg_epu8(a, b);
}
TARVEX_INLINE Integers multiplyAddHalvesOf(Integers a, Integers b) {
  return _mm512_madd_epi16(a, b);
}
TARVEX_INLINE Integers multiplyWideOf(Integers a, Integers b) {
  return _mm512_maskz_mul_epu32(kAllElements, a, b);
}
TARVEX_INLINE Integers squareRootDoublesOf(Integers a, Integers) {
  return _mm512_castpd_si512(_mm512_maskz_sqrt_pd(kAllElements, _mm512_castsi512_pd(a)));
}

#include "packages/processor/VectorBody.inc"

}  // namespace

const VectorKernels kAvx512Kernels = {{
#include "packages/processor/VectorTable.inc"
}};

}  // namespace TarvexDiags::Processor

#endif
