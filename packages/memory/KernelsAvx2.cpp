#include "packages/memory/Kernels.h"

#if defined(__x86_64__)

#include <immintrin.h>

namespace TarvexDiags::Memory {

namespace {

#define TARVEX_SIMD [[gnu::target("avx2")]]

typedef std::uint64_t Register __attribute__((vector_size(32), may_alias));

TARVEX_SIMD [[gnu::always_inline]] inline void streamRegister(void* to, Register value) {
  _mm256_stream_si256(static_cast<__m256i*>(to), reinterpret_cast<__m256i>(value));
}

TARVEX_SIMD [[gnu::always_inline]] inline bool anySet(Register value) {
  const auto bits = reinterpret_cast<__m256i>(value);
  return _mm256_testz_si256(bits, bits) == 0;
}

void orderStores() {
  _mm_sfence();
}

bool supported() {
  return __builtin_cpu_supports("avx2");
}

#include "packages/memory/KernelBody.inc"

}  // namespace

const Kernels kAvx2Kernels = {"avx2", supported, fill,         verify,
                              march,  copy,      scatterWords, orderStores};

}  // namespace TarvexDiags::Memory

#endif
