#pragma once

#include <optional>
#include <vector>

#include "inventory/FactPath.h"
#include "inventory/Facts.h"
#include "inventory/Rules.h"

namespace TarvexDiags::Inventory {

/// @brief A fact that is not as expected. A side that has no value does not have the fact.
struct Difference {
  FactPath path;
  std::optional<Json> expected;
  std::optional<Json> actual;
  Gravity gravity = Gravity::Warning;
};

/// @brief What is wrong with one part of the machine.
struct Finding {
  enum class Kind {
    PartMissing,
    PartDegraded,   ///< a fact of it differs whose rule is a failure
    PartDiffers,    ///< other facts of it do
    PartAdded,      ///< nobody expects it
    NotComparable,  ///< one side does not know, so nothing is said of it
  };

  Kind kind = Kind::PartDiffers;
  Gravity gravity = Gravity::Warning;  ///< the worst of its differences
  FactPath part;
  Json facts;                           ///< of the part, as it is or else as it was expected
  std::vector<Difference> differences;  ///< none of a part that is missing or was added
  std::vector<FactPath> with;           ///< parts that hang on it, and are missing or added with it
};

struct Comparison {
  std::vector<Finding> findings;             ///< the worst first, then by their parts
  std::vector<FactPath> unknownOnBothSides;  ///< what cannot be compared, and was never known
};

/// @brief Holds an inventory against the one that is expected. What the rules say nothing of: a
/// part that is missing is a failure, one more or another fact a warning, and one more fact
/// information; a fact that is missing is a warning at most. A fault is told once: of a PCI link at
/// the device's end, of a device that is missing with all that hangs on it, and what the rules let
/// follow from something else not at all. Neither document is changed; what they hold may be
/// anything.
[[nodiscard]] Comparison compare(const Json& expected, const Json& actual, const Rules& rules);

/// @brief Each fact that differs, told by no rule but that of equality.
[[nodiscard]] std::vector<Difference> differencesOf(const Json& one, const Json& other);

}  // namespace TarvexDiags::Inventory
