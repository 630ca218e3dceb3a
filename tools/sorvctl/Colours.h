// Colours of what sorvctl prints for people.
#pragma once

#include <string>
#include <string_view>

namespace sorvctl {

/// When there are colours.
enum class Colouring {
  automatic,  ///< when standard output is a terminal that has them, and NO_COLOR is not set
  always,
  never,
};

/// Decides whether there are colours from now on. Until it is called, there are none. It reads the
/// environment: `NO_COLOR` counts as set when it is not empty, and `TERM=dumb` is a terminal
/// without colours.
void useColours(Colouring when);

/// What a text tells the reader.
enum class Tone { plain, good, doubtful, bad, faint, heading };

/// Returns the text between the escape sequences of the tone, or the text alone when there are no
/// colours. What a peer sent must be escaped before. Any thread.
[[nodiscard]] std::string toned(std::string_view text, Tone tone);

}  // namespace sorvctl
