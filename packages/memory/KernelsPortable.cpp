#include "packages/memory/Kernels.h"

namespace TarvexDiags::Memory {

namespace {

#define TARVEX_SIMD

typedef std::uint64_t Register __attribute__((may_alias));

[[gnu::always_inline]] inline void streamRegister(void* to, Register value) {
  *static_cast<Register*>(to) = value;
}

[[gnu::always_inline]] inline bool anySet(Register value) {
  return value != 0;
}

void orderStores() {}

bool supported() {
  return true;
}

#include "packages/memory/KernelBody.inc"

}  // namespace

const Kernels kPortableKernels = {"portable", supported, fill,         verify,
                                  march,      copy,      scatterWords, orderStores};

}  // namespace TarvexDiags::Memory
