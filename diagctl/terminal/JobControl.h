#pragma once

namespace TarvexDiags::FrontEnd::JobControl {

/// Makes a stop that is asked for (Ctrl-Z, SIGTSTP) leave the terminal as it was found, for whoever
/// has it then: with its old settings and nothing drawn. A program that was started to ignore that
/// signal still does.
void begin();

/// How often the program went on after a stop. From any thread.
unsigned long continuations();

/// Whether this program is in the foreground of a terminal. Nothing else may be read from it or
/// change its settings.
bool isInForeground(int descriptor);

}  // namespace TarvexDiags::FrontEnd::JobControl
