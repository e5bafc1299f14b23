#include "packages/processor/CryptographyInstructions.h"

#if defined(__x86_64__)

#include <cpuid.h>
#include <immintrin.h>

namespace TarvexDiags::Processor {

namespace {

#define TARVEX_AES [[gnu::target("aes,sse4.1")]]
#define TARVEX_SHA [[gnu::target("sha,sse4.1")]]

TARVEX_AES __m128i loaded(const Block16& block) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(block.data()));
}

TARVEX_AES Block16 stored(__m128i value) {
  Block16 block;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(block.data()), value);
  return block;
}

/// The words of a block, most significant byte first, and word 0 in the lowest place.
TARVEX_SHA __m128i messageWords(const std::uint8_t* block, std::size_t group) {
  const __m128i order = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 16 * group)),
                          order);
}

template <int function>
TARVEX_SHA __m128i sha1Rounds(__m128i abcd, __m128i e) {
  return _mm_sha1rnds4_epu32(abcd, e, function);
}

TARVEX_SHA __m128i sha1RoundsOf(std::size_t group, __m128i abcd, __m128i e) {
  switch (group / 5) {
    case 0:
      return sha1Rounds<0>(abcd, e);
    case 1:
      return sha1Rounds<1>(abcd, e);
    case 2:
      return sha1Rounds<2>(abcd, e);
    default:
      return sha1Rounds<3>(abcd, e);
  }
}

}  // namespace

bool hasAesInstructions() {
  return __builtin_cpu_supports("aes") && __builtin_cpu_supports("sse4.1");
}

bool hasShaInstructions() {
  // The compilers' builtin does not know it: leaf 7, EBX bit 29.
  unsigned int eax = 0;
  unsigned int ebx = 0;
  unsigned int ecx = 0;
  unsigned int edx = 0;
  return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx >> 29 & 1) != 0 &&
         __builtin_cpu_supports("sse4.1");
}

bool hasCarrylessMultiply() {
  return __builtin_cpu_supports("pclmul");
}

bool hasCrc32() {
  return __builtin_cpu_supports("sse4.2");
}

TARVEX_AES Block16 aesEncryptInstruction(const Block16& plain, std::span<const Block16> roundKeys) {
  __m128i state = _mm_xor_si128(loaded(plain), loaded(roundKeys.front()));
  for (std::size_t round = 1; round + 1 < roundKeys.size(); ++round) {
    state = _mm_aesenc_si128(state, loaded(roundKeys[round]));
  }
  return stored(_mm_aesenclast_si128(state, loaded(roundKeys.back())));
}

TARVEX_AES Block16 aesDecryptInstruction(const Block16& cipher,
                                         std::span<const Block16> roundKeys) {
  __m128i state = _mm_xor_si128(loaded(cipher), loaded(roundKeys.back()));
  for (std::size_t round = roundKeys.size() - 2; round > 0; --round) {
    state = _mm_aesdec_si128(state, _mm_aesimc_si128(loaded(roundKeys[round])));
  }
  return stored(_mm_aesdeclast_si128(state, loaded(roundKeys.front())));
}

TARVEX_AES Block16 aesKeyAssistInstruction(const Block16& words) {
  return stored(_mm_aeskeygenassist_si128(loaded(words), 1));
}

TARVEX_SHA void sha1BlockInstruction(std::array<std::uint32_t, 5>& state,
                                     const std::uint8_t* block) {
  __m128i message[20];
  for (std::size_t group = 0; group < 20; ++group) {
    message[group] = group < 4 ? messageWords(block, group) : _mm_setzero_si128();
  }
  // The instructions take the words in the other order.
  for (std::size_t group = 0; group < 4; ++group) {
    message[group] = _mm_shuffle_epi32(message[group], 0x1b);
  }
  for (std::size_t group = 4; group < 20; ++group) {
    const __m128i first = _mm_sha1msg1_epu32(message[group - 4], message[group - 3]);
    message[group] =
        _mm_sha1msg2_epu32(_mm_xor_si128(first, message[group - 2]), message[group - 1]);
  }
  __m128i abcd =
      _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state.data())), 0x1b);
  const __m128i start = abcd;
  __m128i e = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
  const __m128i startE = e;
  e = _mm_add_epi32(e, message[0]);
  for (std::size_t group = 0; group < 20; ++group) {
    const __m128i before = abcd;
    abcd = sha1RoundsOf(group, abcd, e);
    e = _mm_sha1nexte_epu32(before, group + 1 < 20 ? message[group + 1] : startE);
  }
  abcd = _mm_shuffle_epi32(_mm_add_epi32(abcd, start), 0x1b);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state.data()), abcd);
  state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(e, 3));
}

TARVEX_SHA void sha256BlockInstruction(std::array<std::uint32_t, 8>& state,
                                       const std::uint8_t* block) {
  __m128i message[16];
  for (std::size_t group = 0; group < 4; ++group) {
    message[group] = messageWords(block, group);
  }
  for (std::size_t group = 4; group < 16; ++group) {
    const __m128i first = _mm_sha256msg1_epu32(message[group - 4], message[group - 3]);
    const __m128i middle = _mm_alignr_epi8(message[group - 1], message[group - 2], 4);
    message[group] = _mm_sha256msg2_epu32(_mm_add_epi32(first, middle), message[group - 1]);
  }
  // The instructions take the state as (f, e, b, a) and (h, g, d, c), lowest place first.
  const auto word = [&](std::size_t index) { return static_cast<int>(state[index]); };
  __m128i abef = _mm_set_epi32(word(0), word(1), word(4), word(5));
  __m128i cdgh = _mm_set_epi32(word(2), word(3), word(6), word(7));
  const __m128i startAbef = abef;
  const __m128i startCdgh = cdgh;
  for (std::size_t group = 0; group < 16; ++group) {
    const __m128i constants =
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(kSha256Constants.data() + 4 * group));
    const __m128i sum = _mm_add_epi32(message[group], constants);
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sum);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sum, 0x0e));
  }
  alignas(16) std::array<std::uint32_t, 8> words{};
  _mm_store_si128(reinterpret_cast<__m128i*>(words.data()), _mm_add_epi32(abef, startAbef));
  _mm_store_si128(reinterpret_cast<__m128i*>(words.data() + 4), _mm_add_epi32(cdgh, startCdgh));
  state = {words[3], words[2], words[7], words[6], words[1], words[0], words[5], words[4]};
}

[[gnu::target("pclmul,sse4.1")]] std::array<std::uint64_t, 2> carrylessProductInstruction(
    std::uint64_t left, std::uint64_t right) {
  const __m128i product = _mm_clmulepi64_si128(_mm_set_epi64x(0, static_cast<long long>(left)),
                                               _mm_set_epi64x(0, static_cast<long long>(right)), 0);
  return {static_cast<std::uint64_t>(_mm_extract_epi64(product, 0)),
          static_cast<std::uint64_t>(_mm_extract_epi64(product, 1))};
}

[[gnu::target("sse4.2")]] std::uint32_t crc32cStepInstruction(std::uint32_t crc,
                                                              std::uint64_t bytes) {
  return static_cast<std::uint32_t>(_mm_crc32_u64(crc, bytes));
}

}  // namespace TarvexDiags::Processor

#endif
