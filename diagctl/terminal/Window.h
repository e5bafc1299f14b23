#pragma once

#include <cstddef>

namespace TarvexDiags::FrontEnd {

/// How large a terminal is, in characters.
struct Window {
  std::size_t columns = 80;
  std::size_t rows = 24;

  bool operator==(const Window&) const = default;
};

/// What there is to draw on, at one moment.
struct Canvas {
  /// Whether lines may be drawn again and again: on a terminal that can move its cursor, and has
  /// this program in its foreground.
  bool isDrawn = false;
  Window window;
  /// How often the program was stopped and went on: what was drawn before is no longer where it
  /// was.
  unsigned long continuations = 0;

  bool operator==(const Canvas&) const = default;
};

/// That of standard error. From any thread.
Canvas canvasOfErrors();

}  // namespace TarvexDiags::FrontEnd
