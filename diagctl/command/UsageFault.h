#pragma once

#include <stdexcept>

namespace TarvexDiags::FrontEnd {

/// A command line that cannot be carried out, told for people without the name of the program.
class UsageFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace TarvexDiags::FrontEnd
