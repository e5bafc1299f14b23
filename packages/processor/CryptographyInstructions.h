#pragma once

#if defined(__x86_64__)

#include "packages/processor/CryptographyReference.h"

namespace TarvexDiags::Processor {

// The same through the processor's own instructions. Each may be called only where its `has` says
// yes.

bool hasAesInstructions();
bool hasShaInstructions();
bool hasCarrylessMultiply();
bool hasCrc32();

Block16 aesEncryptInstruction(const Block16& plain, std::span<const Block16> roundKeys);
Block16 aesDecryptInstruction(const Block16& cipher, std::span<const Block16> roundKeys);
/// @brief AESKEYGENASSIST with round constant 1: FIPS 197, 5.2, SubWord and RotWord.
Block16 aesKeyAssistInstruction(const Block16& words);
void sha1BlockInstruction(std::array<std::uint32_t, 5>& state, const std::uint8_t* block);
void sha256BlockInstruction(std::array<std::uint32_t, 8>& state, const std::uint8_t* block);
std::array<std::uint64_t, 2> carrylessProductInstruction(std::uint64_t left, std::uint64_t right);
std::uint32_t crc32cStepInstruction(std::uint32_t crc, std::uint64_t bytes);

}  // namespace TarvexDiags::Processor

#endif
