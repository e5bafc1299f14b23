#pragma once

#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// A setting that is to hold instead of what the description of a package says.
struct SettingOverride {
  std::string package;  ///< base name, mnemonic or name
  int test = 0;         ///< number; 0: wherever the key stands
  std::string key;
  std::string value;
  std::string file = {};  ///< where it stands, as `written`; empty: on the command line
  std::string written = {};
};

/// @param text "memory.Rounds=3", or "memory.2.Rounds=3" for its second test alone.
/// @throws std::invalid_argument for people.
SettingOverride parseOverride(const std::string& text);

/// The description of a package with a value of a section: in place of the one that counts, or
/// behind the head of the section, which is added where it is missing.
std::string withValue(const std::string& description, const std::string& section,
                      const std::string& key, const std::string& value);

/// The same with all that another file says.
std::string withOverlay(std::string description, const std::string& overlayFile);

/// The same with an override: in each section of tests that has the key, and in that of the
/// package.
std::string withOverride(std::string description, const SettingOverride& override);

}  // namespace TarvexDiags::FrontEnd
