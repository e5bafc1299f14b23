#pragma once

#include <string>
#include <vector>

#include "diagctl/check/Check.h"

namespace TarvexDiags::FrontEnd {

/// What a value must be.
enum class ValueKind {
  Text,
  Truth,
  Number,          ///< whole and decimal
  Seconds,         ///< decimal, with or without a fraction
  PositiveNumber,  ///< whole, decimal and above zero
  Niceness,        ///< whole, decimal, from 0 to 19
  Findings,        ///< kinds of what the watch over the machine finds, with commas
  Privileges,      ///< names of rights, see packagekit/contract/Privileges.h
  RunMode,
  DiagMode,
  DebugLevel,
  MachineId,  ///< whole, decimal or hexadecimal with 0x, of 16 bits
  OpenMode,
  OperatingSystem,
  Directory,
  File,
};

struct KeyRule {
  const char* key;
  ValueKind kind;
  bool isRequired;
};

/// What is wrong with a value, empty if nothing is.
std::string findFault(ValueKind kind, const std::string& value);

/// Holds the keys of one section against rules.
void checkKeys(const ConfigurationText& text, const std::string& file, const std::string& section,
               const std::vector<KeyRule>& rules, std::vector<Problem>& problems);

/// Adds what is written in a file and never read.
void checkRemarks(const ConfigurationText& text, const std::string& file,
                  std::vector<Problem>& problems);

}  // namespace TarvexDiags::FrontEnd
