#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace TarvexDiags::FrontEnd {

/// Texts for people stand in the source in English and are marked there, so that they can be
/// gathered and told in another language: by `tr`, by `trn` where they tell a number of things, by
/// `marked`, or by a printer's `say`. `po` has them in the other languages. What machines
/// read is not marked: names of options, codes, keywords of formats. The help is marked by
/// `english`, and stays in it, as the manual does.

/// Settles the language in which texts are told from here on; English where there is no
/// catalogue of it, which is looked for beside the program (../share/locale).
/// Call it while there is one thread: it sets LANGUAGE in the environment.
/// @param language two letters, as of --lang.
void speak(const std::string& language);

/// The language in which texts are told: English where there is no catalogue of another.
std::string languageOfTexts();

/// Whether the character set that the environment names can show the text: UTF-8 can show any, and
/// so may what names none; others are trusted with ASCII alone.
bool canShow(std::string_view text);

/// While one lives, all texts of its thread can be shown: of a file that names its own characters.
class OfAnyCharacters {
 public:
  OfAnyCharacters();
  ~OfAnyCharacters();
  OfAnyCharacters(const OfAnyCharacters&) = delete;
  OfAnyCharacters& operator=(const OfAnyCharacters&) = delete;
};

/// The text in the language that was settled, or itself where that has none or cannot be shown.
/// @param text ends with a null character, as literals do.
std::string_view inLanguage(const char* text);

/// The one of two texts that fits the number, in the language that was settled.
std::string_view inLanguage(const char* one, const char* many, std::size_t count);

/// A text with its arguments filled in; the source's where the translation does not fit them.
std::string fillIn(std::string_view text, std::string_view source, fmt::format_args arguments);

/// A text for people, with its arguments filled in. The compiler holds them against its places.
template <class... Arguments>
std::string tr(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
  const fmt::string_view source = text;
  return fillIn(inLanguage(source.data()), {source.data(), source.size()},
                fmt::make_format_args(arguments...));
}

/// A text for people that tells a number of things: `one` for a single one, else `many`; languages
/// have forms of their own. The count is the first argument of both.
template <class... Arguments>
std::string trn(fmt::format_string<const std::size_t&, Arguments...> one,
                fmt::format_string<const std::size_t&, Arguments...> many, std::size_t count,
                Arguments&&... arguments) {
  const fmt::string_view single = one;
  const fmt::string_view several = many;
  const fmt::string_view source = count == 1 ? single : several;
  return fillIn(inLanguage(single.data(), several.data(), count), {source.data(), source.size()},
                fmt::make_format_args(count, arguments...));
}

/// A text of the help, or of a line that schedulers, monitors and the system's log keep, with its
/// arguments filled in: it is told in English in every language.
template <class... Arguments>
std::string english(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
  return fmt::format(text, std::forward<Arguments>(arguments)...);
}

/// Marks a text that stands in a table, or is chosen before it is told; `told` tells it.
constexpr const char* marked(const char* text) {
  return text;
}

/// A text that was marked where it stands, and has no arguments.
inline std::string told(std::string_view text) {
  const std::string source(text);
  return std::string(inLanguage(source.c_str()));
}

}  // namespace TarvexDiags::FrontEnd
