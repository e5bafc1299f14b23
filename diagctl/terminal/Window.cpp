#include "diagctl/terminal/Window.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "diagctl/terminal/JobControl.h"

namespace TarvexDiags::FrontEnd {

namespace {

// A terminal that does not say what it is, or says that it can do nothing, gets lines alone.
bool movesCursor() {
  const char* const terminal = std::getenv("TERM");
  return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

}  // namespace

Canvas canvasOfErrors() {
  Canvas canvas;
  canvas.continuations = JobControl::continuations();
  if (isatty(STDERR_FILENO) == 0) {
    return canvas;
  }
  canvas.isDrawn = movesCursor() && JobControl::isInForeground(STDERR_FILENO);
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0) {
    canvas.window.columns = size.ws_col > 0 ? size.ws_col : canvas.window.columns;
    canvas.window.rows = size.ws_row > 0 ? size.ws_row : canvas.window.rows;
  }
  return canvas;
}

}  // namespace TarvexDiags::FrontEnd
