#pragma once

#include <cfenv>

namespace TarvexDiags::Processor {

/// @brief The default environment of floating-point arithmetic, for as long as it lives: rounding
/// to nearest, no flushing of denormals, no traps. Thread-safety: the thread that made it.
class FloatEnvironment {
 public:
  FloatEnvironment() {
    std::fegetenv(&m_before);
    std::fesetenv(FE_DFL_ENV);
  }
  ~FloatEnvironment() { std::fesetenv(&m_before); }
  FloatEnvironment(const FloatEnvironment&) = delete;
  FloatEnvironment& operator=(const FloatEnvironment&) = delete;

 private:
  std::fenv_t m_before{};
};

}  // namespace TarvexDiags::Processor
