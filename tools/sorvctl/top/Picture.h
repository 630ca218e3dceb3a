// What the live view shows, as lines of text. The screen draws it; tests read it.
#pragma once

#include <string>
#include <vector>

#include "sorvctl/Colours.h"

namespace sorvctl::top {

/// The room on the terminal.
struct Size {
  int rows = 0;
  int columns = 0;
  auto operator<=>(const Size&) const = default;
};

/// A text that begins in a column, from 0, and takes `width` columns at most. It is escaped.
struct Span {
  int column = 0;
  int width = 0;
  std::string text;
  Tone tone = Tone::plain;
};

struct Line {
  std::vector<Span> spans;
  bool selected = false;
};

/// The lines from the top, not more than the terminal has rows.
using Picture = std::vector<Line>;

}  // namespace sorvctl::top
