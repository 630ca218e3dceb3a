// What sorvctl shows on a terminal alone: colours, tables of its width, progress.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "integration/Sorvctl.h"
#include "support/ScriptedPeer.h"
#include "support/Terminal.h"

namespace sorvane::test {
namespace {

/// Runs sorvctl with these descriptors on the terminal, and with these variables.
struct OnTerminal {
  Terminal& terminal;
  std::vector<int> descriptors = {STDOUT_FILENO};
  std::vector<std::pair<const char*, const char*>> variables = {};

  [[nodiscard]] std::unique_ptr<Program> start(Arguments arguments) const {
    return std::make_unique<Program>(
        builtProgram("sorvctl"), std::move(arguments),
        Program::Options{"", [this] {
                           unsetenv("NO_COLOR");
                           setenv("TERM", "xterm", 1);
                           for (const auto& [name, value] : variables) {
                             setenv(name, value, 1);
                           }
                           terminal.use(descriptors);
                         }});
  }
  void run(Arguments arguments) const {
    const auto program = start(std::move(arguments));
    EXPECT_EQ(program->wait(), 0) << program->errors();
  }
};

constexpr const char* kBoldName = "\x1b[1mNAME\x1b[0m";

class SorvctlColours : public Sorvctl {};

TEST_F(SorvctlColours, AreOnATerminalAlone) {
  Terminal terminal;
  OnTerminal{terminal}.run(toServer({"list"}));
  EXPECT_TRUE(terminal.shows(kBoldName));
  EXPECT_EQ(tool({"list"}).output.rfind("NAME  ", 0), 0U);
}

TEST_F(SorvctlColours, AreWantedAlwaysOrNever) {
  EXPECT_EQ(tool({"list", "--color", "always"}).output.rfind(kBoldName, 0), 0U);
  EXPECT_EQ(tool({"--color=always", "--json", "list"}).output, "[]\n");
  Terminal terminal;
  OnTerminal{terminal}.run(toServer({"--color", "never", "list"}));
  EXPECT_TRUE(terminal.shows("NAME  "));
  expectFailure(tool({"list", "--color", "sometimes"}), 2, "auto");
}

TEST_F(SorvctlColours, AreOffWithTheVariableUnlessWantedAlways) {
  Terminal plain;
  OnTerminal{plain, {STDOUT_FILENO}, {{"NO_COLOR", "1"}}}.run(toServer({"list"}));
  EXPECT_TRUE(plain.shows("NAME  "));
  Terminal dumb;
  OnTerminal{dumb, {STDOUT_FILENO}, {{"TERM", "dumb"}}}.run(toServer({"list"}));
  EXPECT_TRUE(dumb.shows("NAME  "));
  Terminal coloured;
  OnTerminal{coloured, {STDOUT_FILENO}, {{"NO_COLOR", "1"}}}.run(
      toServer({"list", "--color", "always"}));
  EXPECT_TRUE(coloured.shows(kBoldName));
  Terminal empty;
  OnTerminal{empty, {STDOUT_FILENO}, {{"NO_COLOR", ""}}}.run(toServer({"list"}));
  EXPECT_TRUE(empty.shows(kBoldName));
}

class SorvctlTable : public Sorvctl {};

TEST_F(SorvctlTable, FitsTheTerminalAndIsWholeElsewhere) {
  const std::string name = "数据库-" + std::string(100, 'n');
  ASSERT_TRUE(server.registers(name, std::string(100, 'h')));
  Terminal terminal(90);
  OnTerminal{terminal}.run(toServer({"--color", "never", "list"}));
  ASSERT_TRUE(terminal.shows("running"));
  EXPECT_TRUE(terminal.shows("数据库-nn"));
  EXPECT_TRUE(terminal.shows("…"));
  std::istringstream lines(terminal.text());
  for (std::string line; std::getline(lines, line);) {
    // Each of the wide characters has three bytes and two columns, and the sign of a cut three
    // bytes and one column.
    EXPECT_LE(line.size(), 90U + 3 + 2 * 2 + 1) << line;
  }
  EXPECT_NE(tool({"list"}).output.find(name), std::string::npos);
}

/// A name server that accepts connections and says nothing.
class SorvctlProgress : public testing::Test {
 protected:
  SorvctlProgress() : silent_([](PeerConnection& client) { client.waitForClose(); }) {}
  [[nodiscard]] Arguments ping(const char* seconds) const {
    return {"--port", std::to_string(silent_.port()), "--timeout", seconds, "ping"};
  }
  ScriptedPeer silent_;
};

constexpr const char* kWaiting = "waiting for the name server of localhost (1 s)";

TEST_F(SorvctlProgress, IsToldOnATerminalAfterASecondAndTakenAway) {
  Terminal terminal;
  const auto program = OnTerminal{terminal, {STDERR_FILENO}}.start(ping("3"));
  EXPECT_TRUE(terminal.shows(kWaiting));
  EXPECT_EQ(program->wait(), 3);
  EXPECT_TRUE(terminal.shows("\r\x1b[Ksorvctl: "));
  EXPECT_EQ(program->output(), "");
}

TEST_F(SorvctlProgress, OfManyServersIsOneLine) {
  Terminal terminal;
  const std::string port = std::to_string(silent_.port());
  const auto program = OnTerminal{terminal, {STDERR_FILENO}}.start(
      {"net", "--hosts", "localhost:" + port + ",127.0.0.1:" + port, "--timeout", "3"});
  EXPECT_TRUE(terminal.shows("waiting for the name servers (1 s)")) << terminal.text();
  EXPECT_EQ(program->wait(), 3);
}

TEST_F(SorvctlProgress, IsCutToTheTerminal) {
  Terminal narrow(20);
  const auto program = OnTerminal{narrow, {STDERR_FILENO}}.start(ping("3"));
  EXPECT_TRUE(narrow.shows("waiting for the na…"));
  EXPECT_EQ(program->wait(), 3);
}

TEST_F(SorvctlProgress, IsNotToldElsewhere) {
  Terminal terminal;
  const auto program = OnTerminal{terminal, {STDOUT_FILENO}}.start(ping("1.5"));
  EXPECT_EQ(program->wait(), 3);
  EXPECT_EQ(program->errors().rfind("sorvctl: ", 0), 0U) << program->errors();
  EXPECT_EQ(program->errors().find("waiting"), std::string::npos) << program->errors();
  EXPECT_EQ(terminal.text(), "");
}

}  // namespace
}  // namespace sorvane::test
