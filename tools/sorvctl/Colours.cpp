#include "sorvctl/Colours.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace sorvctl {

namespace {

std::atomic<bool> coloursAreOn = false;

std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

bool terminalHasColours() {
  return isatty(STDOUT_FILENO) != 0 && variable("NO_COLOR").empty() && variable("TERM") != "dumb";
}

/// The parameter of "select graphic rendition" of ECMA-48; null for none.
const char* rendition(Tone tone) {
  switch (tone) {
    case Tone::good:
      return "32";
    case Tone::doubtful:
      return "33";
    case Tone::bad:
      return "31";
    case Tone::faint:
      return "2";
    case Tone::heading:
      return "1";
    case Tone::plain:
      break;
  }
  return nullptr;
}

}  // namespace

void useColours(Colouring when) {
  coloursAreOn =
      when == Colouring::always || (when == Colouring::automatic && terminalHasColours());
}

std::string toned(std::string_view text, Tone tone) {
  const char* const parameter = rendition(tone);
  if (!coloursAreOn || parameter == nullptr || text.empty()) {
    return std::string(text);
  }
  return std::string("\x1b[") + parameter + "m" + std::string(text) + "\x1b[0m";
}

}  // namespace sorvctl
