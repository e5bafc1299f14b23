#pragma once

#include <stdexcept>

namespace TarvexDiags::FrontEnd {

/// What keeps the program from its work, told in several lines. What they hold of others is made
/// printable by whoever throws it; all other failures are told in one line.
class FailureInLines : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace TarvexDiags::FrontEnd
