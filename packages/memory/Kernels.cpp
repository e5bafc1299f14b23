#include "packages/memory/Kernels.h"

#include "packages/memory/WordAccess.h"

namespace TarvexDiags::Memory {

void scatterWords(const Block& block, const Pattern& next) {
  auto* const words = reinterpret_cast<std::uint64_t*>(block.data);
  const std::uint64_t* const lines = next.lines();
  const std::size_t period = next.periodLines() * kWordsInLine;
  const std::size_t first = next.firstLine(block) * kWordsInLine;
  const std::size_t distance = Pattern::kModuloDistance;
  const std::size_t mark = (next.moduloOffset() + distance - first % distance) % distance;
  for (std::size_t index = mark; index < kWordsInBlock; index += distance) {
    writeWord(words + index, lines[(first + index) % period]);
  }
  for (int round = 0; round < 2; ++round) {
    for (std::size_t index = 0; index < kWordsInBlock; ++index) {
      if (index % distance != mark) {
        writeWord(words + index, lines[(first + index) % period]);
      }
    }
  }
}

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
