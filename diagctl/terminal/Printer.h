#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

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

  /// Writes lines on a terminal, at once and over the block that was drawn before, and leaves the
  /// cursor at their beginning: wherever another program writes meanwhile and whatever a resize
  /// does to them, the next block starts there. Draws nothing while blocks are held back.
  /// @param lines at least one, each narrower and all of them no higher than the window.
  void drawBlock(const std::vector<std::string>& lines);

  /// Takes the block away, if one is drawn.
  void eraseBlock();

  bool hasBlock() const { return m_hasBlock; }

  /// The block that is drawn belongs to other programs now: it stays, or is gone.
  void forgetBlock() { m_hasBlock = false; }

  /// Hands on what was written so far.
  void flush();

  /// Whether all could be written.
  bool isSound() const;

  /// The system's reason why something could not be; 0 for none, and for none that it gave.
  int error() const { return m_error; }

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
  template <class Act>
  void noteError(Act act);

  std::ostream& m_stream;
  int m_error = 0;
  bool m_hasBlock = false;
};

/// Blocks on the terminal while others have it. Both are safe in a signal handler.
///
/// Takes a block that was drawn on standard error away, and lets no other be drawn.
void holdBlocksBack();
/// Blocks may be drawn again.
void letBlocksBeDrawn();

/// The reports and answers of the program.
Printer& standardOutput();

/// What is handed to the program.
std::istream& standardInput();

/// What the program says of itself: progress, warnings, the reason why it ends.
Printer& standardError();

}  // namespace TarvexDiags::FrontEnd
