#pragma once

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "diagctl/command/UsageFault.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

/// The name among those that a word stands for: itself without regard to case, or the only one that
/// begins with it.
/// @param option that has the word for its value, for people.
/// @throws UsageFault that names what is possible.
std::string chosenName(const std::string& word, const std::vector<std::string>& names,
                       const std::string& option);

/// Seconds of "90", "90s", "10m", "2h", "1d", above 0.
/// @throws UsageFault that tells what is allowed.
unsigned long secondsFrom(const std::string& text, const std::string& option);

/// What a number that an option takes was not.
[[noreturn]] void refuseNumber(const std::string& text, const std::string& option,
                               const std::string& least, const std::string& most);

/// The options of a command that stand below one head in its help. Each judges its value by itself,
/// so that what is wrong is told in the program's own words; the values, and what holds without the
/// option, stand behind its text.
class OptionGroup {
 public:
  /// @param command kept alive by the caller. @param head empty: as of options without a group.
  OptionGroup(CLI::App& command, std::string head) : m_command(command), m_head(std::move(head)) {}

  CLI::Option& flag(const std::string& names, bool& target, const std::string& text);
  /// May be given several times. @param count of them.
  CLI::Option& counted(const std::string& names, int& count, const std::string& text);

  CLI::Option& text(const std::string& names, const std::string& value, std::string& target,
                    const std::string& text, const std::string& otherwise = "");
  CLI::Option& text(const std::string& names, const std::string& value,
                    std::optional<std::string>& target, const std::string& text,
                    const std::string& otherwise = "");

  /// May be given several times.
  CLI::Option& list(const std::string& names, const std::string& value,
                    std::vector<std::string>& target, const std::string& text);

  CLI::Option& seconds(const std::string& names, std::optional<unsigned long>& target,
                       const std::string& text, const std::string& otherwise);

  template <class Value>
  using Choices = std::vector<std::pair<std::string, Value>>;

  /// @param target a Value or an optional one.
  template <class Value, class Target>
  CLI::Option& choice(const std::string& names, const std::string& value, Target& target,
                      const Choices<Value>& choices, const std::string& text,
                      const std::string& otherwise);

  /// @param target an optional whole number, at least `least` and at most `most`.
  template <class Number>
  CLI::Option& number(const std::string& names, std::optional<Number>& target, Number least,
                      Number most, const std::string& text, const std::string& otherwise);

 private:
  CLI::Option& finish(CLI::Option& option, const std::string& value) const;

  CLI::App& m_command;
  std::string m_head;
};

/// The text of an option with what its help tells behind it: the values, and the default.
std::string withValues(const std::string& text, const std::vector<std::string>& values,
                       const std::string& otherwise);

/// The long name among "-p,--package", else the short one.
std::string longNameOf(const std::string& names);

template <class Value, class Target>
CLI::Option& OptionGroup::choice(const std::string& names, const std::string& value, Target& target,
                                 const Choices<Value>& choices, const std::string& text,
                                 const std::string& otherwise) {
  std::vector<std::string> words;
  for (const auto& [word, ignored] : choices) {
    words.push_back(word);
  }
  const auto take = [&target, choices, words, name = longNameOf(names)](const std::string& word) {
    const std::string chosen = chosenName(word, words, name);
    for (const auto& [known, meant] : choices) {
      if (known == chosen) {
        target = meant;
      }
    }
  };
  return finish(
      *m_command.add_option_function<std::string>(names, take, withValues(text, words, otherwise)),
      value);
}

template <class Number>
CLI::Option& OptionGroup::number(const std::string& names, std::optional<Number>& target,
                                 Number least, Number most, const std::string& text,
                                 const std::string& otherwise) {
  const auto take = [&target, least, most, name = longNameOf(names)](const std::string& word) {
    Number number{};
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most) {
      refuseNumber(word, name, std::to_string(least),
                   most == std::numeric_limits<Number>::max() ? "" : std::to_string(most));
    }
    target = number;
  };
  return finish(
      *m_command.add_option_function<std::string>(names, take, withValues(text, {}, otherwise)),
      "N");
}

}  // namespace TarvexDiags::FrontEnd
