#include "packages/memory/Kernels.h"

namespace TarvexDiags::Memory {

std::vector<const Kernels*> supportedKernels() {
  std::vector<const Kernels*> kernels;
  for (const Kernels* candidate : {
         &portableKernels,
#if defined(__x86_64__)
             &sse2Kernels, &avx2Kernels, &avx512Kernels,
#endif
       }) {
    if (candidate->supported()) {
      kernels.push_back(candidate);
    }
  }
  return kernels;
}

const Kernels& bestKernels() {
  return *supportedKernels().back();
}

}  // namespace TarvexDiags::Memory
