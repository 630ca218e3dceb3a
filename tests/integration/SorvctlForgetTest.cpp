// "forget", and how names that were left behind are shown.
#include <string>

#include "integration/Client.h"
#include "integration/Sorvctl.h"
#include "support/ScriptedPeer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

/// A connection registers this name, then another one, and closes.
void leaveBehind(const Daemon& server, const std::string& name) {
  Client database(server);
  ASSERT_TRUE(database.reconnects(name));
  ASSERT_TRUE(database.reconnects("another name"));
  database.closes();
  ASSERT_TRUE(waitUntil([&] { return !server.finds("another name"); }));
  ASSERT_TRUE(server.finds(name));
}

class SorvctlForget : public Sorvctl {};

TEST_F(SorvctlForget, TakesOutWhatWasLeftBehind) {
  leaveBehind(server, "a|b:c d");
  EXPECT_EQ(json({"list"})[0]["left"], true);
  const auto watcher = start({"watch"});
  ASSERT_TRUE(watcher->prints("came a|b:c d "));
  const Outcome outcome = tool({"forget", "a|b:c d"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output + outcome.errors, "");
  EXPECT_TRUE(watcher->prints("went a|b:c d\n"));
  EXPECT_FALSE(server.finds("a|b:c d"));
}

TEST_F(SorvctlForget, OfAnythingElseFailsAndSaysWhy) {
  expectFailure(tool({"forget", "db9"}), 1, "no port is registered as \"db9\"");
  ASSERT_TRUE(server.registers("db1"));
  expectFailure(tool({"forget", "db1"}), 1, "\"db1\" was not left behind");
  expectFailure(tool({"forget", "VN_infoserver"}), 1, "is the name server itself");
  EXPECT_TRUE(server.finds("db1"));
}

TEST_F(SorvctlForget, IsAdvisedByTheDoctor) {
  leaveBehind(server, "db1");
  const Outcome outcome = tool({"doctor"});
  EXPECT_NE(outcome.output.find(": \"db1\". Take out each whose database is gone: sorvctl forget "
                                "db1. [names-left-behind]\n"),
            std::string::npos)
      << outcome.output;
}

Outcome forget(const ScriptedPeer& peer, const std::string& name) {
  return run(builtProgram("sorvctl"), {"--port", std::to_string(peer.port()), "forget", name});
}

/// A server that replies to "forgetPort" with this frame, and to all else with another.
ScriptedPeer::Script answering(std::string forgetting, std::string others = {}) {
  return [forgetting = std::move(forgetting), others = std::move(others)](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(request->find("forgetPort") != std::string::npos ? forgetting : others);
    }
  };
}

const std::string kFailed = frameOfTexts({{"result", "failed"}});

TEST(SorvctlForgetAtAServer, PrintsNothingWhenItIsDone) {
  std::string asked;
  const ScriptedPeer peer([&](PeerConnection& client) {
    asked = client.receiveRequest().value_or("");
    client.send(frameOfTexts({{"result", "success"}}));
  });
  const Outcome outcome = forget(peer, "a b|c:d");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output + outcome.errors, "");
  ASSERT_TRUE(peer.finishes(1));
  EXPECT_EQ(asked, frameOfTexts({{"action", "forgetPort"}, {"name", "a b|c:d"}}).substr(8));
}

TEST(SorvctlForgetAtAServer, TellsWhyItFails) {
  const ScriptedPeer unknown(answering(kFailed, frameOfTexts({{"notFound", "notFound"}})));
  expectFailure(forget(unknown, "db9"), 1, "no port is registered as \"db9\"");
  const ScriptedPeer living(
      answering(kFailed, frameOfTexts({{"portNumber", "20222"}, {"portName", "db1"}})));
  expectFailure(forget(living, "db1"), 1, "\"db1\" was not left behind");
  expectFailure(forget(living, "VN_nameserver"), 1, "\"VN_nameserver\" is the name server itself");
}

TEST(SorvctlForgetAtAServer, OfAnEarlierVersionFails) {
  const ScriptedPeer earlier(answering(frameOfTexts({})));
  expectFailure(forget(earlier, "db1"), 1, "earlier version");
}

TEST(SorvctlForgetAtAServer, ThatRefusesItFailsLikeOtherRefusedRequests) {
  const ScriptedPeer refusing(answering(nilFrame(), nilFrame()));
  const std::string port = std::to_string(refusing.port());
  const Outcome refused = forget(refusing, "db1");
  expectFailure(refused, 1, "the server gave no reply to this request");
  EXPECT_EQ(run(builtProgram("sorvctl"), {"--port", port, "register", "db1"}).errors,
            refused.errors);
}

std::string rowOf(std::initializer_list<std::pair<std::string_view, std::string_view>> texts) {
  return frameOfTexts(texts).substr(8);
}

TEST(SorvctlLists, MarkWhatWasLeftBehind) {
  const std::string body =
      rowOf({{"instance", "1"}, {"sequence", "2"}, {"more", "NO"}, {"restart", "YES"}}) +
      entry("0", rowOf({{"name", "a|b"}, {"portNumber", "20222"}, {"portStatus", "x|y:z"}})) +
      entry("1", rowOf({{"name", "db1"}, {"portNumber", "20223"}, {"left", "YES"}}));
  const ScriptedPeer peer([&](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(frameOfBody(body));
    }
  });
  const auto told = [&](Arguments arguments) {
    arguments.insert(arguments.begin(), {"--port", std::to_string(peer.port())});
    const Outcome outcome = run(builtProgram("sorvctl"), arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return outcome.output;
  };
  EXPECT_EQ(told({"list"}),
            "NAME  NUMBER  HOST  ADDRESS    TYPE  STATE  ALERT\n"
            "a|b   20222         localhost        x|y:z\n"
            "db1   20223         localhost        left\n");
  const auto list = nlohmann::json::parse(told({"--json", "list"}));
  EXPECT_EQ(list[0]["left"], false);
  EXPECT_EQ(list[1]["left"], true);
  EXPECT_EQ(list[1]["state"], "running") << "the last one";
  EXPECT_EQ(told({"states"}), "a|b  x|y:z\ndb1  running\n");
  const std::string hosts = "127.0.0.1:" + std::to_string(peer.port());
  EXPECT_NE(told({"net", "--hosts", hosts}).find("db1   20223               left\n"),
            std::string::npos);
  EXPECT_EQ(told({"completion", "zsh", "--", "--port", std::to_string(peer.port()), "forget", ""}),
            "db1\n");
}

}  // namespace
}  // namespace sorvane::test
