// The name servers that "net" asks, and what comes of it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sorvctl/Failure.h"
#include "sorvctl/net/Answers.h"
#include "sorvctl/net/Servers.h"
#include "support/ScriptedPeer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvctl::net {
namespace {

using namespace std::chrono_literals;
using sorvane::test::closedPort;
using sorvane::test::frameOfTexts;
using sorvane::test::PeerConnection;
using sorvane::test::ScriptedPeer;

using Servers = std::vector<Server>;

TEST(NetServers, AreReadFromAList) {
  EXPECT_EQ(serversOfList("hostA,hostB:20300,[::1]:20301,::1", 20221),
            (Servers{{"hostA", {"hostA"}, 20221},
                     {"hostB:20300", {"hostB"}, 20300},
                     {"[::1]:20301", {"::1"}, 20301},
                     {"::1", {"::1"}, 20221}}));
  EXPECT_EQ(serversOfList("a,a,a:20221,b", 20221).size(), 2U) << "each is asked once";
}

TEST(NetServers, AreRefusedWhenTheListIsNone) {
  for (const char* list : {"", ",", "a,", ",a", "a,,b", "a:x"}) {
    EXPECT_THROW((void)serversOfList(list, 20221), Failure) << list;
  }
}

TEST(NetServers, AreLimitedInNumber) {
  std::string list = "a0";
  std::set<NameServer> found;
  for (std::size_t index = 1; index < kMostServers; ++index) {
    list += ",a" + std::to_string(index);
  }
  EXPECT_EQ(serversOfList(list, 20221).size(), kMostServers);
  EXPECT_THROW((void)serversOfList(list + ",b", 20221), Failure);
  for (std::size_t index = 0; index < 2 * kMostServers; ++index) {
    found.insert({"a" + std::to_string(index), "192.0.2.1", 20221});
  }
  EXPECT_EQ(serversOfNetwork(found, 0).size(), kMostServers);
}

TEST(NetServers, OfTheNetworkHaveAllTheirAddresses) {
  EXPECT_EQ(serversOfNetwork({{"alpha", "192.0.2.1", 20221},
                              {"alpha", "198.51.100.1", 20221},
                              {"alpha", "192.0.2.1", 20300},
                              {"beta", "192.0.2.2", 20221}},
                             0),
            (Servers{{"alpha", {"192.0.2.1", "198.51.100.1"}, 20221},
                     {"alpha", {"192.0.2.1"}, 20300},
                     {"beta", {"192.0.2.2"}, 20221}}));
}

TEST(NetServers, OfTheNetworkAreAskedAtThePortThatWasGiven) {
  EXPECT_EQ(serversOfNetwork({{"alpha", "192.0.2.1", 20221}}, 20300),
            (Servers{{"alpha", {"192.0.2.1"}, 20300}}));
}

/// A name server with one database of this name.
ScriptedPeer::Script serving(std::string name) {
  return [name = std::move(name)](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(request->find("databaseStates") != std::string::npos
                      ? frameOfTexts({{"result", name + ":running"}, {"alerts", ""}})
                      : frameOfTexts({{"portNumber", "20222"}, {"portName", name}}));
    }
  };
}

Server serverAt(int port) { return {"server", {"127.0.0.1"}, port}; }

TEST(NetAnswers, ComeInTheOrderOfTheServers) {
  const ScriptedPeer one(serving("db1"));
  const ScriptedPeer two(serving("db2"));
  const std::vector<Answer> answers =
      askAll({serverAt(two.port()), serverAt(closedPort()), serverAt(one.port())}, {}, 30s);
  ASSERT_EQ(answers.size(), 3U);
  ASSERT_TRUE(answers[0].answered) << answers[0].failure;
  ASSERT_EQ(answers[0].databases.size(), 1U);
  EXPECT_EQ(answers[0].databases[0].port.name, "db2");
  EXPECT_FALSE(answers[1].answered);
  EXPECT_NE(answers[1].failure.find("Connection refused"), std::string::npos);
  EXPECT_TRUE(answers[2].answered) << answers[2].failure;
}

TEST(NetAnswers, HaveTheirDatabasesInTheOrderOfTheNames) {
  const ScriptedPeer peer([](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(request->find("databaseStates") != std::string::npos
                      ? frameOfTexts({{"result", "b:running|c:running|a:running"}, {"alerts", ""}})
                      : frameOfTexts({{"notFound", "notFound"}}));
    }
  });
  const std::vector<Answer> answers = askAll({serverAt(peer.port())}, {}, 30s);
  ASSERT_EQ(answers[0].databases.size(), 3U) << answers[0].failure;
  EXPECT_EQ(answers[0].databases[0].port.name, "a");
  EXPECT_EQ(answers[0].databases[2].port.name, "c");
}

TEST(NetAnswers, AreAskedForAtTheSameTime) {
  // Each replies only when all have been asked.
  constexpr int kPeers = 3;
  std::vector<std::unique_ptr<ScriptedPeer>> peers;
  std::atomic<int> asked = 0;
  Servers servers;
  for (int index = 0; index < kPeers; ++index) {
    peers.push_back(std::make_unique<ScriptedPeer>([&](PeerConnection& client) {
      while (client.receiveRequest()) {
        ++asked;
        EXPECT_TRUE(sorvane::test::waitUntil([&] { return asked >= kPeers; }));
        client.send(frameOfTexts({{"result", ""}, {"alerts", ""}}));
      }
    }));
    servers.push_back(serverAt(peers.back()->port()));
  }
  for (const Answer& answer : askAll(servers, {}, 60s)) {
    EXPECT_TRUE(answer.answered) << answer.failure;
  }
}

TEST(NetAnswers, ThatTakeTooLongAreNone) {
  const ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  const ScriptedPeer slow([](PeerConnection& client) {
    (void)client.receiveRequest();
    for (const char byte : frameOfTexts({{"result", std::string(10000, 'x')}})) {
      if (client.isClosedByPeer(10ms) || !client.send(std::string_view(&byte, 1))) {
        return;
      }
    }
  });
  const ScriptedPeer quick(serving("db1"));
  const std::vector<Answer> answers =
      askAll({serverAt(silent.port()), serverAt(slow.port()), serverAt(quick.port())}, {}, 500ms);
  EXPECT_NE(answers[0].failure.find("no answer in time"), std::string::npos) << answers[0].failure;
  EXPECT_FALSE(answers[1].answered) << "bytes come all the time, but not the whole reply";
  EXPECT_TRUE(answers[1].databases.empty());
}

TEST(NetAnswers, ThatAreTooLongAreNone) {
  const ScriptedPeer talker([](PeerConnection& client) {
    if (client.receiveRequest()) {
      client.send(frameOfTexts({{"result", std::string(kMostReplyBytes, 'x')}}));
      client.waitForClose();
    }
  });
  std::string names = "a0:r";
  for (std::size_t index = 1; index <= kBoundsOfServer.names; ++index) {
    names += "|a" + std::to_string(index) + ":r";
  }
  const ScriptedPeer crowded([&](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(request->find("databaseStates") != std::string::npos
                      ? frameOfTexts({{"result", names}})
                      : frameOfTexts({}));
    }
  });
  const std::vector<Answer> answers =
      askAll({serverAt(talker.port()), serverAt(crowded.port())}, {}, 30s);
  EXPECT_NE(answers[0].failure.find("above the limit"), std::string::npos) << answers[0].failure;
  EXPECT_NE(answers[1].failure.find("more than 20000 databases"), std::string::npos)
      << answers[1].failure;
}

TEST(NetAnswers, ComeByTheAddressThatLeadsToTheServer) {
  const ScriptedPeer peer(serving("db1"));
  // Nothing listens there, and the system says so at once.
  const Server server{"alpha", {"127.0.0.2", "127.0.0.1"}, peer.port()};
  const std::vector<Answer> answers = askAll({server}, {}, 30s);
  EXPECT_TRUE(answers[0].answered) << answers[0].failure;
}

}  // namespace
}  // namespace sorvctl::net
