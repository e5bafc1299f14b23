#pragma once

#include <cstddef>

namespace TarvexDiags::FrontEnd {

/// How many files are open at most while so many tests run at the same time, with all reports.
constexpr std::size_t openFilesFor(std::size_t tests) {
  constexpr std::size_t ofSession = 16;
  constexpr std::size_t ofTest = 8;  // a process with its channels, and what its start takes
  return ofSession + ofTest * tests;
}

/// Raises the limit on open files if it is too low: with too few, configuration
/// that cannot be read looks like configuration that is missing.
/// @throws std::runtime_error that names the limit, if it may not be raised so
/// far.
void allowOpenFiles(std::size_t needed);

}  // namespace TarvexDiags::FrontEnd
