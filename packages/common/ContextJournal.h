#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "packagekit/PackageKit.h"
#include "packages/common/RunJournal.h"

namespace TarvexDiags::Common {

/// @brief Hands what an engine reports to the test's context, and draws the verdict from it.
class ContextJournal : public RunJournal {
 public:
  explicit ContextJournal(PackageKit::TestContext& context) : m_context(context) {}

  void report(unsigned int code, std::vector<std::string> parameters) override {
    switch (severityOfCode(code)) {
      case Severity::Information:
        m_context.information(code, std::move(parameters));
        break;
      case Severity::Warning:
        keepFirst(m_warning, code, parameters);
        m_context.warning(code, std::move(parameters));
        break;
      case Severity::Error:
        keepFirst(m_error, code, parameters);
        m_context.error(code, std::move(parameters));
        break;
    }
  }

  void progress(unsigned int percent) override { m_context.progress(percent); }

  void processed(double amount, const char* unit) override { m_context.processed(amount, unit); }

  bool stopRequested() override {
    return m_context.stopRequested() || (hasErrors() && m_context.haltOnError());
  }

  bool haltsOnError() override { return m_context.haltOnError(); }

  bool hasErrors() const { return m_error.has_value(); }

  /// @brief An error means failed, a warning that there is no verdict. The first of them is the
  /// verdict: who reads nothing else learns what was found.
  PackageKit::Verdict verdict() const {
    if (m_error) {
      return PackageKit::failed(m_error->code, m_error->parameters);
    }
    if (m_warning) {
      return PackageKit::unusual(m_warning->code, m_warning->parameters);
    }
    return PackageKit::passed();
  }

 private:
  struct Event {
    unsigned int code;
    std::vector<std::string> parameters;
  };

  static void keepFirst(std::optional<Event>& first, unsigned int code,
                        const std::vector<std::string>& parameters) {
    if (!first) {
      first = Event{code, parameters};
    }
  }

  PackageKit::TestContext& m_context;
  std::optional<Event> m_warning;
  std::optional<Event> m_error;
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
inline PackageKit::Verdict judged(PackageKit::TestContext& context,
                                  const std::function<void(RunJournal&)>& engine) {
  ContextJournal journal(context);
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
