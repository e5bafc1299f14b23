#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/PackageKit.h"
#include "packages/common/RunJournal.h"

namespace TarvexDiags::Common {

/// @brief Hands what an engine reports to the test's context, and draws the verdict from it.
class ContextJournal : public RunJournal {
 public:
  /// Codes of the events that close a test: each with the device's name and a count.
  static constexpr unsigned int kUnusualCode = 100;
  static constexpr unsigned int kFailedCode = 200;

  ContextJournal(PackageKit::TestContext& context, std::string device)
      : m_context(context), m_device(std::move(device)) {}

  void report(unsigned int code, std::vector<std::string> parameters) override {
    switch (severityOfCode(code)) {
      case Severity::Information:
        m_context.information(code, std::move(parameters));
        break;
      case Severity::Warning:
        ++m_warnings;
        m_context.warning(code, std::move(parameters));
        break;
      case Severity::Error:
        ++m_errors;
        m_context.error(code, std::move(parameters));
        break;
    }
  }

  void progress(unsigned int percent) override { m_context.progress(percent); }

  bool stopRequested() override {
    return m_context.stopRequested() || (m_errors > 0 && m_context.haltOnError());
  }

  bool haltsOnError() override { return m_context.haltOnError(); }

  bool hasErrors() const { return m_errors > 0; }

  /// @brief An error means failed, a warning that there is no verdict.
  PackageKit::Verdict verdict() const {
    if (m_errors > 0) {
      return PackageKit::failed(kFailedCode, {m_device, std::to_string(m_errors)});
    }
    if (m_warnings > 0) {
      return PackageKit::unusual(kUnusualCode, {m_device, std::to_string(m_warnings)});
    }
    return PackageKit::passed();
  }

 private:
  PackageKit::TestContext& m_context;
  std::string m_device;
  unsigned int m_warnings = 0;
  unsigned int m_errors = 0;
};

/// @brief Tells beforehand that a test is not possible.
inline PackageKit::Support unsupported(Reason reason, std::string detail = {}) {
  return PackageKit::Support::no(reason.token, std::move(detail));
}

inline PackageKit::Support unsupported(const NotSupported& refusal) {
  return unsupported(refusal.reason(), refusal.detail());
}

/// @brief Runs an engine with a journal of the context's, and turns what comes out into a verdict.
/// What the engine throws goes on to the kit, whose judgement lets faults stand that were found
/// before.
inline PackageKit::Verdict judged(PackageKit::TestContext& context, const std::string& device,
                                  const std::function<void(RunJournal&)>& engine) {
  ContextJournal journal(context, device);
  try {
    engine(journal);
  } catch (const NotSupported& reason) {
    if (!journal.hasErrors()) {
      return PackageKit::notSupported(reason.reason().token, reason.detail());
    }
    context.log(reason.what());
  }
  return journal.verdict();
}

}  // namespace TarvexDiags::Common
