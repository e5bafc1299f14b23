#pragma once

#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "Diag/DiagnosticSettings.h"

namespace TarvexDiags::TestSupport {

/// Leaves a byte that is no bool in a flag of the settings, as a faulty client would. The flag is
/// found as the one byte in which an object with the flag set differs from one without.
///
///   storeFlagByte(settings, &Diag::DiagnosticSettings::setHaltOnError, 7);
inline void storeFlagByte(Diag::DiagnosticSettings& settings,
                          void (Diag::DiagnosticSettings::*setFlag)(bool), unsigned char value) {
  constexpr std::size_t size = sizeof(Diag::DiagnosticSettings);
  unsigned char without[size];
  unsigned char with[size];
  auto* const bytes = reinterpret_cast<unsigned char*>(&settings);
  (settings.*setFlag)(false);
  std::memcpy(without, bytes, size);
  (settings.*setFlag)(true);
  std::memcpy(with, bytes, size);
  for (std::size_t offset = 0; offset < size; ++offset) {
    if (without[offset] != with[offset]) {
      bytes[offset] = value;
      return;
    }
  }
  throw std::logic_error("the setter changed no byte");
}

}  // namespace TarvexDiags::TestSupport
