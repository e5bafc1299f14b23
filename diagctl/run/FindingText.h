#pragma once

#include <cstdint>
#include <string>

#include "diagctl/session/WatchTexts.h"
#include "watch/Finding.h"

namespace TarvexDiags::FrontEnd {

/// A finding of the watch for people.
struct FindingText {
  std::string symptom;  ///< "memory-corrected"
  std::string message;
  std::string action;
};

/// @param during which it came, in the language of the texts. @param count of all of its kind
/// there.
FindingText textOf(const Watching::Finding& finding, const WatchTexts& texts,
                   const std::string& during, std::uint64_t count);

/// What a device of a finding is called: "sda" for "block:sda".
std::string nameOfDevice(const std::string& device, const WatchTexts& texts);

}  // namespace TarvexDiags::FrontEnd
