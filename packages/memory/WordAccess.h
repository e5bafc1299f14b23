#pragma once

#include <cstdint>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

namespace TarvexDiags::Memory {

/// @brief Writes a word; the compiler neither drops nor joins it with others.
inline void writeWord(std::uint64_t* word, std::uint64_t value) {
  *static_cast<volatile std::uint64_t*>(word) = value;
}

/// @brief Sends the line of a word from the caches to the memory, where the processor can.
inline void flush(const std::uint64_t* word) {
#if defined(__x86_64__)
  _mm_mfence();
  _mm_clflush(word);
  _mm_mfence();
#else
  static_cast<void>(word);
  __sync_synchronize();
#endif
}

/// @brief Writes a word all the way to the memory.
inline void writeToMemory(std::uint64_t* word, std::uint64_t value) {
  writeWord(word, value);
  flush(word);
}

/// @brief Reads a word from the memory and not from a cache.
inline std::uint64_t readFromMemory(const std::uint64_t* word) {
  flush(word);
  return *static_cast<const volatile std::uint64_t*>(word);
}

}  // namespace TarvexDiags::Memory
