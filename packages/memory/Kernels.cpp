#include "packages/memory/Kernels.h"

namespace TarvexDiags::Memory {

std::vector<const Kernels*> supportedKernels() {
  std::vector<const Kernels*> kernels;
  for (const Kernels* candidate : {
         &kPortableKernels,
#if defined(__x86_64__)
             &kSse2Kernels, &kAvx2Kernels, &kAvx512Kernels,
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
