#pragma once

#include <CLI/CLI.hpp>

#include <deque>

#include "diagctl/command/Arguments.h"
#include "diagctl/terminal/Printer.h"

namespace TarvexDiags::FrontEnd {

/// Tells what the program does: its verbs, and the options of all of them.
void writeHelp(Printer& out, const CLI::App& program, const std::deque<Verb>& verbs);

/// Tells all of a verb: its options by group with what they take and what holds without them.
void writeHelp(Printer& out, const CLI::App& program, const Verb& verb);

/// How the program is called, and the verbs with a line each.
void writeVerbs(Printer& out, const std::deque<Verb>& verbs);

}  // namespace TarvexDiags::FrontEnd
