// "sorvctl top" in a real terminal.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "integration/Client.h"
#include "integration/Daemon.h"
#include "integration/TmuxScreen.h"
#include "support/ScriptedPeer.h"
#include "support/TestedBuild.h"
#include "support/WaitUntil.h"

namespace sorvane::test {
namespace {

std::string command(int port) {
  return builtProgram("sorvctl").string() + " --port " + std::to_string(port) +
         " top --interval 0.05";
}

/// A script that runs a command, with the state of the terminal before and after it in files. The
/// interrupt key must not end the script itself.
std::string between(const std::string& command) {
  return "trap : INT\nulimit -c 0\nstty -g >before\n" + command +
         "\necho $? >status\nstty -g >after\necho the end";
}

class SorvctlTop : public testing::Test {
 protected:
  SorvctlTop() { server.start(); }

  [[nodiscard]] std::unique_ptr<TmuxScreen> top() const {
    return std::make_unique<TmuxScreen>(between(command(server.basePort())), 80, 24);
  }
  /// The terminal is as it was before the command, whose status was this.
  static void expectPutBack(const TmuxScreen& screen, const std::string& status) {
    ASSERT_TRUE(screen.shows("the end")) << screen.text();
    EXPECT_EQ(readFile(screen.file("status")), status + "\n");
    EXPECT_EQ(readFile(screen.file("before")), readFile(screen.file("after")));
    EXPECT_TRUE(screen.isAsShellsWantIt());
    EXPECT_EQ(screen.text().find("sorvctl top:"), std::string::npos) << screen.text();
  }
  /// A shell may be late to take note of the end of its job: a zombie has ended.
  static bool endsSoon(pid_t process) {
    return waitUntil([process] {
      std::ifstream file("/proc/" + std::to_string(process) + "/stat");
      std::string line;
      std::getline(file, line);
      return line.empty() || line.find(") Z ") != std::string::npos;
    });
  }
  /// The number of the process that runs the command of this server.
  [[nodiscard]] pid_t process() const {
    pid_t found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      const std::string name = entry.path().filename();
      std::ifstream file(entry.path() / "cmdline");
      std::string line;
      std::getline(file, line);  // the process may have gone meanwhile
      if (line.starts_with(builtProgram("sorvctl").string()) &&
          line.find(std::to_string(server.basePort())) != std::string::npos) {
        found = std::stoi(name);
      }
    }
    EXPECT_NE(found, 0);
    return found;
  }

  Daemon server;
};

TEST_F(SorvctlTop, ShowsTheDatabasesAndWhatChanges) {
  ASSERT_TRUE(server.registers("db1"));
  ASSERT_TRUE(server.registers("db2"));
  const auto screen = top();
  ASSERT_TRUE(screen->shows("2 databases, 0 alerts")) << screen->text();
  EXPECT_NE(screen->text().find("NAME                STATE       ALERT                   AGE  "
                                "LAST CHANGE\n"
                                "db1                 running "),
            std::string::npos)
      << screen->text();
  Client tool(server);
  tool.acts("setDatabaseState", {{"databaseName", "db2"}, {"state", "stopping"}});
  EXPECT_TRUE(screen->shows("state: running -> …")) << screen->text();
  tool.acts("setAlertState", {{"databaseName", "db1"}, {"state", "disk full"}});
  EXPECT_TRUE(screen->shows("alert: (none) -> d…")) << screen->text();
  EXPECT_TRUE(screen->shows("2 databases, 1 alert"));
  ASSERT_TRUE(server.registers("db3"));
  EXPECT_TRUE(screen->shows("  came")) << screen->text();
  server.unregisters("db3");
  EXPECT_TRUE(screen->shows("db3                 gone ")) << screen->text();
  screen->press({"q"});
  expectPutBack(*screen, "0");
}

TEST_F(SorvctlTop, ObeysItsKeys) {
  ASSERT_TRUE(server.registers("alpha"));
  ASSERT_TRUE(server.registers("beta"));
  const auto screen = top();
  ASSERT_TRUE(screen->shows("beta ")) << screen->text();
  screen->press({"s"});
  EXPECT_TRUE(screen->shows("by state"));
  screen->press({"r"});
  EXPECT_TRUE(screen->shows("by state, reversed"));
  screen->press({"/"});
  EXPECT_TRUE(screen->shows("show rows with:"));
  screen->type("BETB");
  screen->press({"BSpace"});
  screen->type("A");
  EXPECT_TRUE(screen->comesToLack("alpha")) << screen->text();
  EXPECT_TRUE(screen->shows("1 with \"BETA\"")) << screen->text();
  screen->press({"Enter", "Escape"});
  EXPECT_TRUE(screen->shows("alpha"));
  screen->press({"Down", "Enter"});
  EXPECT_TRUE(screen->shows("name     beta")) << screen->text();
  screen->press({"Escape"});
  EXPECT_TRUE(screen->shows("NAME"));
  screen->press({"?"});
  EXPECT_TRUE(screen->shows("q       quit")) << screen->text();
  screen->press({"Escape"});
  EXPECT_TRUE(screen->comesToLack("q       quit"));
  screen->press({"q"});
  expectPutBack(*screen, "0");
}

TEST_F(SorvctlTop, FollowsTheSizeOfTheTerminal) {
  for (int index = 0; index < 30; ++index) {
    ASSERT_TRUE(server.registers("db" + std::to_string(100 + index)));
  }
  const auto screen = top();
  ASSERT_TRUE(screen->shows("db119 ")) << screen->text();
  EXPECT_EQ(screen->text().find("db120"), std::string::npos) << "there is no room";
  screen->resize(40, 10);
  EXPECT_TRUE(screen->comesToLack("ALERT")) << screen->text();
  EXPECT_TRUE(screen->shows("db105 ")) << screen->text();
  EXPECT_EQ(screen->text().find("db106"), std::string::npos);
  screen->resize(300, 50);
  EXPECT_TRUE(screen->shows("TYPE")) << screen->text();
  EXPECT_TRUE(screen->shows("db129 ")) << screen->text();
  screen->resize(20, 2);
  EXPECT_TRUE(screen->comesToLack("NAME"));
  screen->resize(80, 24);
  EXPECT_TRUE(screen->shows("db119 ")) << screen->text();
  screen->press({"q"});
  expectPutBack(*screen, "0");
}

TEST_F(SorvctlTop, ShowsNamesOfAnyWidthAndEscapesControlCharacters) {
  ASSERT_TRUE(server.registers("日本語"));
  ASSERT_TRUE(server.registers("e\u0301te\u0301"));
  ASSERT_TRUE(server.registers("\x1b[2Jred\n"));
  const auto screen = top();
  ASSERT_TRUE(screen->shows("3 databases")) << screen->text();
  for (const char* line : {"日本語              running", "e\u0301te\u0301                 running",
                           "\\x1b[2Jred\\n        running"}) {
    EXPECT_TRUE(screen->shows(line)) << screen->text();
  }
}

TEST_F(SorvctlTop, PutsTheTerminalBackWhenASignalEndsIt) {
  ASSERT_TRUE(server.registers("db1"));
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
    const auto screen = top();
    ASSERT_TRUE(screen->shows("db1 ")) << screen->text();
    EXPECT_FALSE(screen->isAsShellsWantIt());
    ::kill(process(), number);
    expectPutBack(*screen, "0");
  }
  const auto screen = top();
  ASSERT_TRUE(screen->shows("db1 "));
  screen->press({"C-c"});
  expectPutBack(*screen, "0");
}

TEST_F(SorvctlTop, PutsTheTerminalBackWhileItIsStopped) {
  ASSERT_TRUE(server.registers("db1"));
  const TmuxScreen screen("PS1='ready> ' exec bash --norc -i", 80, 24);
  ASSERT_TRUE(screen.shows("ready>"));
  screen.type("stty -g >before; " + command(server.basePort()) + "\n");
  ASSERT_TRUE(screen.shows("1 database,")) << screen.text();
  screen.press({"C-z"});
  ASSERT_TRUE(screen.shows("Stopped")) << screen.text();
  EXPECT_TRUE(screen.isAsShellsWantIt());
  screen.type("clear; stty -g >after; echo status $?\n");
  ASSERT_TRUE(screen.shows("status 0")) << screen.text();
  EXPECT_EQ(readFile(screen.file("before")), readFile(screen.file("after")));
  screen.resize(40, 12);
  screen.type("fg\n");
  ASSERT_TRUE(screen.shows("NAME                 STATE           AGE")) << screen.text();
  // Stopped from elsewhere, and woken only to be ended.
  const pid_t stopped = process();
  ::kill(stopped, SIGTSTP);
  ASSERT_TRUE(screen.shows("Stopped")) << screen.text();
  screen.type("clear; kill %%\n");
  EXPECT_TRUE(endsSoon(stopped)) << screen.text();
  EXPECT_TRUE(screen.isAsShellsWantIt());
  screen.type("clear; stty -g >after; echo status $?\n");
  ASSERT_TRUE(screen.shows("status 0")) << screen.text();
  EXPECT_EQ(readFile(screen.file("before")), readFile(screen.file("after")));
}

// Its thread that asks the server must not be the one that takes the signals.
TEST_F(SorvctlTop, EndsEachTimeItIsWokenToEnd) {
  const TmuxScreen screen("PS1='ready> ' exec bash --norc -i", 80, 24);
  ASSERT_TRUE(screen.shows("ready>"));
  for (int round = 0; round < 20; ++round) {
    screen.type("clear; " + command(server.basePort()) + "\n");
    ASSERT_TRUE(screen.shows("0 databases")) << screen.text();
    const pid_t stopped = process();
    screen.press({"C-z"});
    ASSERT_TRUE(screen.shows("Stopped")) << screen.text();
    screen.type("clear; kill %%\n");
    ASSERT_TRUE(endsSoon(stopped)) << "round " << round << '\n' << screen.text();
  }
}

TEST_F(SorvctlTop, LeavesTheTerminalAloneInTheBackground) {
  const TmuxScreen screen("PS1='ready> ' exec bash --norc -i", 80, 24);
  ASSERT_TRUE(screen.shows("ready>"));
  screen.type("clear; " + command(server.basePort()) + "\n");
  ASSERT_TRUE(screen.shows("0 databases")) << screen.text();
  const pid_t stopped = process();
  for (const int signal : {SIGTSTP, SIGSTOP}) {
    ::kill(stopped, signal);
    ASSERT_TRUE(screen.shows("Stopped")) << screen.text();
    screen.type("clear; bg; jobs\n");
    ASSERT_TRUE(screen.shows("Running")) << screen.text();
    screen.type("clear; jobs; stty -a\n");
    ASSERT_TRUE(screen.shows(" icanon ")) << screen.text();
    EXPECT_NE(screen.text().find("Running"), std::string::npos) << screen.text();
    screen.type("clear; fg\n");
    ASSERT_TRUE(screen.shows("0 databases")) << screen.text();
  }
  ::kill(stopped, SIGSTOP);
  ASSERT_TRUE(screen.shows("Stopped")) << screen.text();
  screen.type("clear; kill %%\n");
  EXPECT_TRUE(endsSoon(stopped)) << screen.text();
  EXPECT_TRUE(screen.isAsShellsWantIt());
}

TEST_F(SorvctlTop, IsInTheForegroundAgainHoweverSoonAfterTheBackground) {
  const TmuxScreen screen("PS1='ready> ' exec bash --norc -i", 80, 24);
  ASSERT_TRUE(screen.shows("ready>"));
  screen.type("clear; " + command(server.basePort()) + "\n");
  ASSERT_TRUE(screen.shows("0 databases")) << screen.text();
  const pid_t stopped = process();
  for (int round = 0; round < 30; ++round) {
    ::kill(stopped, SIGSTOP);
    ASSERT_TRUE(screen.shows("Stopped")) << screen.text();
    screen.type("clear; bg; fg\n");
    ASSERT_TRUE(screen.shows("0 databases")) << round << ": " << screen.text();
  }
}

TEST_F(SorvctlTop, DrawsAnewAfterAStopThatNobodyCanHandle) {
  ASSERT_TRUE(server.registers("db1"));
  const TmuxScreen screen("PS1='ready> ' exec bash --norc -i", 80, 24);
  ASSERT_TRUE(screen.shows("ready>"));
  screen.type(command(server.basePort()) + "\n");
  ASSERT_TRUE(screen.shows("1 database,")) << screen.text();
  ::kill(process(), SIGSTOP);
  ASSERT_TRUE(screen.shows("Stopped")) << screen.text();
  screen.type("clear; fg\n");
  ASSERT_TRUE(screen.shows("1 database,")) << screen.text();
  screen.press({"q"});
  ASSERT_TRUE(screen.comesToLack("1 database,"));
  EXPECT_TRUE(screen.isAsShellsWantIt());
}

TEST_F(SorvctlTop, ShowsThatTheServerIsGoneAndConnectsAgain) {
  ASSERT_TRUE(server.registers("db1"));
  const auto screen = top();
  ASSERT_TRUE(screen->shows("db1 ")) << screen->text();
  server.kill();
  EXPECT_TRUE(screen->shows("not reached for ")) << screen->text();
  EXPECT_TRUE(screen->shows("db1 ")) << "what was known stays";
  server.start();
  EXPECT_TRUE(screen->shows("by name")) << screen->text();
  EXPECT_TRUE(screen->shows("0 databases,")) << screen->text();
  EXPECT_TRUE(screen->shows(" gone ")) << screen->text();
  screen->press({"q"});
  expectPutBack(*screen, "0");
}

TEST_F(SorvctlTop, ShowsStatesAndAlertsInColoursUnlessNoneAreWanted) {
  ASSERT_TRUE(server.registers("db1"));
  ASSERT_TRUE(server.registers("db2"));
  Client tool(server);
  ASSERT_EQ(tool.resultOf("setDatabaseState", {{"databaseName", "db1"}, {"state", "stopping"}}),
            "success");
  ASSERT_EQ(tool.resultOf("setAlertState", {{"databaseName", "db2"}, {"state", "disk full"}}),
            "success");
  const struct {
    const char* before;
    const char* option;
    bool coloured;
  } cases[] = {{"unset NO_COLOR; TERM=screen-256color ", "", true},
               {"TERM=screen-256color NO_COLOR=1 ", "", false},
               {"TERM=screen-256color NO_COLOR=1 ", " --color always", true},
               {"unset NO_COLOR; TERM=screen-256color ", " --color never", false}};
  for (const auto& each : cases) {
    const TmuxScreen screen(between(each.before + command(server.basePort()) + each.option), 80,
                            24);
    ASSERT_TRUE(screen.shows("disk full")) << screen.text();
    const std::string text = screen.attributedText();
    for (const char* part : {"\x1b[33mstopping", "\x1b[32mrunning", "\x1b[31mdisk full"}) {
      EXPECT_EQ(text.find(part) != std::string::npos, each.coloured)
          << each.before << each.option << ": " << part << " in " << text;
    }
  }
}

TEST(SorvctlTopWithASilentServer, EndsAtOnce) {
  ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  const TmuxScreen screen(between(command(silent.port())), 80, 24);
  ASSERT_TRUE(screen.shows("asking")) << screen.text();
  screen.press({"q"});
  ASSERT_TRUE(screen.shows("the end")) << screen.text();
  EXPECT_EQ(readFile(screen.file("status")), "0\n");
  EXPECT_TRUE(screen.isAsShellsWantIt());
}

TEST(SorvctlTopWithoutATerminal, IsWrongUsage) {
  // It does not wait for the server before it says so.
  const ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  const std::string port = std::to_string(silent.port());
  const Outcome outcome =
      run(builtProgram("sorvctl"), {"--port", port, "--timeout", "86400", "top"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.errors, "sorvctl: this command needs a terminal\n");
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(run(builtProgram("sorvctl"), {"top", "--json"}).status, 2);
  const TmuxScreen screen(between("TERM=nonsense " + builtProgram("sorvctl").string() + " --port " +
                                  port + " --timeout 86400 top"),
                          80, 24);
  ASSERT_TRUE(screen.shows("the end")) << screen.text();
  EXPECT_EQ(readFile(screen.file("status")), "2\n");
  EXPECT_NE(screen.text().find("unknown kind"), std::string::npos) << screen.text();
}

TEST(ScreenOfTop, IsPutBackWhenAnExceptionEndsTheProcess) {
  const TmuxScreen screen(
      between((testedBuild() / "tests/programs/screen_that_throws").string() + " 2>errors"), 80,
      24);
  ASSERT_TRUE(screen.shows("the end")) << screen.text();
  EXPECT_NE(readFile(screen.file("errors")).find("thrown on purpose"), std::string::npos);
  EXPECT_EQ(readFile(screen.file("status")), std::to_string(128 + SIGABRT) + "\n");
  EXPECT_EQ(readFile(screen.file("before")), readFile(screen.file("after")));
  EXPECT_TRUE(screen.isAsShellsWantIt());
}

}  // namespace
}  // namespace sorvane::test
