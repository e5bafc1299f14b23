#include "diagctl/command/Help.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "diagctl/terminal/Columns.h"
#include "diagctl/terminal/Translation.h"

namespace TarvexDiags::FrontEnd {

namespace {

constexpr std::size_t kIndent = 2;
constexpr std::size_t kTextColumn = 30;

// What is told behind a name, in lines of their own where the name is long.
void writeEntry(Printer& out, const std::string& name, const std::string& text,
                std::size_t column) {
  std::string line = std::string(kIndent, ' ') + name;
  const std::size_t width = widthOfOutput();
  const std::vector<std::string> lines =
      wrapped(text, width > column + 10 ? width - column : kTextColumn);
  if (columnsOf(line) + 2 > column && !lines.empty()) {
    out.print("{}\n", line);
    line.clear();
  }
  for (const std::string& part : lines) {
    line.resize(std::max(line.size(), column), ' ');
    out.print("{}\n", line + part);
    line.clear();
  }
}

// "-p, --package PATTERN".
std::string namesOf(const CLI::Option& option) {
  std::string names;
  for (const std::string& name : option.get_snames()) {
    names += (names.empty() ? "-" : ", -") + name;
  }
  for (const std::string& name : option.get_lnames()) {
    names += (names.empty() ? "--" : ", --") + name;
  }
  if (option.get_items_expected_max() == 0) {
    return names;
  }
  const std::string value = option.get_type_name();
  return option.get_items_expected_min() == 0 ? names + "[=" + value + "]" : names + " " + value;
}

bool isPlain(const CLI::Option& option) {
  return option.get_positional();
}

void writeGroup(Printer& out, const CLI::App& command, const std::string& group,
                const std::string& head) {
  bool isFirst = true;
  for (const CLI::Option* option : command.get_options()) {
    if (isPlain(*option) || option->get_group() != group) {
      continue;
    }
    if (isFirst) {
      out.print("\n{}:\n", head);
      isFirst = false;
    }
    writeEntry(out, namesOf(*option), option->get_description(), kTextColumn);
  }
}

void writeExamples(Printer& out, const std::string& examples) {
  out.write(english("\nExamples:\n"));
  out.write(examples);
  out.write("\n");
}

}  // namespace

void writeVerbs(Printer& out, const std::deque<Verb>& verbs) {
  constexpr std::size_t column = 13;
  out.write(english("Usage: diagctl [OPTIONS] VERB ...\n\nVerbs:\n"));
  for (const Verb& verb : verbs) {
    writeEntry(out, verb.name, verb.text, column);
  }
}

void writeHelp(Printer& out, const CLI::App& program, const std::deque<Verb>& verbs) {
  out.print("{}\n\n", program.get_description());
  writeVerbs(out, verbs);
  for (const std::string& group : program.get_groups()) {
    writeGroup(out, program, group, group);
  }
  writeExamples(out, program.get_footer());
  out.write(english("\n\"diagctl help VERB\" tells more of each. The manual is diagctl(1).\n"));
}

void writeHelp(Printer& out, const CLI::App& program, const Verb& verb) {
  std::string usage = verb.name + " " + english("[OPTIONS]");
  for (const CLI::Option* option : verb.command->get_options()) {
    if (isPlain(*option)) {
      const std::string value = option->get_type_name();
      const std::string several = option->get_expected_max() > 1 ? "..." : "";
      usage += " " + (option->get_required() ? value : "[" + value + "]") + several;
    }
  }
  out.print("{}.\n\n", verb.text);
  out.print("{}\n", english("Usage: diagctl {}", usage));
  for (const CLI::Option* option : verb.command->get_options()) {
    if (isPlain(*option)) {
      out.write("\n");
      writeEntry(out, option->get_type_name(), option->get_description(), kTextColumn);
    }
  }
  for (const std::string& group : verb.command->get_groups()) {
    writeGroup(out, *verb.command, group, group);
  }
  for (const std::string& group : program.get_groups()) {
    writeGroup(out, program, group, english("Options of every verb"));
  }
  writeExamples(out, verb.examples);
}

}  // namespace TarvexDiags::FrontEnd
