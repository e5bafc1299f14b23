#pragma once

#include <string>
#include <vector>

#include "diagctl/report/StepRecord.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// What a test that misbehaves must come to.
struct SelfTestExpectation {
  int test;  ///< number in the misbehaving package
  StepRecord::Outcome outcome;
  const char* symptom;   ///< short identifier, empty where there is none
  const char* contains;  ///< for people: what is proved
};

const std::vector<SelfTestExpectation>& selfTestExpectations();

/// The verb selftest: runs the package whose tests crash, hang and flood, and compares what came of
/// each with what must. It also looks for processes that were left behind.
/// @param packages directory of the misbehaving package; empty: the one that comes along.
/// @return exit code: 0 when all was contained.
[[nodiscard]] int carryOutSelfTest(Printer& out, const std::string& packages,
                                   const std::string& language, bool allowsInsecure);

}  // namespace TarvexDiags::FrontEnd
