#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace TarvexDiags::Processor {

// Cryptography in plain integer instructions: what the processor's own instructions are held
// against. Written to be read, not to be fast or safe from onlookers.

using Block16 = std::array<std::uint8_t, 16>;

/// @brief The round keys of AES for a key of 16, 24 or 32 bytes: FIPS 197, 5.2.
std::vector<Block16> aesRoundKeys(std::span<const std::uint8_t> key);

/// @brief FIPS 197, 5.1 and 5.3.
Block16 aesEncrypt(const Block16& plain, std::span<const Block16> roundKeys);
Block16 aesDecrypt(const Block16& cipher, std::span<const Block16> roundKeys);

/// @brief The state of a hash as it is defined, before the first block.
constexpr std::array<std::uint32_t, 5> kSha1Start = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476,
                                                     0xc3d2e1f0};
constexpr std::array<std::uint32_t, 8> kSha256Start = {
    0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
extern const std::array<std::uint32_t, 64> kSha256Constants;

/// @brief One block of 64 bytes into the state: FIPS 180-4, 6.1.2 and 6.2.2.
void sha1Block(std::array<std::uint32_t, 5>& state, const std::uint8_t* block);
void sha256Block(std::array<std::uint32_t, 8>& state, const std::uint8_t* block);

/// @brief The message with its padding, a multiple of 64 bytes: FIPS 180-4, 5.1.1.
std::vector<std::uint8_t> shaPadded(std::span<const std::uint8_t> message);

/// @brief The product of two polynomials over GF(2): low word first.
std::array<std::uint64_t, 2> carrylessProduct(std::uint64_t left, std::uint64_t right);

/// @brief CRC-32C (Castagnoli, reflected) of eight bytes more, without the inversions: RFC 3720,
/// B.4.
std::uint32_t crc32cStep(std::uint32_t crc, std::uint64_t bytes);

}  // namespace TarvexDiags::Processor
