#pragma once

#include <fmt/format.h>

#include <ostream>
#include <string_view>
#include <utility>

#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

/// Writes what the program tells, to people and to programs. All output goes through here, so that
/// what must hold for any of it is settled in one place.
class Printer {
 public:
  /// @param stream kept alive by the caller.
  explicit Printer(std::ostream& stream) : m_stream(stream) {}
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  /// Writes a text for people in their language, with its arguments filled in.
  template <class... Arguments>
  void say(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
    write(tr(text, std::forward<Arguments>(arguments)...));
  }

  /// Writes what is the same in each language, with its arguments filled in.
  template <class... Arguments>
  void print(fmt::format_string<Arguments...> text, Arguments&&... arguments) {
    write(fmt::format(text, std::forward<Arguments>(arguments)...));
  }

  /// Writes a text as it is.
  void write(std::string_view text);

  /// Hands on what was written so far.
  void flush();

  /// Whether all could be written.
  bool isSound() const;

 private:
  std::ostream& m_stream;
};

/// The reports and answers of the program.
Printer& standardOutput();

/// What the program says of itself: progress, warnings, the reason why it ends.
Printer& standardError();

}  // namespace TarvexDiags::FrontEnd
