#pragma once

#include <set>
#include <string>

#include "diagctl/report/RunEvents.h"
#include "inventory/Redaction.h"

namespace TarvexDiags::FrontEnd {

/// Hides what identifies machines in the runs of logs: the name and the id of the machine, serial
/// numbers that the log lists, and whatever has the shape of a hardware address or a UUID. They are
/// hidden in all texts of the run that lists them.
class LogRedaction {
 public:
  /// @param key as for the inventory's: what is equal there and here stays equal.
  explicit LogRedaction(const std::string& key) : m_key(key), m_redactor(key) {}

  /// @throws std::length_error when a run has more to hide than can be, as for people.
  RunEvent redacted(RunEvent event);

 private:
  struct Hide;

  void learn(const RunStarted& start);
  void learnShapes(const std::string& text);
  void learn(const char* key, const std::string& value);
  std::string hidden(const std::string& text);

  const std::string m_key;
  Inventory::Redactor m_redactor;
  std::set<std::string> m_learnt;  ///< of the present run
};

}  // namespace TarvexDiags::FrontEnd
