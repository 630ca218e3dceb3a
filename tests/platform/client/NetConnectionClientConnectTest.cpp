#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "platform/NetConnection.h"
#include "platform/RecordedSockets.h"
#include "platform/client/AnsweringPeer.h"
#include "platform/client/FakeResolver.h"
#include "support/OwnNamespaces.h"
#include "support/Program.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

/// An address that takes no connection and refuses none: its queue of waiting ones is full.
class SilentAddress {
 public:
  SilentAddress(const char* address, int port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, address, &name.sin_addr);
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    EXPECT_EQ(listen(listener_, 0), 0);
    for (int& filler : fillers_) {
      filler = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      (void)connect(filler, reinterpret_cast<const sockaddr*>(&name), sizeof name);
    }
  }
  ~SilentAddress() {
    close(listener_);
    for (const int filler : fillers_) {
      close(filler);
    }
  }
  SilentAddress(const SilentAddress&) = delete;
  SilentAddress& operator=(const SilentAddress&) = delete;

 private:
  int listener_ = -1;
  int fillers_[4] = {};
};

TEST(ConnectToPort, OfAListeningServerSucceeds) {
  AnsweringPeer peer(emptyDictionary());
  NetConnection connection;
  EXPECT_FALSE(connection.isConnected());
  EXPECT_TRUE(connection.connectToPort("127.0.0.1", peer.port()));
  EXPECT_TRUE(connection.isConnected());
  EXPECT_EQ(connection.lastError(), "");
}

TEST(ConnectToPort, OfAnEmptyHostMeansThisOne) {
  AnsweringPeer peer(emptyDictionary());
  NetConnection connection;
  EXPECT_TRUE(connection.connectToPort("", peer.port()));
}

TEST(ConnectToPort, OnWhichNothingListensTellsSo) {
  const int port = closedPort();
  NetConnection connection;
  EXPECT_FALSE(connection.connectToPort("127.0.0.1", port));
  EXPECT_EQ(connection.lastError(),
            "cannot connect to 127.0.0.1 port " + std::to_string(port) + ": Connection refused");
  EXPECT_FALSE(connection.wasClosedByPeer());
}

/// Whether a socket comes to be connected to itself when it connects to a port of 127.0.0.1 again
/// and again.
bool connectsToItself(int port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  inet_pton(AF_INET, "127.0.0.1", &name.sin_addr);
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int one = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = connect(one, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    const linger none{1, 0};  // leaves no port in use behind
    setsockopt(one, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    close(one);
    if (connected) {
      return true;
    }
  }
  return false;
}

TEST(ConnectToPort, OnWhichNothingListensIsRefusedEvenIfThisEndGetsThatPort) {
  if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  inOwnNetwork([] {
    shell("echo 40000 40003 >/proc/sys/net/ipv4/ip_local_port_range");
    int port = 40000;
    while (port < 40004 && !connectsToItself(port)) {
      ++port;
    }
    ASSERT_LT(port, 40004) << "the system connects no socket to itself";
    for (int attempt = 0; attempt < 100; ++attempt) {
      NetConnection connection;
      ASSERT_FALSE(connection.connectToPort("127.0.0.1", port)) << "after " << attempt;
      ASSERT_EQ(connection.lastError(), "cannot connect to 127.0.0.1 port " + std::to_string(port) +
                                            ": Connection refused");
    }
  });
}

TEST(ConnectToPort, ThatDoesNotExistTellsSo) {
  for (const int port : {-1, 0, 65536, 65537 + 20221}) {
    NetConnection connection;
    EXPECT_FALSE(connection.connectToPort("127.0.0.1", port));
    EXPECT_NE(connection.lastError().find("no such port"), std::string::npos) << port;
  }
}

TEST(ConnectToPort, OfAnUnknownNameTellsSo) {
  resolveAs("unknown.test", {});
  NetConnection connection;
  EXPECT_FALSE(connection.connectToPort("unknown.test", 1));
  EXPECT_EQ(connection.lastError(),
            "cannot connect to unknown.test port 1: Name or service not known");
}

TEST(ConnectToPort, OfANameTriesAllItsAddresses) {
  AnsweringPeer peer(emptyDictionary());  // listens on 127.0.0.1 alone
  resolveAs("several.test", {"127.0.0.2", "127.0.0.3", "127.0.0.1"});
  NetConnection connection;
  EXPECT_TRUE(connection.connectToPort("several.test", peer.port())) << connection.lastError();
}

TEST(ConnectToPort, OfANameIsNotHeldUpForGoodByASilentAddress) {
  AnsweringPeer peer(emptyDictionary());
  const SilentAddress silent("127.0.0.2", peer.port());
  resolveAs("half-silent.test", {"127.0.0.2", "127.0.0.1"});
  NetConnection connection;
  connection.setTimeLimits(1000ms, 1000ms);
  EXPECT_TRUE(connection.connectToPort("half-silent.test", peer.port())) << connection.lastError();
}

TEST(ConnectToPort, OfASilentAddressEndsAtTheLimit) {
  const int port = closedPort();
  const SilentAddress silent("127.0.0.1", port);
  NetConnection connection;
  connection.setTimeLimits(100ms, 30s);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(connection.connectToPort("127.0.0.1", port));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
  EXPECT_NE(connection.lastError().find("no answer in time"), std::string::npos);
}

TEST(ConnectToPort, EndsAtTheLimitWhenTheResolverHangs) {
  const HangingName hanging("hangs.test");
  const auto begin = std::chrono::steady_clock::now();
  {
    NetConnection connection;
    connection.setTimeLimits(100ms, 30s);
    EXPECT_FALSE(connection.connectToPort("hangs.test", 1));
    EXPECT_NE(connection.lastError().find("not resolved in time"), std::string::npos);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST(ConnectToPort, AgainAfterAFailureSucceeds) {
  AnsweringPeer peer(emptyDictionary());
  NetConnection connection;
  EXPECT_FALSE(connection.connectToPort("127.0.0.1", closedPort()));
  EXPECT_TRUE(connection.connectToPort("127.0.0.1", peer.port()));
  EXPECT_EQ(connection.lastError(), "");
  EXPECT_TRUE(connection.sendDictionary({{"ping", ""}}));
}

TEST(ConnectToPort, UsesASocketThatNoStartedProgramInherits) {
  AnsweringPeer peer(emptyDictionary());
  const RecordedSockets sockets;
  NetConnection connection;
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", peer.port()));
  ASSERT_EQ(sockets.of(AF_INET).size(), 1U);
  EXPECT_NE(sockets.of(AF_INET)[0].type & SOCK_CLOEXEC, 0);
}

TEST(ConnectToPort, WithoutASocketTellsSo) {
  RecordedSockets sockets;
  sockets.refuse(AF_INET, EMFILE);
  NetConnection connection;
  EXPECT_FALSE(connection.connectToPort("127.0.0.1", 1));
  EXPECT_EQ(connection.lastError(), "cannot connect to 127.0.0.1 port 1: Too many open files");
}

TEST(ConnectToServer, FindsTheNameServerAndTheInfoServerAtTheBasePort) {
  AnsweringPeer peer(emptyDictionary());
  useBasePort(peer.port());
  for (const char* server : {"VN_nameserver", "VN_infoserver"}) {
    NetConnection connection;
    EXPECT_TRUE(connection.connectToServer(server, "127.0.0.1")) << connection.lastError();
    EXPECT_TRUE(connection.sendDictionary({{"ping", ""}}));
  }
  EXPECT_EQ(peer.requests().size(), 2U) << "no other request was sent";
}

TEST(ConnectToServer, FindsTheLauncherOneBelowTheBasePort) {
  AnsweringPeer peer(emptyDictionary());
  useBasePort(peer.port() + 1);
  NetConnection connection;
  EXPECT_TRUE(connection.connectToServer("sorvexec", "")) << connection.lastError();
}

TEST(ConnectToServer, AsksTheNameServerForAnyOther) {
  AnsweringPeer database(frameOfTexts({{"here", "db1"}}));
  const std::string number = std::to_string(database.port());
  AnsweringPeer nameServer(frameOfTexts({{"portNumber", number},
                                         {"portName", "db1"},
                                         {"portHostAddress", "127.0.0.1"},
                                         {"portHost", "unknown.test"}}));
  resolveAs("unknown.test", {});
  useBasePort(nameServer.port());
  NetConnection connection;
  ASSERT_TRUE(connection.connectToServer("db1", "")) << connection.lastError();
  const auto reply = connection.sendDictionary({{"who", ""}});
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->text("here"), "db1");
  const std::string asked = entry("findPort", std::string("db1\0", 4)) +
                            entry("portHost", std::string("localhost\0", 10)) +
                            entry("portHostAddress", std::string("127.0.0.1\0", 10));
  EXPECT_EQ(nameServer.requests(), std::vector<std::string>{asked});
}

TEST(ConnectToServer, ThatIsNotRegisteredTellsSo) {
  AnsweringPeer nameServer(frameOfTexts({{"notFound", "notFound"}}));
  useBasePort(nameServer.port());
  NetConnection connection;
  EXPECT_FALSE(connection.connectToServer("db9", "127.0.0.1"));
  EXPECT_FALSE(connection.isConnected());
  EXPECT_NE(connection.lastError().find("knows no \"db9\""), std::string::npos);
}

TEST(ConnectToServer, ThatTheNameServerDoesNotServeTellsSo) {
  AnsweringPeer nameServer(nilFrame());
  useBasePort(nameServer.port());
  NetConnection connection;
  EXPECT_FALSE(connection.connectToServer("db1", "127.0.0.1"));
  EXPECT_NE(connection.lastError().find("does not serve this host"), std::string::npos);
}

TEST(ConnectToServer, WithAPortThatIsNoNumberTellsSo) {
  for (const char* number : {"", "x", "12x", "-", "99999999999999999999"}) {
    AnsweringPeer nameServer(frameOfTexts({{"portNumber", number}}));
    useBasePort(nameServer.port());
    NetConnection connection;
    EXPECT_FALSE(connection.connectToServer("db1", "127.0.0.1"));
    EXPECT_NE(connection.lastError().find("no port number"), std::string::npos) << number;
  }
}

TEST(ConnectToServer, WithASilentNameServerEndsAtTheConnectLimit) {
  ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  useBasePort(silent.port());
  NetConnection connection;
  connection.setTimeLimits(100ms, 60s);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(connection.connectToServer("db1", "127.0.0.1"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST(Invalidate, ClosesAndMayBeRepeated) {
  AnsweringPeer peer(emptyDictionary());
  NetConnection connection;
  connection.invalidate();
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", peer.port()));
  connection.invalidate();
  EXPECT_FALSE(connection.isConnected());
  EXPECT_FALSE(connection.sendDictionary({{"ping", ""}}));
  EXPECT_EQ(connection.lastError(), "not connected");
  connection.invalidate();
}

TEST(Invalidate, DeliversWhatWasSent) {
  std::optional<std::string> received;
  {
    ScriptedPeer peer([&](PeerConnection& client) { received = client.receiveRequest(); });
    NetConnection connection;
    ASSERT_TRUE(connection.connectToPort("127.0.0.1", peer.port()));
    ASSERT_TRUE(connection.sendRequest({{"action", "terminate"}}));
    connection.invalidate();
    EXPECT_TRUE(peer.finishes(1));
  }
  EXPECT_EQ(received, entry("action", std::string("terminate\0", 10)));
}

}  // namespace
}  // namespace sorvane::test
