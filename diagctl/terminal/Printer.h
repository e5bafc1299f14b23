#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "diagctl/terminal/Printable.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

enum class Colour { Green, Red, Yellow };

/// Writes what the program tells, to people and to programs. All output goes through here, so that
/// what must hold for any of it is settled in one place: whatever a name or a text holds, nothing
/// steers a terminal but what a printer itself sends for that.
class Printer {
 public:
  /// @param stream kept alive by the caller.
  explicit Printer(std::ostream& stream) : m_stream(stream) {}
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  /// Writes a text for people in their language, with its arguments filled in, each in one line.
  template <class... Arguments>
  void say(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
    const fmt::string_view source = text;
    fill(inLanguage(source.data()), {source.data(), source.size()}, arguments...);
  }

  /// Writes what is the same in each language, with its arguments filled in, each in one line.
  template <class... Arguments>
  void print(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
    const fmt::string_view source = text;
    fill({source.data(), source.size()}, {source.data(), source.size()}, arguments...);
  }

  /// Writes a text as it is, its line breaks too; anything else that is not harmless is written
  /// out.
  void write(std::string_view text);

  /// Writes a text in a colour, for a terminal.
  void paint(Colour colour, std::string_view text);

  /// Erases lines that were written last, on a terminal.
  void eraseLines(std::size_t count);

  /// Hands on what was written so far.
  void flush();

  /// Whether all could be written.
  bool isSound() const;

 private:
  /// A text in one line; anything else as it is.
  template <class Argument>
  static decltype(auto) inOneLine(const Argument& argument) {
    if constexpr (std::is_convertible_v<const Argument&, std::string_view>) {
      return toPrintable(argument);
    } else {
      return (argument);
    }
  }

  template <class... Arguments>
  void fill(std::string_view text, std::string_view source, const Arguments&... arguments) {
    write(fillIn(text, source, fmt::make_format_args(inOneLine(arguments)...)));
  }

  void writeRaw(std::string_view text);

  std::ostream& m_stream;
};

/// The reports and answers of the program.
Printer& standardOutput();

/// What is handed to the program.
std::istream& standardInput();

/// What the program says of itself: progress, warnings, the reason why it ends.
Printer& standardError();

}  // namespace TarvexDiags::FrontEnd
