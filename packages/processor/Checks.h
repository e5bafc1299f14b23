#pragma once

#include <vector>

#include "packages/processor/Verifier.h"

namespace TarvexDiags::Processor {

// The checks of each test, those included that this processor has no instructions for.

std::vector<Check> integerChecks();
std::vector<Check> floatingPointChecks();
std::vector<Check> vectorChecks();
std::vector<Check> cryptographyChecks();
/// @brief They need a partner.
std::vector<Check> atomicChecks();
std::vector<Check> loadChecks();
std::vector<Check> randomGeneratorChecks();
std::vector<Check> transcendentalChecks();
std::vector<Check> blockChecks();
/// @brief They need a partner.
std::vector<Check> chainChecks();
std::vector<Check> matrixChecks();

}  // namespace TarvexDiags::Processor
