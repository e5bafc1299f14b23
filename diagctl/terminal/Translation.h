#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace TarvexDiags::FrontEnd {

/// Texts for people stand in the source in English and are marked there, so that they can be
/// gathered and told in another language: by `tr`, by `marked`, or by a printer's `say`. What
/// machines read is not marked: names of options, codes, keywords of formats.

/// The text in the language of whoever reads it: English, whatever that is.
inline std::string_view inLanguage(std::string_view text) {
  return text;
}

/// A text for people, with its arguments filled in. The compiler holds them against its places.
template <class... Arguments>
std::string tr(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
  const fmt::string_view source = text;
  const std::string_view told = inLanguage({source.data(), source.size()});
  return fmt::vformat({told.data(), told.size()}, fmt::make_format_args(arguments...));
}

/// Marks a text that stands in a table, or is chosen before it is told; `told` tells it.
constexpr const char* marked(const char* text) {
  return text;
}

/// A text that was marked where it stands, and has no arguments.
inline std::string told(std::string_view text) {
  return std::string(inLanguage(text));
}

}  // namespace TarvexDiags::FrontEnd
