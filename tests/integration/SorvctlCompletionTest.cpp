// Completion, as somebody sees it who types into a shell.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "integration/Sorvctl.h"
#include "support/ScriptedPeer.h"
#include "support/Terminal.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

constexpr const char* kPrompt = "ready> ";

/// A shell without settings of its user's: how it is started, and the line that gives it the prompt
/// and completion. The prompt does not stand in that line, which the terminal shows, too.
struct Shell {
  const char* name;
  Arguments arguments;
  const char* begin;
};

const Shell kBash{"bash",
                  {"--norc", "--noprofile", "-i"},
                  "bind 'set enable-bracketed-paste off'; bind 'set bell-style none'; "
                  "source <(sorvctl completion bash); PS1='re''ady> '\n"};
const Shell kZsh{"zsh",
                 {"-f", "-i"},
                 "autoload -U compinit; compinit -D -u; unsetopt beep; "
                 "source <(sorvctl completion zsh); PS1='re''ady> '\n"};
const Shell kFish{"fish",
                  {"--no-config", "-i"},
                  "function fish_prompt; echo -n 're''ady> '; end; "
                  "sorvctl completion fish | source\n"};

/// A shell on a terminal.
class ShellSession {
 public:
  ShellSession(const Shell& shell, const std::filesystem::path& home)
      : program_("/usr/bin/env", commandOf(shell), {"", [this, home] { prepare(home); }}) {
    terminal_.type(shell.begin);
    EXPECT_TRUE(shows(kPrompt));
  }
  ~ShellSession() { program_.signal(SIGKILL); }

  /// Types at the prompt. A line of keys that the shell has not read yet must not be lost, so the
  /// prompt is there before.
  void type(const std::string& keys) {
    seen_ = terminal_.text().size();
    terminal_.type(keys);
  }
  /// Waits until what was typed last has led to that text, and to the next prompt.
  [[nodiscard]] bool prints(const std::string& text) { return shows(text) && shows(kPrompt); }

 private:
  static Arguments commandOf(const Shell& shell) {
    Arguments words = shell.arguments;
    words.insert(words.begin(), shell.name);
    return words;
  }

  void prepare(const std::filesystem::path& home) const {
    setenv("HOME", home.c_str(), 1);
    setenv("TERM", "xterm", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("PATH", (builtProgram("").string() + ":" + getenv("PATH")).c_str(), 1);
    unsetenv("HISTFILE");
    if (chdir(home.c_str()) != 0) {
      _exit(126);
    }
    terminal_.use({STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO});
  }

  /// Waits for the text behind what has been seen.
  bool shows(const std::string& text) {
    std::size_t at = std::string::npos;
    const bool shown = waitUntil([&] {
      at = terminal_.text().find(text, seen_);
      return at != std::string::npos;
    });
    EXPECT_TRUE(shown) << "\"" << text
                       << "\" does not stand in: " << terminal_.text().substr(seen_);
    seen_ = shown ? at + text.size() : seen_;
    return shown;
  }

  Terminal terminal_{200};
  Program program_;
  std::size_t seen_ = 0;  // how much of the terminal's text has been looked at
};

class SorvctlCompletion : public Sorvctl, public testing::WithParamInterface<const Shell*> {
 protected:
  [[nodiscard]] std::string port() const { return " --port " + std::to_string(server.basePort()); }

  TemporaryFolder home_;
  ShellSession shell_{*GetParam(), home_.path()};
};

TEST_P(SorvctlCompletion, OfCommandsAndOptionsIsThatOfTheTable) {
  shell_.type("sorvctl conv\tti\t7:05\\ pm --js\t\n");
  EXPECT_TRUE(shell_.prints("{\"text\":\"7:05 pm\",\"result\":\"#19:05\"}"));
}

TEST_P(SorvctlCompletion, OfValuesIsThatOfTheTable) {
  shell_.type("sorvctl --color alw\tconvert hex ff\n");
  EXPECT_TRUE(shell_.prints("255"));
  shell_.type("sorvctl --color=alw\tconvert hex 1ff\n");
  EXPECT_TRUE(shell_.prints("511"));
}

TEST_P(SorvctlCompletion, OfDatabasesAsksTheNameServer) {
  ASSERT_TRUE(server.registers("first"));
  ASSERT_TRUE(server.registers("second", "dbhost2"));
  shell_.type("sorvctl" + port() + " find sec\t\n");
  EXPECT_TRUE(shell_.prints("dbhost2"));
}

// Whoever may register a name must not run commands of those who type.
TEST_P(SorvctlCompletion, QuotesWhatMeansSomethingToTheShell) {
  ASSERT_TRUE(server.registers("my $(touch pwned);`touch pwned`&'x' \"y\" db", "dbhost3"));
  ASSERT_TRUE(server.registers("a:b c", "dbhost4"));
  shell_.type("sorvctl" + port() + " find my\t\n");
  EXPECT_TRUE(shell_.prints("dbhost3"));
  shell_.type("sorvctl" + port() + " find a:\t\n");
  EXPECT_TRUE(shell_.prints("dbhost4"));
  ASSERT_TRUE(server.registers("d@e f", "dbhost5"));
  shell_.type("sorvctl" + port() + " find d@\t\n");
  EXPECT_TRUE(shell_.prints("dbhost5"));
  EXPECT_FALSE(std::filesystem::exists(home_ / "pwned"));
}

TEST_P(SorvctlCompletion, OfOtherArgumentsIsThatOfTheShell) {
  writeFile(home_ / "afile", "");
  ASSERT_TRUE(server.registers("db1"));
  shell_.type("sorvctl" + port() + " exec db1 -- wc -c afi\t\n");
  EXPECT_TRUE(shell_.prints("0 afile"));
}

TEST_P(SorvctlCompletion, WithoutANameServerEndsSoon) {
  ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  shell_.type("sorvctl --port " + std::to_string(silent.port()) + " find db\t");
  ASSERT_TRUE(silent.finishes(1)) << "it gives up by itself";
  shell_.type("\x15sorvctl convert hex ff\n");
  EXPECT_TRUE(shell_.prints("255"));
}

std::string nameOf(const testing::TestParamInfo<const Shell*>& shell) { return shell.param->name; }

INSTANTIATE_TEST_SUITE_P(Shells, SorvctlCompletion, testing::Values(&kBash, &kZsh, &kFish),
                         &nameOf);

using SorvctlCompletionCommand = Sorvctl;

TEST_F(SorvctlCompletionCommand, PrintsTheScriptOfAShell) {
  for (const char* shell : {"bash", "zsh", "fish"}) {
    const Outcome outcome = tool({"completion", shell});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find(std::string("completion ") + shell + " --"), std::string::npos);
    EXPECT_EQ(json({"completion", shell})["text"], outcome.output);
  }
  expectFailure(tool({"completion", "tcsh"}), 2, "bash");
}

TEST_F(SorvctlCompletionCommand, ShowsDescriptionsWhereTheShellDoes) {
  EXPECT_EQ(tool({"completion", "bash", "--", "sorvctl set-st"}).output, "set-state\n");
  EXPECT_EQ(tool({"completion", "zsh", "--", "set-st"}).output,
            "set-state\tSet the state of a database\n");
  EXPECT_EQ(tool({"completion", "fish", "--", "convert", "ti"}).output,
            "time\tA time to its stored form, or back from \"#HH:MM\"\n");
}

TEST_F(SorvctlCompletionCommand, IsSilentWithoutANameServer) {
  const Outcome outcome = run(builtProgram("sorvctl"), {"completion", "zsh", "--", "--port",
                                                        std::to_string(closedPort()), "find", ""});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output + outcome.errors, "");
}

}  // namespace
}  // namespace sorvane::test
