#include "sorvctl/Password.h"

#include <fmt/format.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "sorvctl/Failure.h"

namespace sorvctl {

namespace {

/// While it lives, the terminal does not show what is typed. The interrupt key is off meanwhile:
/// ending the process would leave the terminal that way.
class HiddenTyping {
 public:
  HiddenTyping() {
    tcgetattr(STDIN_FILENO, &before_);
    termios hidden = before_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  }
  ~HiddenTyping() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_); }
  HiddenTyping(const HiddenTyping&) = delete;
  HiddenTyping& operator=(const HiddenTyping&) = delete;

 private:
  termios before_{};
};

bool readHiddenLine(const std::string& prompt, std::string& line) {
  fmt::print(stderr, "{}", prompt);
  const HiddenTyping hidden;
  const bool read = static_cast<bool>(std::getline(std::cin, line));
  fmt::print(stderr, "\n");
  return read;
}

}  // namespace

std::string readPassword(const std::string& prompt) {
  std::string line;
  const bool read = isatty(STDIN_FILENO) != 0 ? readHiddenLine(prompt, line)
                                              : static_cast<bool>(std::getline(std::cin, line));
  if (!read) {
    throw Failure(Status::wrongUsage, "no password came from standard input");
  }
  return line;
}

}  // namespace sorvctl
