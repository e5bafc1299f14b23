#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/support/scripted/Script.h"

namespace TarvexDiags::TestSupport {

/// Watches, from inside the packages, who runs beside whom. Any thread may call anything.
class Referee {
 public:
  explicit Referee(bool isSerial) : m_isSerial(isSerial) {}

  void watch(Scripted::Script& script, bool wantsMachine);

  /// What a client has seen that must not be.
  void report(const std::string& fault);
  std::set<std::string> faults();

 private:
  struct Inside {
    unsigned int request;
    std::string tag;
    bool wantsMachine;
  };

  void enter(const Scripted::CallRecord& run, bool wantsMachine);
  void leave(const Scripted::CallRecord& run);
  void note(const std::string& fault);

  const bool m_isSerial;
  std::mutex m_mutex;
  std::vector<Inside> m_inside;
  std::set<std::string> m_faults;  // each once, and not too many
};

}  // namespace TarvexDiags::TestSupport
