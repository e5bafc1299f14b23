#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.h"

namespace TarvexDiags::DiagctlTest {

/// A window of a terminal, emulated by tmux, with a shell in it that starts the built program: what
/// it shows after all that was written to it, which no text that was caught can tell.
class Screen {
 public:
  using Lines = std::vector<std::string>;

  /// @param arguments of the program, which `startProgram` starts.
  Screen(std::size_t columns, std::size_t rows, const std::vector<std::string>& arguments,
         const std::map<std::string, std::string>& environment = {});
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  void startProgram() { type("r"); }
  /// Types a line for the shell.
  void type(const std::string& line);
  /// Presses keys by the names that tmux has for them: "q", "Down", "C-z".
  void press(const std::string& key);
  void resize(std::size_t columns, std::size_t rows);
  /// Writes to the terminal as any other program may.
  void writeAsOther(const std::string& text);

  /// What is shown, without blanks at the ends of lines and empty lines at the end.
  Lines lines() const;
  /// The line that begins with a text; empty where there is none.
  std::string lineOf(const std::string& beginning) const;
  /// How many of the lines hold a text.
  std::size_t countOf(const std::string& text) const;
  /// Waits until what is shown is as it should be. @return whether it came to that.
  bool waitFor(const std::function<bool(const Lines&)>& isAsItShould,
               std::chrono::milliseconds limit = std::chrono::seconds(30)) const;
  /// Waits until a line holds a text.
  bool waitFor(const std::string& text) const;
  /// What is shown, for people.
  std::string describe() const;

 private:
  std::string tmux(const std::vector<std::string>& arguments) const;

  TestSupport::TemporaryDirectory m_directory;
};

/// How many of the lines hold a text.
std::size_t countOf(const Screen::Lines& lines, const std::string& text);

}  // namespace TarvexDiags::DiagctlTest
