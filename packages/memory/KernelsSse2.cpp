#include "packages/memory/Kernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace TarvexDiags::Memory {

namespace {

#define TARVEX_SIMD [[gnu::target("sse2")]]

typedef std::uint64_t Register __attribute__((vector_size(16), may_alias));

TARVEX_SIMD [[gnu::always_inline]] inline void streamRegister(void* to, Register value) {
  _mm_stream_si128(static_cast<__m128i*>(to), reinterpret_cast<__m128i>(value));
}

TARVEX_SIMD [[gnu::always_inline]] inline bool anySet(Register value) {
  const __m128i zero = _mm_cmpeq_epi32(reinterpret_cast<__m128i>(value), _mm_setzero_si128());
  return _mm_movemask_epi8(zero) != 0xffff;
}

void orderStores() {
  _mm_sfence();
}

bool supported() {
  return __builtin_cpu_supports("sse2");
}

#include "packages/memory/KernelBody.inc"

}  // namespace

const Kernels kSse2Kernels = {"sse2", supported, fill,         verify,
                              march,  copy,      scatterWords, orderStores};

}  // namespace TarvexDiags::Memory

#endif
