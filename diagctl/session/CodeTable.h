#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// What a number of the controller means: as the result of a call, as the code of a controller
/// event, or both. The two enumerations agree through 31 and go apart from 32 on.
struct CodeEntry {
  enum class Severity { Success, Information, Warning, Error };
  /// What a run makes of the event about one of its requests.
  enum class Effect {
    Trouble,  ///< the step has no verdict, unless the hardware was found at fault
    Aborted,  ///< the step was ended before its time
    Nothing,  ///< the run has it by other means
  };

  std::string_view name;
  std::optional<unsigned int> resultNumber;  ///< as the result of a call
  std::optional<unsigned int> eventNumber;   ///< as the code of a controller event
  Severity severity;
  std::string_view meaning;
  std::string_view nextAction;
  Effect effect = Effect::Trouble;
};

/// All codes, in the order of their lowest number.
const std::vector<CodeEntry>& codeTable();

/// The entry of a controller event's code; null if there is none.
const CodeEntry* findEvent(unsigned int number);
/// The entry of a controller's event as a run takes it: that of its code, or the one for events
/// that nobody knows, which has no numbers.
const CodeEntry& entryOfEvent(unsigned int number);
/// The entry of a call's result; null if there is none.
const CodeEntry* findResult(unsigned int number);

std::string_view toText(CodeEntry::Severity severity);

}  // namespace TarvexDiags::FrontEnd
