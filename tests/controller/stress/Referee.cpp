#include "tests/controller/stress/Referee.h"

#include <algorithm>
#include <sstream>

namespace TarvexDiags::TestSupport {

namespace {

using Scripted::Call;
using Scripted::CallRecord;

constexpr std::size_t kMostFaults = 50;

std::vector<std::string> componentsOf(const std::string& tag) {
  std::vector<std::string> components;
  std::stringstream stream(tag);
  for (std::string component; std::getline(stream, component, '/');) {
    components.push_back(component);
  }
  return components;
}

/// A device excludes those of the same last component, and those below it.
bool excludes(const std::string& one, const std::string& other) {
  const auto leaf = componentsOf(one).back();
  const auto components = componentsOf(other);
  return std::find(components.begin(), components.end(), leaf) != components.end();
}

}  // namespace

void Referee::watch(Scripted::Script& script, bool wantsMachine) {
  script.on(Call::RunEnter,
            [this, wantsMachine](const CallRecord& run) { enter(run, wantsMachine); });
  script.on(Call::RunReturn, [this](const CallRecord& run) { leave(run); });
}

void Referee::report(const std::string& fault) {
  const std::lock_guard<std::mutex> hold(m_mutex);
  note(fault);
}

std::set<std::string> Referee::faults() {
  const std::lock_guard<std::mutex> hold(m_mutex);
  return m_faults;
}

void Referee::enter(const CallRecord& run, bool wantsMachine) {
  const std::lock_guard<std::mutex> hold(m_mutex);
  for (const Inside& other : m_inside) {
    const auto noteBeside = [&](const char* text) {
      note(describe(run) + " " + text + ": request " + std::to_string(other.request) + " on " +
           other.tag);
    };
    if (other.request == run.requestId) {
      noteBeside("runs twice at once");
    } else if (m_isSerial || wantsMachine || other.wantsMachine) {
      noteBeside("does not run alone");
    } else if (excludes(run.device, other.tag) || excludes(other.tag, run.device)) {
      noteBeside("runs beside its own resource");
    }
  }
  m_inside.push_back({run.requestId, run.device, wantsMachine});
}

void Referee::leave(const CallRecord& run) {
  const std::lock_guard<std::mutex> hold(m_mutex);
  const auto self = std::find_if(m_inside.begin(), m_inside.end(), [&](const Inside& inside) {
    return inside.request == run.requestId;
  });
  m_inside.erase(self);
}

void Referee::note(const std::string& fault) {
  if (m_faults.size() < kMostFaults) {
    m_faults.insert(fault);
  }
}

}  // namespace TarvexDiags::TestSupport
