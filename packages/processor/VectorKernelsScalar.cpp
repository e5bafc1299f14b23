#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "packages/processor/VectorKernels.h"
#include "packages/processor/Verifier.h"

namespace TarvexDiags::Processor {

namespace {

template <typename Scalar>
Scalar elementOf(const VectorBatch::Words& operand, std::size_t index) {
  Scalar value;
  std::memcpy(&value, VectorBatch::bytesOf(operand) + index * sizeof(Scalar), sizeof(Scalar));
  // Opaque, or the compiler makes vectors of the loop.
  return opaque(value);
}

template <typename Scalar>
void store(VectorBatch& batch, std::size_t index, Scalar value) {
  std::memcpy(reinterpret_cast<std::byte*>(batch.result.data()) + index * sizeof(Scalar), &value,
              sizeof(Scalar));
}

/// What an operation is computed in: narrow unsigned numbers must not become signed on the way.
template <typename Scalar>
struct Promoted {
  using Type =
      std::conditional_t<std::is_unsigned_v<Scalar> && sizeof(Scalar) < sizeof(unsigned int),
                         unsigned int, Scalar>;
};

#define TARVEX_ELEMENTWISE(function, name, element, type, expression)                \
  void function(VectorBatch& batch) {                                                \
    using Operand = Promoted<type>::Type;                                            \
    for (std::size_t index = 0; index < kVectorBatchBytes / sizeof(type); ++index) { \
      const Operand a = elementOf<type>(batch.first, index);                         \
      const Operand b = elementOf<type>(batch.second, index);                        \
      const Operand c = elementOf<type>(batch.third, index);                         \
      static_cast<void>(b);                                                          \
      static_cast<void>(c);                                                          \
      store(batch, index, static_cast<type>(expression));                            \
    }                                                                                \
  }
#define TARVEX_SPECIAL(function, name, element)

#include "packages/processor/VectorOperations.inc"

#undef TARVEX_ELEMENTWISE
#undef TARVEX_SPECIAL

/// Within each 16 bytes; the highest bit of an index makes a zero.
void shuffleBytes(VectorBatch& batch) {
  for (std::size_t index = 0; index < kVectorBatchBytes; ++index) {
    const auto source = elementOf<std::uint8_t>(batch.second, index);
    const std::size_t from = index / 16 * 16 + source % 16;
    store(batch, index,
          (source & 0x80) != 0 ? std::uint8_t{0} : elementOf<std::uint8_t>(batch.first, from));
  }
}

template <typename Combine>
void eachByte(VectorBatch& batch, Combine combine) {
  for (std::size_t index = 0; index < kVectorBatchBytes; ++index) {
    const unsigned int left = elementOf<std::uint8_t>(batch.first, index);
    const unsigned int right = elementOf<std::uint8_t>(batch.second, index);
    store(batch, index, static_cast<std::uint8_t>(combine(left, right)));
  }
}

void addSaturated(VectorBatch& batch) {
  eachByte(batch,
           [](unsigned int left, unsigned int right) { return std::min(left + right, 255U); });
}

void averageBytes(VectorBatch& batch) {
  eachByte(batch, [](unsigned int left, unsigned int right) { return (left + right + 1) / 2; });
}

void multiplyAddHalves(VectorBatch& batch) {
  for (std::size_t index = 0; index < kVectorBatchBytes / 4; ++index) {
    std::int64_t sum = 0;
    for (std::size_t part = 2 * index; part < 2 * index + 2; ++part) {
      sum += std::int64_t{elementOf<std::int16_t>(batch.first, part)} *
             elementOf<std::int16_t>(batch.second, part);
    }
    store(batch, index, static_cast<std::uint32_t>(sum));
  }
}

void multiplyWide(VectorBatch& batch) {
  for (std::size_t index = 0; index < kVectorBatchBytes / 8; ++index) {
    store(batch, index,
          std::uint64_t{elementOf<std::uint32_t>(batch.first, 2 * index)} *
              elementOf<std::uint32_t>(batch.second, 2 * index));
  }
}

void squareRootDoubles(VectorBatch& batch) {
  for (std::size_t index = 0; index < kVectorBatchBytes / 8; ++index) {
    store(batch, index, std::sqrt(elementOf<double>(batch.first, index)));
  }
}

}  // namespace

const VectorKernels kScalarKernels = {{
#include "packages/processor/VectorTable.inc"
}};

}  // namespace TarvexDiags::Processor
