#include "integration/TmuxScreen.h"

#include <unistd.h>

#include <stdexcept>

#include "integration/NetworkNamespace.h"
#include "support/WaitUntil.h"

namespace sorvane::test {

// The server stays in the foreground, so that it ends with this object. The shell waits for a line
// at the end, which nobody types: the screen would go with it. A process that the end of its
// terminal ends while a sanitizer searches it for leaks never ends, so none searches.
TmuxScreen::TmuxScreen(const std::string& script, int columns, int rows)
    : server_(systemProgram("tmux"),
              {"-u", "-D", "-S", (folder_ / "socket").string(), "-f", "/dev/null"}) {
  writeFile(folder_ / "script", "cd '" + folder_.path().string() +
                                    "'\nexport ASAN_OPTIONS=detect_leaks=0\n" + script +
                                    "\nread end\n");
  if (!waitUntil([this] { return access((folder_ / "socket").c_str(), F_OK) == 0; })) {
    throw std::runtime_error("tmux does not start: " + server_.errors());
  }
  tmux({"new-session", "-d", "-x", std::to_string(columns), "-y", std::to_string(rows),
        "sh " + (folder_ / "script").string()});
}

std::string TmuxScreen::tmux(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {"-u", "-S", (folder_ / "socket").string()});
  const Outcome outcome = run(systemProgram("tmux"), std::move(arguments));
  if (outcome.status != 0) {
    throw std::runtime_error("tmux: " + outcome.errors);
  }
  return outcome.output;
}

std::string TmuxScreen::text() const { return tmux({"capture-pane", "-p"}); }
std::string TmuxScreen::attributedText() const { return tmux({"capture-pane", "-p", "-e"}); }

bool TmuxScreen::shows(const std::string& text) const {
  return waitUntil([&] { return this->text().find(text) != std::string::npos; });
}

bool TmuxScreen::comesToLack(const std::string& text) const {
  return waitUntil([&] { return this->text().find(text) == std::string::npos; });
}

void TmuxScreen::press(const std::vector<std::string>& keys) const {
  std::vector<std::string> arguments{"send-keys"};
  arguments.insert(arguments.end(), keys.begin(), keys.end());
  tmux(std::move(arguments));
}

void TmuxScreen::type(const std::string& text) const { tmux({"send-keys", "-l", text}); }

void TmuxScreen::resize(int columns, int rows) const {
  tmux({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)});
}

bool TmuxScreen::isAsShellsWantIt() const {
  return tmux({"display-message", "-p", "#{alternate_on} #{cursor_flag} #{keypad_flag}"}) ==
         "0 1 0\n";
}

}  // namespace sorvane::test
