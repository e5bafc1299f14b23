// The host's memory runs out at every place of a pass, once and for good: the pass ends, and
// nothing else does.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <memory>
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
// Each allocation is tried, but for where each pass takes long.
constexpr unsigned long kStep = TestSupport::kIsSanitized ? 23 : 1;

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
  // False when the pass got by with fewer allocations.
  bool failsAt(unsigned long allocation) {
    const auto diagnostics = m_driver.makeDiagnostics();
    const DiagnosticResult* result = nullptr;
    bool hasFailed = false;
    {
      const FailingAllocation failing(allocation, GetParam());
      result = diagnostics->runDiagnostic(m_device, &m_settings);
      hasFailed = failing.hasFailed();
    }
    const auto results = taken(diagnostics->getDiagnosticResults());
    EXPECT_EQ(results.size(), 1U);
    EXPECT_EQ(results.empty() ? DiagnosticResult::FAILED : results[0]->getTestResult(),
              result->getTestResult());
    EXPECT_NE(result->getTestResult(), DiagnosticResult::FAILED);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no process is left";
    if (!hasFailed) {
      EXPECT_EQ(result->getTestResult(), DiagnosticResult::PASSED);
    }
    for (const auto& event : taken(diagnostics->getDiagnosticEvents())) {
      m_told += event->getEventCode() == OUT_OF_MEMORY ? 1 : 0;
    }
    m_ended += result->getTestResult() == DiagnosticResult::UNUSUAL_STATUS ? 1 : 0;
    return hasFailed;
  }

  static Diag::DiagnosticSettings requestFor(int testId) {
    Diag::DiagnosticSettings settings;
    settings.setTestNumberVector({testId});
    return settings;
  }

  Testing::PackageDriver m_driver{TARVEX_SELFTEST_DIR, "misbehaving"};
  DeviceEnum::VirtualDevice& m_device = m_driver.device("unit0");
  Diag::DiagnosticSettings m_settings = requestFor(kBehaves);
  int m_ended = 0;  ///< passes without a verdict
  int m_told = 0;   ///< those that said why
};

}  // namespace

TEST_P(ExhaustedMemory, ends_the_pass_and_not_the_host) {
  unsigned long allocation = 1;
  while (failsAt(allocation) && !HasFailure()) {
    allocation += kStep;
  }
  EXPECT_GT(allocation, 30U);
  EXPECT_GT(m_ended, 0);
  if (GetParam() == Shortage::Once) {
    EXPECT_GT(m_told, m_ended / 2) << "as soon as there is memory again";
  }
}

INSTANTIATE_TEST_SUITE_P(InTheHost, ExhaustedMemory,
                         ::testing::Values(Shortage::Once, Shortage::ForGood),
                         [](const auto& instance) {
                           return instance.param == Shortage::Once ? "once" : "for_good";
                         });
