#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "packages/memory/Pattern.h"

namespace TarvexDiags::Memory {

/// @brief The line as a kernel read it when it differed from what was expected.
struct FoundLine {
  alignas(kLineBytes) std::array<std::uint64_t, kWordsInLine> words;
};

/// @brief The loops that touch the tested memory, for one kind of vector unit.
///
/// Blocks are aligned to lines. A kernel that compares begins at `line` and returns the line at
/// which it stopped: kLinesInBlock when all of them agreed, else the first that did not, with what
/// was read in `found`; `march` has not written that line. The caller looks into it and calls again
/// from the next. `scatter` writes the words of a modulo pattern out of their order. Written lines
/// are visible to other threads after the caller's next synchronisation.
///
/// Thread-safety: stateless; blocks must not be shared while a kernel works on them.
struct Kernels {
  const char* name;
  bool (*supported)();
  void (*fill)(const Block& block, const Pattern& next);
  std::size_t (*verify)(const Block& block, std::size_t line, const Pattern& expected,
                        FoundLine& found);
  std::size_t (*march)(const Block& block, std::size_t line, const Pattern& expected,
                       const Pattern& next, FoundLine& found);
  void (*copy)(const Block& to, const Block& from);
  void (*scatter)(const Block& block, const Pattern& next);
  void (*orderStores)();
};

/// @brief Writes the marked words of a modulo pattern first and then all others twice, so that what
/// neighbours do to the marked ones shows. The same for every vector unit.
void scatterWords(const Block& block, const Pattern& next);

extern const Kernels kPortableKernels;
#if defined(__x86_64__)
extern const Kernels kSse2Kernels;
extern const Kernels kAvx2Kernels;
extern const Kernels kAvx512Kernels;
#endif

/// @brief The kernels that this processor can run, the portable ones first and the widest last.
std::vector<const Kernels*> supportedKernels();

/// @brief The widest of supportedKernels.
const Kernels& bestKernels();

}  // namespace TarvexDiags::Memory
