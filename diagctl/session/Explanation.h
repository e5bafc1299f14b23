#pragma once

#include <optional>
#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// What a word or a number of a report means.
struct Explanation {
  /// "controller", "kit", "watch", "exit", "word", or the base name of a package.
  std::string family;
  std::string name;                          ///< "LOAD_LIBRARY_FAILED", "PASSED"
  std::optional<unsigned int> resultNumber;  ///< as the result of a call
  std::optional<unsigned int> eventNumber;   ///< as an event of the family
  std::string kind;                          ///< for people: "error"
  std::string meaning;
  std::string action;  ///< may be empty
};

/// All that a word or a number may mean: codes of the controller, the kit and the packages by name,
/// token, symptom, number or wildcard, words of a report and exit codes. With a family before it,
/// as in "kit:9040", only what it means there.
/// @param directories of the packages.
/// @param language of the texts of kit and packages, which fall back to English.
std::vector<Explanation> explanationsOf(const std::string& asked,
                                        const std::vector<std::string>& directories,
                                        const std::string& language);

}  // namespace TarvexDiags::FrontEnd
