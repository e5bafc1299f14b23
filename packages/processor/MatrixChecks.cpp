// Linear algebra as simulations do it: whole numbers in floating point with known products, and
// fractions, whose products and singular values depend on the order of additions and are what most
// cores of the machine make of them.

#include <Eigen/Dense>

#include <array>
#include <bit>
#include <cmath>
#include <string>
#include <vector>

#include "packages/common/RandomSequence.h"
#include "packages/processor/Checks.h"
#include "packages/processor/LoadChecks.h"
#include "packages/processor/Operands.h"

namespace TarvexDiags::Processor {

namespace {

using Matrix = Eigen::MatrixXd;

constexpr Eigen::Index kProductSize = 64;
constexpr Eigen::Index kDecomposedSize = 20;

/// So many agreed results of each kind are kept in turn.
constexpr std::uint64_t kAgreedSeeds = 2;

std::uint64_t digestOf(const Matrix& matrix) {
  std::vector<std::uint64_t> words;
  for (const double value : matrix.transpose().reshaped()) {
    words.push_back(std::bit_cast<std::uint64_t>(value));
  }
  return Processor::digestOf(words);
}

/// Row by row, the numbers from the given one on.
Matrix wholeNumbers(const std::vector<std::uint64_t>& numbers, std::size_t first) {
  Matrix matrix(kProductSize, kProductSize);
  for (Eigen::Index row = 0; row < kProductSize; ++row) {
    for (Eigen::Index column = 0; column < kProductSize; ++column) {
      matrix(row, column) = static_cast<double>(numbers[first++] >> 44);
    }
  }
  return matrix;
}

/// The same numbers as in the load of plain loops, so the same digest.
std::uint64_t exactProduct(std::uint64_t seed) {
  constexpr std::size_t count = kProductSize * kProductSize;
  const std::vector<std::uint64_t> numbers = numbersFrom(seed, 2 * count);
  return digestOf(Matrix(wholeNumbers(numbers, 0) * wholeNumbers(numbers, count)));
}

/// From -1 to below 1.
Matrix fractions(std::uint64_t seed, Eigen::Index size) {
  Common::RandomSequence random(seed);
  return Matrix::NullaryExpr(size, size, [&] {
    return static_cast<double>(static_cast<std::int64_t>(random.next())) * 0x1p-63;
  });
}

std::uint64_t productDigest(std::uint64_t seed) {
  return digestOf(Matrix(fractions(seed, kProductSize) * fractions(~seed, kProductSize)));
}

Eigen::JacobiSVD<Matrix> decomposed(const Matrix& matrix) {
  return Eigen::JacobiSVD<Matrix>(matrix, Eigen::ComputeFullU | Eigen::ComputeFullV);
}

std::uint64_t decompositionDigest(std::uint64_t seed) {
  const Eigen::JacobiSVD<Matrix> decomposition = decomposed(fractions(seed, kDecomposedSize));
  return digestOf(decomposition.matrixU()) ^ digestOf(decomposition.singularValues()) ^
         digestOf(decomposition.matrixV());
}

/// By the definition, element by element.
Matrix plainProduct(const Matrix& left, const Matrix& right) {
  Matrix product = Matrix::Zero(left.rows(), right.cols());
  for (Eigen::Index column = 0; column < right.cols(); ++column) {
    for (Eigen::Index inner = 0; inner < left.cols(); ++inner) {
      for (Eigen::Index row = 0; row < left.rows(); ++row) {
        product(row, column) += opaque(left(row, inner)) * right(inner, column);
      }
    }
  }
  return product;
}

/// What most cores agree on may still be wrong on all: that no element is far off is looked at too.
void verifyNear(Verifier& verifier, const Matrix& matrix, const Matrix& reference,
                std::uint64_t seed) {
  // Some hundred roundings of numbers of the size of one.
  constexpr double allowed = 1e-11;
  std::array<std::uint64_t, 1> farOff = {0};
  for (Eigen::Index index = 0; index < matrix.size(); ++index) {
    const double difference = std::abs(matrix.data()[index] - reference.data()[index]);
    farOff[0] += difference <= allowed ? 0 : 1;
  }
  verifier.verify(farOff, std::array<std::uint64_t, 1>{0},
                  [&](std::size_t) { return "elements far off, seed " + std::to_string(seed); });
}

void checkExactProduct(Verifier& verifier) {
  const std::uint64_t seed = drawWord(verifier) % kLoadSeeds + 1;
  std::array<std::uint64_t, 1> found = {exactProduct(seed)};
  const std::array<std::uint64_t, 1> expected = {productOfWholeNumbers(seed)};
  verifier.verify(found, expected, [&](std::size_t) { return "seed " + std::to_string(seed); });
}

void checkProduct(Verifier& verifier) {
  const std::uint64_t seed = drawWord(verifier) % kAgreedSeeds + 1;
  const Matrix left = fractions(seed, kProductSize);
  const Matrix right = fractions(~seed, kProductSize);
  verifyNear(verifier, left * right, plainProduct(left, right), seed);
  verifyDigest(verifier);
  verifier.verifyAgreed(productDigest, seed);
}

void checkDecomposition(Verifier& verifier) {
  const std::uint64_t seed = drawWord(verifier) % kAgreedSeeds + 1;
  const Matrix matrix = fractions(seed, kDecomposedSize);
  const Eigen::JacobiSVD<Matrix> decomposition = decomposed(matrix);
  const Matrix scaled =
      plainProduct(decomposition.matrixU(), Matrix(decomposition.singularValues().asDiagonal()));
  verifyNear(verifier, plainProduct(scaled, Matrix(decomposition.matrixV().transpose())), matrix,
             seed);
  verifyDigest(verifier);
  verifier.verifyAgreed(decompositionDigest, seed);
}

}  // namespace

std::vector<Check> matrixChecks() {
  return {
      {"matrix product of whole numbers", always, checkExactProduct},
      {"matrix product of fractions", always, checkProduct},
      {"singular values of a matrix", always, checkDecomposition},
  };
}

}  // namespace TarvexDiags::Processor
