#pragma once

#include <CLI/CLI.hpp>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TarvexDiags::FrontEnd {

/// A verb: its options, and what it does once they were taken.
struct Verb {
  std::string name;      ///< of one word or two: "inventory check"
  std::string text;      ///< what it does, in a line
  std::string examples;  ///< of command lines, a line each
  std::unique_ptr<CLI::App> command;
  std::function<int()> carryOut;
};

/// What a command line asks for, by the options that there are.
struct Arguments {
  const Verb* verb = nullptr;
  bool wantsHelp = false;
  bool wantsVersion = false;
  std::vector<std::string> ofProgram;  ///< options of every verb, as the parser takes them
  std::vector<std::string> ofVerb;     ///< the same for those of the verb, its words at the end
};

/// Goes through a command line: finds the verb, each option by its name or the only one that begins
/// so, and the value that it needs. What is wrong is told here, so the parser meets nothing that it
/// must refuse.
/// @param words without the name of the program.
/// @param arguments is filled in as far as the words are sound.
/// @throws UsageFault
void readArguments(const std::vector<std::string>& words, const CLI::App& program,
                   const std::deque<Verb>& verbs, Arguments& arguments);

/// Words as one command that a shell takes for the same words.
std::string asCommand(const std::vector<std::string>& words);

/// The verb that a word stands for: by its name, or the only one of one word that begins so.
/// @throws UsageFault
const Verb& verbNamed(const std::string& word, const std::deque<Verb>& verbs);

}  // namespace TarvexDiags::FrontEnd
