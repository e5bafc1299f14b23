#include "bench/memory/BareLoops.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace TarvexDiags::Memory {

namespace {

void writePlain(std::byte* data, std::size_t bytes, std::uint64_t word) {
  auto* const words = reinterpret_cast<std::uint64_t*>(data);
  for (std::size_t index = 0; index < bytes / sizeof(word); ++index) {
    words[index] = word;
  }
}

bool comparePlain(const std::byte* data, std::size_t bytes, std::uint64_t word) {
  const auto* const words = reinterpret_cast<const std::uint64_t*>(data);
  std::uint64_t difference = 0;
  for (std::size_t index = 0; index < bytes / sizeof(word); ++index) {
    difference |= words[index] ^ word;
  }
  return difference == 0;
}

bool marchPlain(std::byte* data, std::size_t bytes, std::uint64_t before, std::uint64_t after) {
  auto* const words = reinterpret_cast<std::uint64_t*>(data);
  std::uint64_t difference = 0;
  for (std::size_t index = 0; index < bytes / sizeof(before); ++index) {
    difference |= words[index] ^ before;
    words[index] = after;
  }
  return difference == 0;
}

constexpr BareLoops plainLoops = {"plain", writePlain, comparePlain, marchPlain};

#if defined(__x86_64__)

[[gnu::target("avx2")]] void writeAvx2(std::byte* data, std::size_t bytes, std::uint64_t word) {
  const __m256i value = _mm256_set1_epi64x(static_cast<long long>(word));
  for (std::size_t offset = 0; offset < bytes; offset += 64) {
    _mm256_stream_si256(reinterpret_cast<__m256i*>(data + offset), value);
    _mm256_stream_si256(reinterpret_cast<__m256i*>(data + offset + 32), value);
  }
  _mm_sfence();
}

[[gnu::target("avx2")]] bool compareAvx2(const std::byte* data, std::size_t bytes,
                                         std::uint64_t word) {
  const __m256i value = _mm256_set1_epi64x(static_cast<long long>(word));
  __m256i low = _mm256_setzero_si256();
  __m256i high = low;
  for (std::size_t offset = 0; offset < bytes; offset += 64) {
    const auto* const at = reinterpret_cast<const __m256i*>(data + offset);
    low = _mm256_or_si256(low, _mm256_xor_si256(_mm256_load_si256(at), value));
    high = _mm256_or_si256(high, _mm256_xor_si256(_mm256_load_si256(at + 1), value));
  }
  low = _mm256_or_si256(low, high);
  return _mm256_testz_si256(low, low) != 0;
}

[[gnu::target("avx2")]] bool marchAvx2(std::byte* data, std::size_t bytes, std::uint64_t before,
                                       std::uint64_t after) {
  const __m256i value = _mm256_set1_epi64x(static_cast<long long>(before));
  const __m256i next = _mm256_set1_epi64x(static_cast<long long>(after));
  __m256i low = _mm256_setzero_si256();
  __m256i high = low;
  for (std::size_t offset = 0; offset < bytes; offset += 64) {
    auto* const at = reinterpret_cast<__m256i*>(data + offset);
    low = _mm256_or_si256(low, _mm256_xor_si256(_mm256_load_si256(at), value));
    high = _mm256_or_si256(high, _mm256_xor_si256(_mm256_load_si256(at + 1), value));
    _mm256_stream_si256(at, next);
    _mm256_stream_si256(at + 1, next);
  }
  _mm_sfence();
  low = _mm256_or_si256(low, high);
  return _mm256_testz_si256(low, low) != 0;
}

[[gnu::target("avx512f")]] void writeAvx512(std::byte* data, std::size_t bytes,
                                            std::uint64_t word) {
  const __m512i value = _mm512_set1_epi64(static_cast<long long>(word));
  for (std::size_t offset = 0; offset < bytes; offset += 64) {
    _mm512_stream_si512(reinterpret_cast<__m512i*>(data + offset), value);
  }
  _mm_sfence();
}

[[gnu::target("avx512f")]] bool compareAvx512(const std::byte* data, std::size_t bytes,
                                              std::uint64_t word) {
  const __m512i value = _mm512_set1_epi64(static_cast<long long>(word));
  __m512i difference = _mm512_setzero_si512();
  for (std::size_t offset = 0; offset < bytes; offset += 64) {
    difference =
        _mm512_or_si512(difference, _mm512_xor_si512(_mm512_load_si512(data + offset), value));
  }
  return _mm512_test_epi64_mask(difference, difference) == 0;
}

[[gnu::target("avx512f")]] bool marchAvx512(std::byte* data, std::size_t bytes,
                                            std::uint64_t before, std::uint64_t after) {
  const __m512i value = _mm512_set1_epi64(static_cast<long long>(before));
  const __m512i next = _mm512_set1_epi64(static_cast<long long>(after));
  __m512i difference = _mm512_setzero_si512();
  for (std::size_t offset = 0; offset < bytes; offset += 64) {
    difference =
        _mm512_or_si512(difference, _mm512_xor_si512(_mm512_load_si512(data + offset), value));
    _mm512_stream_si512(reinterpret_cast<__m512i*>(data + offset), next);
  }
  _mm_sfence();
  return _mm512_test_epi64_mask(difference, difference) == 0;
}

constexpr BareLoops avx2Loops = {"avx2", writeAvx2, compareAvx2, marchAvx2};
constexpr BareLoops avx512Loops = {"avx512", writeAvx512, compareAvx512, marchAvx512};

#endif

}  // namespace

const BareLoops& bestBareLoops() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) {
    return avx512Loops;
  }
  if (__builtin_cpu_supports("avx2")) {
    return avx2Loops;
  }
#endif
  return plainLoops;
}

}  // namespace TarvexDiags::Memory
