#pragma once

#include <optional>
#include <string>

namespace TarvexDiags::FrontEnd {

/// Whether what identifies a machine is hidden, and by which key.
struct RedactionWishes {
  bool isRedacted = false;
  std::optional<std::string> keyFile;  ///< of a redaction whose key is not drawn

  bool areAny() const { return isRedacted || keyFile.has_value(); }
};

/// The key in the file, or one that is drawn.
/// @throws std::system_error naming a file that cannot be read or is empty.
std::string keyOf(const RedactionWishes& wishes);

}  // namespace TarvexDiags::FrontEnd
