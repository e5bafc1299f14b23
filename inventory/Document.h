#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "inventory/Facts.h"

namespace TarvexDiags::Inventory {

/// @brief A document that cannot be used: "FILE: PLACE: REASON", for people.
class DocumentFault : public std::runtime_error {
 public:
  /// @param place within the document, as a JSON pointer or a line; empty for all of it.
  DocumentFault(const std::string& file, const std::string& place, const std::string& reason)
      : std::runtime_error(file + ": " + (place.empty() ? "" : place + ": ") + reason) {}
};

/// @brief JSON that comes from anywhere: at most 16 MiB, 32 levels deep, and no key twice in one
/// object.
/// @param file its name, for people.
/// @throws DocumentFault
Json parseDocument(std::string_view text, const std::string& file);

/// @brief The same from a file.
/// @throws std::system_error naming a file that cannot be read. @throws DocumentFault
Json readDocument(const std::string& file);

/// @brief Whether it is an inventory of the version that this program writes, with all its
/// sections.
/// @throws DocumentFault when it is none.
void requireInventory(const Json& document, const std::string& file);

}  // namespace TarvexDiags::Inventory
