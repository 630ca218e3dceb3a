#include <string>
#include <vector>

#include "integration/Sorvctl.h"
#include "support/Program.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

Outcome tool(int port, Arguments arguments) {
  arguments.insert(arguments.begin(), {"--port", std::to_string(port)});
  return run(builtProgram("sorvctl"), arguments);
}

/// A server whose every reply is this frame.
ScriptedPeer::Script always(std::string reply) {
  return [reply = std::move(reply)](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(reply);
    }
  };
}

TEST(SorvctlUsage, ThatMakesNoSenseIsStatusTwo) {
  for (const Arguments& arguments :
       {Arguments{}, Arguments{"bogus"}, Arguments{"prefs"}, Arguments{"prefs", "bogus"},
        Arguments{"find"}, Arguments{"find", "a", "b"}, Arguments{"--port", "1", "ping"},
        Arguments{"--port", "65535", "ping"}, Arguments{"--port", "x", "ping"},
        Arguments{"--timeout", "0", "ping"}, Arguments{"ping", "--bogus"},
        Arguments{"watch", "--interval", "-1"}, Arguments{"set-state", "db1"},
        Arguments{"convert", "hex", "xyz"}, Arguments{"convert", "integer", "1.5"},
        Arguments{"convert", "integer", "9223372036854775808"},
        Arguments{"convert", "money", "none"}, Arguments{"convert", "date", ""}}) {
    const Outcome outcome = run(builtProgram("sorvctl"), arguments);
    expectFailure(outcome, 2, "");
    EXPECT_EQ(outcome.output, "");
  }
}

TEST(SorvctlWithoutAServer, IsStatusThree) {
  expectFailure(tool(closedPort(), {"ping"}), 3, "Connection refused");
  expectFailure(tool(closedPort(), {"list", "--json"}), 3, "Connection refused");
  expectFailure(tool(closedPort(), {"terminate"}), 3, "Connection refused");
}

TEST(SorvctlWithASilentServer, GivesUpAtTheTimeout) {
  ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  expectFailure(tool(silent.port(), {"--timeout", "0.1", "ping"}), 3, "no answer in time");
  expectFailure(tool(silent.port(), {"terminate", "--timeout", "0.1"}), 3, "no answer in time");
}

TEST(SorvctlWithAForeignServer, SaysSo) {
  ScriptedPeer foreign([](PeerConnection& client) {
    client.send("220 mail.example.test ESMTP\r\n");
    client.waitForClose();
  });
  expectFailure(tool(foreign.port(), {"ping"}), 3, "malformed reply");
}

TEST(SorvctlWithARefusingServer, IsStatusOne) {
  ScriptedPeer refusing(always(nilFrame()));
  for (const Arguments& arguments :
       {Arguments{"ping"}, Arguments{"find", "db1"}, Arguments{"list"}, Arguments{"register", "a"},
        Arguments{"send", "a=b"}, Arguments{"watch"}, Arguments{"host-info"},
        Arguments{"terminate"}, Arguments{"prefs", "get", "a"}}) {
    expectFailure(tool(refusing.port(), arguments), 1, "");
  }
}

TEST(SorvctlWithAServerThatAnswersFailed, ShowsTheAnswer) {
  ScriptedPeer failing(always(frameOfTexts({{"result", "failed\nbadly"}})));
  expectFailure(tool(failing.port(), {"set-state", "db1", "x"}), 1, "\"failed\\nbadly\"");
  expectFailure(tool(failing.port(), {"refresh"}), 1, "failed");
  expectFailure(tool(failing.port(), {"ping"}), 1, "no name server");
}

TEST(SorvctlHostInfo, OfALocalOnlyHostFails) {
  ScriptedPeer local(always(frameOfTexts({{"result", "local only"}})));
  expectFailure(tool(local.port(), {"host-info"}), 1, "on that host only");
}

TEST(SorvctlHostInfo, GivesASeparatorTooManyToTheName) {
  ScriptedPeer odd(always(frameOfTexts({{"result", "a|b|e|1.2.3.4|v|p"}})));
  EXPECT_EQ(tool(odd.port(), {"host-info"}).output,
            "name             a|b\nethernetAddress  e\naddress          1.2.3.4\n"
            "version          v\nplatform         p\n");
}

TEST(SorvctlHosts, AreShownAsHostAndAddress) {
  ScriptedPeer hosts(always(frameOfTexts({{"result", "localhost@127.0.0.1|odd@name@10.0.0.1|x"}})));
  EXPECT_EQ(tool(hosts.port(), {"hosts"}).output,
            "HOST       ADDRESS\nlocalhost  127.0.0.1\nodd@name   10.0.0.1\nx\n");
}

TEST(SorvctlList, ShowsWhatCameWhenNothingInItIsRegistered) {
  ScriptedPeer odd([](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(request->find("databaseStates") != std::string::npos
                      ? frameOfTexts({{"result", "||a::b|:|c|\xFF:x"}, {"alerts", "q|r:s"}})
                      : frameOfTexts({{"notFound", "notFound"}}));
    }
  });
  const Outcome outcome = tool(odd.port(), {"list"});
  EXPECT_EQ(outcome.status, 1) << "a list that is not UTF-8 is no list";
  const Outcome json = tool(odd.port(), {"list", "--json"});
  EXPECT_EQ(json.status, 1);
}

TEST(SorvctlSend, ShowsBytesThatAreNoText) {
  ScriptedPeer bytes(always(
      frameOfBody(entry("a", std::string("\0\1", 2)) + entry("b", "no NUL") + entry("c", ""))));
  EXPECT_EQ(tool(bytes.port(), {"send"}).output, "a  <0001>\nb  <6e6f204e554c>\nc  <>\n");
  EXPECT_EQ(
      tool(bytes.port(), {"--json", "send"}).output,
      "{\"a\":{\"data\":\"0001\"},\"b\":{\"data\":\"6e6f204e554c\"},\"c\":{\"data\":\"\"}}\n");
}

TEST(SorvctlConvert, WorksBothWaysWithoutAServer) {
  const struct {
    Arguments arguments;
    const char* result;
  } rows[] = {
      {{"date", "@2004-05-06"}, "May 6, 2004"},
      {{"date", "May 6, 2004"}, "@2004-05-06"},
      {{"time", "#19:05"}, "7:05 pm"},
      {{"time", "7:05 pm"}, "#19:05"},
      {{"money", "$1,234.56"}, "123456"},
      {{"money", "-1,234.5"}, "-123450"},
      {{"money", "--from-stored", "-123456"}, "$-1,234.56"},
      {{"integer", "-1,234,567"}, "-1234567"},
      {{"integer", "-1234567", "--from-stored"}, "-1,234,567"},
      {{"hex", "0xFF"}, "255"},
      {{"hex", "--", "-ff"}, "-255"},
      {{"hex", "--from-stored", "255"}, "ff"},
  };
  for (const auto& row : rows) {
    Arguments arguments = row.arguments;
    arguments.insert(arguments.begin(), "convert");
    const Outcome outcome = run(builtProgram("sorvctl"), arguments);
    EXPECT_EQ(outcome.output, std::string(row.result) + "\n") << row.arguments[0] << outcome.errors;
    EXPECT_EQ(outcome.status, 0);
  }
}

/// sorvctl in a tree of its own, for what it reads from files.
class SorvctlTree : public testing::Test {
 protected:
  SorvctlTree() {
    std::filesystem::create_directory(tree_ / "bin");
    std::filesystem::copy_file(builtProgram("sorvctl"), program());
  }
  [[nodiscard]] std::filesystem::path program() const { return tree_ / "bin/sorvctl"; }

  TemporaryFolder tree_;
};

TEST_F(SorvctlTree, DamagedSettingsAreNoSuccess) {
  writeFile(tree_ / "etc/sorvane.conf", "BasePort = 1;\n");
  expectFailure(run(program(), {"ping"}), 3, "sorvane.conf:1: BasePort");
}

TEST_F(SorvctlTree, DefaultsOfThisHostAreThoseOfItsFile) {
  writeFile(tree_ / "Config/SorvDefaults", "{ Date = 3; \"a b\" = \"line\\nbreak\"; list = (1); }");
  EXPECT_EQ(run(program(), {"defaults", "get", "Date"}).output, "3\n");
  EXPECT_EQ(run(program(), {"defaults", "list"}).output, "Date  3\na b   line\\nbreak\n");
  EXPECT_EQ(run(program(), {"--json", "defaults", "list"}).output,
            "{\"Date\":\"3\",\"a b\":\"line\\nbreak\"}\n");
  expectFailure(run(program(), {"defaults", "get", "Time"}), 1, "\"Time\"");
}

TEST_F(SorvctlTree, DefaultsAreChangedThroughTheLauncherWithAPasswordFromStandardInput) {
  writeFile(tree_ / "Config/SorvDefaults", "{ Date = 3; }");
  std::string received;
  ScriptedPeer launcher([&](PeerConnection& client) {
    received = client.receiveRequest().value_or("");
    client.send(frameOfTexts({{"result", "SUCCEED"}}));
  });
  const std::string port = std::to_string(launcher.port() + 1);
  const Outcome outcome =
      run(program(), {"--port", port, "defaults", "set", "Time", "1"}, "secret word\nmore\n");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_TRUE(launcher.finishes(1));
  EXPECT_NE(received.find("Time = 1;"), std::string::npos) << received;
  EXPECT_NE(received.find("Date = 3;"), std::string::npos) << received;
  EXPECT_NE(received.find(entry("parameter", std::string("secret word\0", 12))), std::string::npos);
}

TEST_F(SorvctlTree, DefaultsThatCannotBeReadAreNeverWrittenBack) {
  const std::string port = std::to_string(closedPort());
  expectFailure(
      run(program(), {"--port", port, "defaults", "set", "--of", "127.0.0.1", "a", "b"}, "x\n"), 3,
      "cannot be reached");
}

TEST_F(SorvctlTree, DefaultsOfASilentLauncherAreGivenUpAtTheTimeoutAndNeverWrittenBack) {
  std::atomic<int> asked = 0;
  ScriptedPeer launcher([&](PeerConnection& client) {
    asked += client.receiveRequest().has_value() ? 1 : 0;
    client.waitForClose();
  });
  const std::string port = std::to_string(launcher.port() + 1);
  for (const Arguments& command :
       {Arguments{"get", "a"}, Arguments{"list"}, Arguments{"set", "a", "b"}}) {
    Arguments arguments = {"--port", port, "--timeout", "0.1", "defaults"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    arguments.insert(arguments.end(), {"--of", "127.0.0.1"});
    expectFailure(run(program(), arguments, "password\n"), 3, "does not answer");
  }
  EXPECT_EQ(asked, 3) << "nothing was sent after what was not answered";
}

TEST_F(SorvctlTree, DefaultsAreNotChangedWithoutAPassword) {
  expectFailure(run(program(), {"defaults", "set", "a", "b"}), 2, "no password");
}

}  // namespace
}  // namespace sorvane::test
