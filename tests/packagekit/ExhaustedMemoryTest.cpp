// The host's memory runs out at every place of a pass, once and for good: the pass ends, and
// nothing else does; a fault that was found remains one.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "packagekit/KitEvents.h"
#include "packagekit/testing/PackageDriver.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Sanitized.h"

using namespace TarvexDiags;
using namespace TarvexDiags::PackageKit;
using Diag::DiagnosticResult;
using TestSupport::FailingAllocation;
using TestSupport::Shortage;

namespace {

constexpr int kBehaves = 1;
constexpr int kFindsFault = 14;
constexpr int kTellsFaultThenEnds = 35;
constexpr unsigned int kFault = 2;
// Each allocation is tried, but for where each pass takes long.
constexpr unsigned long kStep = TestSupport::kIsSanitized ? 7 : 1;

// What a pass hands over.
template <class Element>
std::vector<std::unique_ptr<Element>> taken(std::vector<Element*>* given) {
  const std::unique_ptr<std::vector<Element*>> owner(given);
  std::vector<std::unique_ptr<Element>> elements;
  for (std::size_t index = 0; given != nullptr && index < given->size(); ++index) {
    elements.emplace_back((*given)[index]);
  }
  return elements;
}

class ExhaustedMemory : public ::testing::TestWithParam<Shortage> {
 protected:
  // What a pass came to.
  struct End {
    DiagnosticResult::TestResult verdict;
    bool hasFailed;  ///< an allocation; else the pass got by with fewer
    std::vector<unsigned int> codes;
    bool tells(unsigned int code) const {
      return std::find(codes.begin(), codes.end(), code) != codes.end();
    }
  };

  End endAt(unsigned long allocation, int test) {
    Diag::DiagnosticSettings settings = requestFor(test);
    const auto diagnostics = m_driver.makeDiagnostics();
    const DiagnosticResult* result = nullptr;
    End end{};
    {
      const FailingAllocation failing(allocation, GetParam());
      result = diagnostics->runDiagnostic(m_device, &settings);
      end.hasFailed = failing.hasFailed();
    }
    end.verdict = result->getTestResult();
    const auto results = taken(diagnostics->getDiagnosticResults());
    EXPECT_EQ(results.size(), 1U);
    EXPECT_TRUE(!results.empty() && results[0]->getTestResult() == end.verdict);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no process is left";
    for (const auto& event : taken(diagnostics->getDiagnosticEvents())) {
      end.codes.push_back(event->getEventCode());
    }
    return end;
  }

  static Diag::DiagnosticSettings requestFor(int testId) {
    Diag::DiagnosticSettings settings;
    settings.setTestNumberVector({testId});
    return settings;
  }

  Testing::PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
  DeviceEnum::VirtualDevice& m_device = m_driver.device("unit0");
};

}  // namespace

TEST_P(ExhaustedMemory, ends_the_pass_and_not_the_host) {
  int ended = 0;  // passes without a verdict
  int told = 0;   // those that said why
  unsigned long allocation = 1;
  for (bool hasFailed = true; hasFailed && !HasFailure(); allocation += kStep) {
    const End end = endAt(allocation, kBehaves);
    hasFailed = end.hasFailed;
    EXPECT_NE(end.verdict, DiagnosticResult::FAILED);
    EXPECT_TRUE(hasFailed || end.verdict == DiagnosticResult::PASSED);
    ended += end.verdict == DiagnosticResult::UNUSUAL_STATUS ? 1 : 0;
    told += end.tells(OUT_OF_MEMORY) ? 1 : 0;
  }
  EXPECT_GT(allocation, 30U);
  EXPECT_GT(ended, 0);
  if (GetParam() == Shortage::Once) {
    EXPECT_GT(told, ended / 2) << "as soon as there is memory again";
  }
}

TEST_P(ExhaustedMemory, takes_nothing_back_of_a_fault) {
  for (const int test : {kFindsFault, kTellsFaultThenEnds}) {
    int failed = 0;
    bool hasFailed = true;
    for (unsigned long allocation = 1; hasFailed && !HasFailure(); allocation += kStep) {
      SCOPED_TRACE("test " + std::to_string(test) + ", allocation " + std::to_string(allocation));
      const End end = endAt(allocation, test);
      hasFailed = end.hasFailed;
      EXPECT_NE(end.verdict, DiagnosticResult::PASSED);
      EXPECT_TRUE((hasFailed && !end.tells(kFault)) || end.verdict == DiagnosticResult::FAILED);
      failed += end.verdict == DiagnosticResult::FAILED ? 1 : 0;
    }
    EXPECT_GT(failed, 1) << "also where memory ran out";
  }
}

INSTANTIATE_TEST_SUITE_P(InTheHost, ExhaustedMemory,
                         ::testing::Values(Shortage::Once, Shortage::ForGood),
                         [](const auto& instance) {
                           return instance.param == Shortage::Once ? "once" : "for_good";
                         });
