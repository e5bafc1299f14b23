#include "packages/memory/Kernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace TarvexDiags::Memory {

namespace {

#define TARVEX_SIMD [[gnu::target("avx512f")]]

typedef std::uint64_t Register __attribute__((vector_size(64), may_alias));

TARVEX_SIMD [[gnu::always_inline]] inline void streamRegister(void* to, Register value) {
  _mm512_stream_si512(static_cast<__m512i*>(to), reinterpret_cast<__m512i>(value));
}

TARVEX_SIMD [[gnu::always_inline]] inline bool anySet(Register value) {
  const auto bits = reinterpret_cast<__m512i>(value);
  return _mm512_test_epi64_mask(bits, bits) != 0;
}

void orderStores() {
  _mm_sfence();
}

bool supported() {
  return __builtin_cpu_supports("avx512f");
}

#include "packages/memory/KernelBody.inc"

}  // namespace

const Kernels kAvx512Kernels = {"avx512", supported, fill,         verify,
                                march,    copy,      scatterWords, orderStores};

}  // namespace TarvexDiags::Memory

#endif
