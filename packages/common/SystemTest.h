#pragma once

#include <algorithm>
#include <chrono>
#include <string>

#include "packagekit/PackageKit.h"
#include "packages/common/SystemFiles.h"

namespace TarvexDiags::Common {

/// @brief A test that looks at the machine through the kernel's files, known by its number.
///
/// Its devices have the property "systemRoot": where /sys and /proc lie.
template <class Number>
class SystemTest : public PackageKit::Test {
 public:
  explicit SystemTest(Number number) : m_number(number) {}

 protected:
  Number number() const { return m_number; }

 private:
  Number m_number;
};

/// @brief Where /sys and /proc lie for a package: "/" unless its section Package says otherwise.
inline std::string systemRootOf(const PackageKit::Environment& environment) {
  return environment.settings.package("SystemRoot").value_or("/");
}

/// @brief The tag below which a package's devices lie.
inline std::string parentTagOf(const PackageKit::Environment& environment) {
  return environment.resourceString.empty() ? "host" : environment.resourceString;
}

inline SystemFiles filesOf(const PackageKit::Device& device) {
  return SystemFiles(device.property("systemRoot", "/"));
}

/// @brief A time that the test's section gives in seconds under a key, or for the short form under
/// "Quick" and the key. 0 when it is not there, never below.
inline std::chrono::milliseconds durationOf(const PackageKit::Settings& settings, int test,
                                            bool quick, const std::string& key) {
  const double full = settings.testNumber(test, key, 0);
  const double seconds = quick ? settings.testNumber(test, "Quick" + key, full) : full;
  return std::chrono::milliseconds(static_cast<long>(std::max(seconds, 0.0) * 1000));
}

}  // namespace TarvexDiags::Common
