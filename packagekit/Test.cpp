#include "packagekit/Test.h"

namespace TarvexDiags::PackageKit {

Test::Test() = default;
Test::~Test() = default;

Support Test::supports(const Device& /*device*/, const Environment& /*environment*/) const {
  return Support::yes();
}

double Test::estimate(const Device& /*device*/, const Environment& /*environment*/) const {
  return 0;
}

}  // namespace TarvexDiags::PackageKit
