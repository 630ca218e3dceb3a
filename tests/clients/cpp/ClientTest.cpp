// A Client against the real name server, and against others that do what no name server should.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "clients/cpp/ScriptedNameServer.h"
#include "integration/Daemon.h"
#include "platform/client/FakeResolver.h"
#include "sorvane/client.h"
#include "support/OwnNamespaces.h"
#include "support/ScriptedPeer.h"
#include "support/TestFiles.h"
#include "support/WireBytes.h"

namespace sorvane::client {
namespace {

using std::chrono::milliseconds;
using test::entry;
using test::frameOfBody;
using test::frameOfTexts;
using test::RequestTexts;
using test::ScriptedNameServer;
using test::ScriptedPeer;

NameServer at(int port, milliseconds replyLimit = milliseconds(10000)) {
  NameServer server;
  server.port = static_cast<std::uint16_t>(port);
  server.replyLimit = replyLimit;
  return server;
}

Client connected(const NameServer& server) {
  auto client = Client::connect(server);
  EXPECT_TRUE(client) << client.error().reason;
  return std::move(client).value();
}

/// The code of an error; nothing for a success.
template <typename Value>
std::optional<ErrorCode> codeOf(const Result<Value>& result) {
  return result ? std::nullopt : std::optional(result.error().code);
}

TEST(Client, AsksARealNameServer) {
  test::Daemon server;
  server.start();
  Client client = connected(at(server.basePort()));
  EXPECT_TRUE(client.ping());
  EXPECT_EQ(codeOf(client.find("db1")), ErrorCode::notFound);
  ASSERT_TRUE(server.registers("db2", "otherhost", "special"));
  ASSERT_TRUE(server.registers("db1", "localhost"));

  const auto found = client.find("db2");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->number, server.basePort() + 1);
  EXPECT_EQ(found->type, "special");
  EXPECT_EQ(client.reachableHost(*found), "otherhost");
  EXPECT_EQ(client.reachableHost(*client.find("db1")), "localhost");

  EXPECT_TRUE(client.setState("db1", "starting"));
  EXPECT_TRUE(client.setAlert("db1", "disk nearly full"));
  const auto listed = client.list();
  ASSERT_TRUE(listed) << listed.error().reason;
  ASSERT_EQ(listed->size(), 2U);
  EXPECT_EQ((*listed)[0].name, "db1");
  EXPECT_EQ((*listed)[0].number, server.basePort() + 2);
  EXPECT_EQ((*listed)[0].state, "starting");
  EXPECT_EQ((*listed)[0].alert, "disk nearly full");
  EXPECT_EQ((*listed)[1].host, "otherhost");

  const auto states = client.states();
  ASSERT_TRUE(states);
  ASSERT_EQ(states->size(), 2U);
  EXPECT_EQ((*states)[0].state, "starting");
  EXPECT_EQ((*states)[1].name, "db2");
  EXPECT_EQ((*states)[1].state, "running");

  const auto host = client.hostInfo();
  ASSERT_TRUE(host);
  EXPECT_EQ(host->name, "testhost");
  EXPECT_EQ(host->hardwareAddress, "02:00:00:00:00:01");
  EXPECT_EQ(host->address, "192.0.2.10");
  EXPECT_NE(host->version, "");
  EXPECT_NE(host->platform, "");
}

TEST(Client, IsToldAllThatIsKnownOfADatabase) {
  test::Daemon server;
  server.start();
  auto database = server.connection();
  ASSERT_TRUE(database->sendDictionary({{"reconnectPort", "db1"},
                                        {"portNumber", "20300"},
                                        {"portHost", "hosta"},
                                        {"portHostAddress", "192.0.2.1"},
                                        {"portType", "database"}}));
  Client client = connected(at(server.basePort()));
  const auto before = std::chrono::system_clock::now() - std::chrono::seconds(1);
  EXPECT_TRUE(client.setAlert("db1", "a|b:c"));
  const auto listed = client.list();
  ASSERT_TRUE(listed) << listed.error().reason;
  ASSERT_EQ(listed->size(), 1U);
  const Entry& entry = listed->front();
  ASSERT_TRUE(entry.alertTime);
  EXPECT_GT(*entry.alertTime, before);
  EXPECT_LT(*entry.alertTime, std::chrono::system_clock::now() + std::chrono::seconds(1));
  const Entry expected{"db1", 20300,   "hosta",         "192.0.2.1", "database",
                       "",    "a|b:c", entry.alertTime, false};
  EXPECT_EQ(entry, expected);
}

TEST(Client, ForgetsANameThatWasLeftBehindAndNoOther) {
  test::Daemon server;
  server.start();
  auto database = server.connection();
  for (const char* name : {"former", "later"}) {
    ASSERT_TRUE(database->sendDictionary({{"reconnectPort", name},
                                          {"portNumber", "20300"},
                                          {"portHost", "hosta"},
                                          {"portType", "database"}}));
  }
  Client client = connected(at(server.basePort()));
  EXPECT_EQ(codeOf(client.forget("former")), ErrorCode::refused);
  database.reset();
  ASSERT_TRUE(test::waitUntil([&] {
    const auto listed = client.list();
    return listed && listed->size() == 1 && listed->front().left;
  }));
  EXPECT_TRUE(client.forget("former"));
  EXPECT_EQ(codeOf(client.find("former")), ErrorCode::notFound);
  EXPECT_EQ(codeOf(client.forget("VN_nameserver")), ErrorCode::refused);
}

// More than the name server tells at a time.
TEST(Client, ListsManyDatabases) {
  test::Daemon server;
  server.start();
  auto database = server.connection();
  const std::string host(1000, 'h');
  for (int number = 0; number < 2500; ++number) {
    ASSERT_TRUE(database->sendDictionary({{"reconnectPort", "db" + std::to_string(number)},
                                          {"portNumber", "20300"},
                                          {"portHost", host},
                                          {"portType", "database"}}));
  }
  Client client = connected(at(server.basePort()));
  const auto listed = client.list();
  ASSERT_TRUE(listed) << listed.error().reason;
  EXPECT_EQ(listed->size(), 2500U);
}

TEST(Client, ConnectsAgainAfterTheNameServerWasRestarted) {
  test::Daemon server;
  server.start();
  Client client = connected(at(server.basePort()));
  server.kill();
  EXPECT_EQ(codeOf(client.ping()), ErrorCode::unreachable);
  server.start();
  EXPECT_TRUE(client.ping());
  Client moved = std::move(client);
  EXPECT_TRUE(moved.ping());
}

TEST(Client, RefusesWhatCannotBeSent) {
  test::Daemon server;
  server.start();
  Client client = connected(at(server.basePort()));
  EXPECT_EQ(codeOf(client.find("")), ErrorCode::invalidArgument);
  EXPECT_EQ(codeOf(client.find(std::string_view("a\0b", 3))), ErrorCode::invalidArgument);
  EXPECT_EQ(codeOf(client.find("\xff")), ErrorCode::invalidArgument);
  EXPECT_EQ(codeOf(client.setState("db1", "\xc3")), ErrorCode::invalidArgument);
  EXPECT_EQ(codeOf(client.setAlert("", "text")), ErrorCode::invalidArgument);
  EXPECT_EQ(codeOf(client.forget(std::string((1 << 20) + 1, 'a'))), ErrorCode::invalidArgument);
  EXPECT_EQ(codeOf(Client::connect(at(0))), ErrorCode::invalidArgument);
  EXPECT_TRUE(client.ping());
}

TEST(Client, TellsWhyThereIsNoConnection) {
  const auto refused = Client::connect(at(test::closedPort()));
  EXPECT_EQ(codeOf(refused), ErrorCode::unreachable);
  EXPECT_THAT(refused.error().reason, testing::HasSubstr("onnection refused"));
  NameServer unknown;
  unknown.host = "no such host";
  EXPECT_EQ(codeOf(Client::connect(unknown)), ErrorCode::unreachable);
}

TEST(Client, WaitsForAReplyNoLongerThanItsLimit) {
  ScriptedNameServer server([](const RequestTexts&) { return std::string(); });
  Client client = connected(at(server.port(), milliseconds(50)));
  EXPECT_EQ(codeOf(client.ping()), ErrorCode::timedOut);
}

TEST(Client, GivesUpAPeerThatSendsOneByteAfterTheOther) {
  ScriptedPeer peer([](test::PeerConnection& connection) {
    static_cast<void>(connection.receiveRequest());
    connection.send(test::frameWith("SV", 1, 1, 64 << 20, ""));
    while (connection.send("x")) {
    }
  });
  Client client = connected(at(peer.port(), milliseconds(100)));
  EXPECT_EQ(codeOf(client.ping()), ErrorCode::timedOut);
}

TEST(Client, NoticesWhatIsNoReply) {
  const std::string taken = entry("result", "success");
  const std::string cases[] = {
      "HTTP/1.1 400 Bad Request\r\n\r\n",
      "HTTP",  // nothing follows, and the limit for a reply is 10 seconds
      std::string(1, '\0'),
      test::frameWith("SV", 2, 1, taken.size(), taken),
      test::frameWith("SV", 1, 2, taken.size(), taken),
      test::frameWith("SV", 1, 0, 1, "x"),
      test::frameWith("SV", 1, 1, (64 << 20) + 1, ""),
      frameOfBody(taken + entry("a", "1") + entry("a", "2")),
      frameOfBody(taken + entry("\xff", "1")),
      frameOfBody(taken + entry(std::string_view("a\0", 2), "1")),
      frameOfBody(taken + "abc"),
      frameOfBody(taken + entry("a", "1").substr(0, 7)),
  };
  for (const std::string& bytes : cases) {
    ScriptedNameServer server([&](const RequestTexts&) { return bytes; });
    Client client = connected(at(server.port()));
    EXPECT_EQ(codeOf(client.setState("db1", "a")), ErrorCode::protocol) << bytes;
  }
  ScriptedNameServer server([&](const RequestTexts&) { return frameOfBody(taken); });
  Client client = connected(at(server.port()));
  EXPECT_TRUE(client.setState("db1", "a"));
  EXPECT_EQ(codeOf(client.ping()), ErrorCode::protocol);
}

TEST(Client, DoesNotEndTheProgramWhenThePeerIsGone) {
  test::inOwnProcess([] {
    signal(SIGPIPE, SIG_DFL);
    ScriptedPeer peer([](test::PeerConnection& connection) {
      // What has not been read when the end was told makes the next writing raise the signal.
      static_cast<void>(connection.receive(1));
      connection.shutdownWriting();
    });
    Client client = connected(at(peer.port()));
    const std::string text(1 << 20, 'x');
    for (int count = 0; count < 5; ++count) {
      EXPECT_NE(codeOf(client.setState("db1", text)), std::nullopt);
    }
  });
}

TEST(Client, PassesNoDescriptorOn) {
  test::Daemon server;
  server.start();
  const auto open = [] {
    std::set<std::string> names;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
      names.insert(each.path().filename());
    }
    return names;
  };
  const auto before = open();
  Client client = connected(at(server.basePort()));
  Watch::Options options;
  options.onChange = [](const Change&) {};
  const auto watch = Watch::start(at(server.basePort()), options);
  ASSERT_TRUE(watch);
  ASSERT_TRUE(test::waitUntil([&] { return watch->status().current; }));
  int count = 0;
  for (const std::string& each : open()) {
    const std::filesystem::path info = "/proc/self/fdinfo/" + each;
    if (before.contains(each) || !std::filesystem::exists(info)) continue;
    const std::string text = test::readFile(info);
    const std::size_t flags = text.find("flags:");
    EXPECT_TRUE(std::stoul(text.substr(flags + 6), nullptr, 8) & 02000000U) << text;
    ++count;
  }
  EXPECT_GE(count, 4);
}

TEST(Client, WaitsForALookUpNoLongerThanItsLimit) {
  ScriptedNameServer named([](const RequestTexts&) { return frameOfBody(""); });
  NameServer server = at(named.port());
  server.host = "slow.example";
  server.connectLimit = milliseconds(50);
  {
    const test::HangingName hanging(server.host);
    EXPECT_EQ(codeOf(Client::connect(server)), ErrorCode::timedOut);
  }
  test::resolveAs(server.host, {"127.0.0.1"});
  server.connectLimit = test::kPatience;
  EXPECT_TRUE(connected(server).ping());
}

TEST(Client, TriesTheNextAddressOfAHost) {
  ScriptedNameServer named([](const RequestTexts&) { return frameOfBody(""); });
  NameServer server = at(named.port());
  server.host = "two.example";
  test::resolveAs(server.host, {"::1", "127.0.0.1"});  // nobody listens on the first
  EXPECT_TRUE(connected(server).ping());
}

// The system can give a socket the very port that it is to reach.
TEST(Client, DoesNotTakeItselfForANameServer) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) GTEST_SKIP() << why;
  test::inOwnNetwork([] {
    test::writeFile("/proc/sys/net/ipv4/ip_local_port_range", "40000 40000");
    for (int count = 0; count < 3; ++count) {
      NameServer server = at(40000);
      server.host = "127.0.0.1";
      const auto client = Client::connect(server);
      ASSERT_EQ(codeOf(client), ErrorCode::unreachable);
      EXPECT_THAT(client.error().reason, testing::HasSubstr("onnection refused"));
    }
  });
}

/// A name server that lacks what later ones tell.
std::string earlierAnswer(const RequestTexts& request) {
  if (request.contains("findPort")) {
    const std::string& name = request.at("findPort");
    return name == "gone" ? frameOfTexts({{"notFound", "notFound"}})
                          : frameOfTexts({{"portNumber", "20300"},
                                          {"portName", name},
                                          {"portHostAddress", "127.0.0.1"},
                                          {"portHost", "hosta"},
                                          {"portType", "database"}});
  }
  if (request.contains("action") && request.at("action") == "databaseStates") {
    return frameOfTexts(
        {{"result", "db2:a|b|db1:running|gone:x"}, {"alerts", "db1:full: 9|10|no"}});
  }
  return frameOfBody("");
}

TEST(Client, ListsThroughTheCommandsOfAnEarlierNameServer) {
  ScriptedNameServer server(earlierAnswer);
  Client client = connected(at(server.port()));
  const auto listed = client.list();
  ASSERT_TRUE(listed) << listed.error().reason;
  ASSERT_EQ(listed->size(), 2U);
  const Entry db1{"db1", 20300, "hosta", "", "database", "running", "full: 9|10|no", {}, false};
  EXPECT_EQ((*listed)[0], db1);
  EXPECT_EQ((*listed)[1].state, "a|b");
  EXPECT_EQ(client.states()->size(), 3U);
  EXPECT_EQ(codeOf(client.forget("db1")), ErrorCode::unsupported);
}

TEST(Client, IsToldWhenTheNameServerSaysNo) {
  ScriptedNameServer server([](const RequestTexts&) { return test::nilFrame(); });
  Client client = connected(at(server.port()));
  EXPECT_EQ(codeOf(client.find("db1")), ErrorCode::refused);
  EXPECT_EQ(codeOf(client.list()), ErrorCode::refused);
  EXPECT_EQ(codeOf(client.setState("db1", "a")), ErrorCode::refused);
  EXPECT_EQ(codeOf(client.hostInfo()), ErrorCode::refused);
  EXPECT_EQ(codeOf(client.forget("db1")), ErrorCode::refused);
}

}  // namespace
}  // namespace sorvane::client
