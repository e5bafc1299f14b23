#include "packagekit/Package.h"

#include <stdexcept>

namespace TarvexDiags::PackageKit {

namespace {

class FunctionTest : public Test {
 public:
  explicit FunctionTest(Package::TestFunction function) : m_function(std::move(function)) {}

  Verdict run(TestContext& context) override { return m_function(context); }

 private:
  const Package::TestFunction m_function;
};

const char* nameOf(DiagnosticMode mode) {
  switch (mode) {
    case DeviceEnum::IDeviceEnumerator::CUSTOMER:
      return "CUSTOMER";
    case DeviceEnum::IDeviceEnumerator::FACTORY:
      return "FACTORY";
    case DeviceEnum::IDeviceEnumerator::BRINGUP:
      return "BRINGUP";
  }
  return "unknown";
}

}  // namespace

TestEntry::TestEntry(std::unique_ptr<Test> test) : m_test(std::move(test)) {}

TestEntry& TestEntry::supportedWhen(
    std::function<Support(const Device&, const Environment&)> predicate) {
  m_predicate = std::move(predicate);
  return *this;
}

TestEntry& TestEntry::onlyIn(std::set<DiagnosticMode> modes) {
  m_modes = std::move(modes);
  return *this;
}

TestEntry& TestEntry::writes() {
  m_writes = true;
  return *this;
}

TestEntry& TestEntry::estimate(std::function<double(const Device&, const Environment&)> figure) {
  m_estimate = std::move(figure);
  return *this;
}

TestEntry& TestEntry::reads(SettingList settings) {
  m_settings = std::move(settings);
  return *this;
}

Support TestEntry::supports(const Device& device, const Environment& environment) const {
  if (!m_modes.empty() && !m_modes.contains(environment.diagnosticMode)) {
    return Support::no(Contract::kNotOffered, nameOf(environment.diagnosticMode));
  }
  if (m_predicate) {
    Support answer = m_predicate(device, environment);
    if (!answer) {
      return answer;
    }
  }
  return m_test->supports(device, environment);
}

double TestEntry::estimateFor(const Device& device, const Environment& environment) const {
  return m_estimate ? m_estimate(device, environment) : m_test->estimate(device, environment);
}

void Package::discover(DiscoverFunction function) {
  m_discover = std::move(function);
}

void Package::status(StatusFunction function) {
  m_status = std::move(function);
}

TestEntry& Package::test(int testId, TestFunction function) {
  return test(testId, std::unique_ptr<Test>(std::make_unique<FunctionTest>(std::move(function))));
}

TestEntry& Package::test(int testId, std::unique_ptr<Test> test) {
  const auto added = m_tests.emplace(testId, TestEntry(std::move(test)));
  if (!added.second) {
    throw std::logic_error("test " + std::to_string(testId) + " is defined twice");
  }
  return added.first->second;
}

void Package::tests(std::vector<TestRow> rows) {
  for (TestRow& row : rows) {
    TestEntry& entry = test(row.number, std::move(row.body));
    entry.reads(std::move(row.reads)).onlyIn(std::move(row.modes));
    entry.supportedWhen(std::move(row.support)).estimate(std::move(row.estimate));
    if (row.writes) {
      entry.writes();
    }
  }
}

void Package::reads(SettingList settings) {
  m_settings = std::move(settings);
}

SettingList Package::settings() const {
  SettingList all = m_settings;
  for (const auto& [testId, entry] : m_tests) {
    for (SettingRule rule : entry.settings()) {
      rule.testId = testId;
      all.push_back(std::move(rule));
    }
  }
  return all;
}

std::vector<Device> Package::findDevices(const Environment& environment) const {
  return m_discover ? m_discover(environment) : std::vector<Device>();
}

unsigned int Package::statusOf(const Device& device) const {
  return m_status ? m_status(device) : 0;
}

std::vector<int> Package::testIds() const {
  std::vector<int> ids;
  for (const auto& [testId, entry] : m_tests) {
    ids.push_back(testId);
  }
  return ids;
}

const TestEntry* Package::find(int testId) const {
  const auto found = m_tests.find(testId);
  return found == m_tests.end() ? nullptr : &found->second;
}

}  // namespace TarvexDiags::PackageKit
