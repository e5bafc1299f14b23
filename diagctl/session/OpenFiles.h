#pragma once

#include <cstddef>

namespace TarvexDiags::FrontEnd {

/// How many files a run has open.
struct OpenFiles {
  std::size_t needed;  ///< once its tests run, with all reports and one test that starts
  std::size_t wanted;  ///< should all of them start in the same moment
};

/// @param tests that run at the same time.
constexpr OpenFiles openFilesFor(std::size_t tests) {
  constexpr std::size_t ofSession = 16;
  constexpr std::size_t ofTest = 5;   // its wake-up, its process and the channels to it
  constexpr std::size_t ofStart = 3;  // the other ends, until the process has them
  return {ofSession + ofStart + ofTest * tests, ofSession + (ofTest + ofStart) * tests};
}

/// Raises the limit on open files if it is too low: with too few, configuration that cannot be read
/// looks like configuration that is missing.
/// @throws std::runtime_error that names the limit, if it may not be raised as far as is needed.
void allowOpenFiles(OpenFiles files);

}  // namespace TarvexDiags::FrontEnd
