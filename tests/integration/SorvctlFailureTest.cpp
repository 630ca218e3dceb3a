#include <string>
#include <vector>

#include "support/Program.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using Words = std::vector<std::string>;

Outcome tool(int port, Words words) {
  words.insert(words.begin(), {"--port", std::to_string(port)});
  return run(builtProgram("sorvctl"), words);
}

/// A server whose every reply is this frame.
ScriptedPeer::Script always(std::string reply) {
  return [reply = std::move(reply)](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(reply);
    }
  };
}

void expectFailure(const Outcome& outcome, int status, const std::string& text) {
  EXPECT_EQ(outcome.status, status) << outcome.errors;
  EXPECT_EQ(outcome.errors.find("sorvctl: "), 0U) << outcome.errors;
  EXPECT_NE(outcome.errors.find(text), std::string::npos) << outcome.errors;
  EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
}

TEST(SorvctlUsage, ThatMakesNoSenseIsStatusTwo) {
  for (const Words& words :
       {Words{}, Words{"bogus"}, Words{"prefs"}, Words{"prefs", "bogus"}, Words{"find"},
        Words{"find", "a", "b"}, Words{"--port", "1", "ping"}, Words{"--port", "65535", "ping"},
        Words{"--port", "x", "ping"}, Words{"--timeout", "0", "ping"}, Words{"ping", "--bogus"},
        Words{"watch", "--interval", "-1"}, Words{"set-state", "db1"},
        Words{"convert", "hex", "xyz"}, Words{"convert", "integer", "1.5"},
        Words{"convert", "integer", "9223372036854775808"}, Words{"convert", "money", "none"},
        Words{"convert", "date", ""}}) {
    const Outcome outcome = run(builtProgram("sorvctl"), words);
    expectFailure(outcome, 2, "");
    EXPECT_EQ(outcome.output, "");
  }
}

TEST(SorvctlHelp, OfEachWordHasAnExample) {
  const std::string all = run(builtProgram("sorvctl"), {"--help"}).output;
  for (const Words& words : {Words{"ping"},
                             Words{"find"},
                             Words{"register"},
                             Words{"send"},
                             Words{"list"},
                             Words{"states"},
                             Words{"alerts"},
                             Words{"set-state"},
                             Words{"set-alert"},
                             Words{"watch"},
                             Words{"refresh"},
                             Words{"host-info"},
                             Words{"hosts"},
                             Words{"terminate"},
                             Words{"restart"},
                             Words{"prefs", "get"},
                             Words{"prefs", "set"},
                             Words{"prefs", "key"},
                             Words{"prefs", "key", "set"},
                             Words{"defaults", "get"},
                             Words{"defaults", "set"},
                             Words{"defaults", "list"},
                             Words{"convert", "date"},
                             Words{"convert", "time"},
                             Words{"convert", "money"},
                             Words{"convert", "integer"},
                             Words{"convert", "hex"},
                             Words{"convert", "instant"}}) {
    EXPECT_NE(all.find("  " + words.front()), std::string::npos) << words.front();
    Words asking = words;
    asking.emplace_back("--help");
    const Outcome outcome = run(builtProgram("sorvctl"), asking);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.output.find("Example: sorvctl"), std::string::npos) << words.back();
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
  for (const Words& words : {Words{"ping"}, Words{"find", "db1"}, Words{"list"},
                             Words{"register", "a"}, Words{"send", "a=b"}, Words{"watch"},
                             Words{"host-info"}, Words{"terminate"}, Words{"prefs", "get", "a"}}) {
    expectFailure(tool(refusing.port(), words), 1, "");
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
    Words words;
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
    Words words = row.words;
    words.insert(words.begin(), "convert");
    const Outcome outcome = run(builtProgram("sorvctl"), words);
    EXPECT_EQ(outcome.output, std::string(row.result) + "\n") << row.words[0] << outcome.errors;
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
  EXPECT_TRUE(waitUntil([&] { return launcher.finished() == 1; }));
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
  for (const Words& word : {Words{"get", "a"}, Words{"list"}, Words{"set", "a", "b"}}) {
    Words words = {"--port", port, "--timeout", "0.1", "defaults"};
    words.insert(words.end(), word.begin(), word.end());
    words.insert(words.end(), {"--of", "127.0.0.1"});
    expectFailure(run(program(), words, "password\n"), 3, "does not answer");
  }
  EXPECT_EQ(asked, 3) << "nothing was sent after what was not answered";
}

TEST_F(SorvctlTree, DefaultsAreNotChangedWithoutAPassword) {
  expectFailure(run(program(), {"defaults", "set", "a", "b"}), 2, "no password");
}

}  // namespace
}  // namespace sorvane::test
