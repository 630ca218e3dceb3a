// Where a client connects to a database that has registered with a name server.
#include <chrono>
#include <string>
#include <vector>

#include "platform/NetConnection.h"
#include "platform/VNHost.h"
#include "platform/client/AnsweringPeer.h"
#include "platform/client/FakeResolver.h"
#include "support/OwnNamespaces.h"
#include "support/WaitUntil.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

/// The request that asks for "db1".
std::string question(const std::string& host, const std::string& address) {
  return entry("findPort", std::string("db1\0", 4)) + entry("portHost", host + '\0') +
         entry("portHostAddress", address + '\0');
}

std::string questionOfThisMachine() { return question("localhost", "127.0.0.1"); }

/// A database at one address, and a name server at another with which it has registered.
class Registered {
 public:
  Registered(const char* databaseAddress, const std::string& portHost,
             const char* nameServerAddress)
      : database_(emptyDictionary(), databaseAddress),
        nameServer_(frameOfTexts({{"portNumber", std::to_string(database_.port())},
                                  {"portName", "db1"},
                                  {"portHostAddress", nameServerAddress},
                                  {"portHost", portHost}}),
                    nameServerAddress) {
    useBasePort(nameServer_.port());
  }

  /// Connects to the database by the name server's host. Returns "" or what went wrong.
  std::string connects(const std::string& host, std::chrono::milliseconds limit = kPatience) {
    NetConnection connection;
    connection.setTimeLimits(limit, limit);
    if (!connection.connectToServer("db1", host) || !connection.sendDictionary({{"who", ""}})) {
      return connection.lastError();
    }
    return database_.requests().empty() ? "connected to another server" : "";
  }
  [[nodiscard]] std::vector<std::string> questions() { return nameServer_.requests(); }

 private:
  AnsweringPeer database_;
  AnsweringPeer nameServer_;
};

constexpr const char* kOther = "198.51.100.1";
constexpr const char* kThird = "198.51.100.2";

/// The addresses of 198.51.100.0/24 can be used here, although no interface has them: to this
/// machine they look like those of other hosts.
class OnSeveralHosts : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }

  static void in(const std::function<void()>& body) {
    inOwnNetwork([&] {
      shell("ip route add local 198.51.100.0/24 dev lo");
      resolveAs("nameserver.test", {kOther});
      VNHost::resetForTest();
      body();
    });
  }
};

TEST_F(OnSeveralHosts, ADatabaseIsReachedAtTheHostThatItRegistered) {
  in([] {
    resolveAs("db.test", {kThird});
    for (const char* portHost : {"db.test", kThird}) {
      Registered database(kThird, portHost, kOther);
      EXPECT_EQ(database.connects("nameserver.test"), "") << portHost;
      EXPECT_EQ(database.questions(), std::vector{question("nameserver.test", kOther)});
    }
  });
}

TEST_F(OnSeveralHosts, ADatabaseIsReachedAtItsHostWhenTheNameServerIsOfThisMachine) {
  in([] {
    resolveAs("db.test", {kThird});
    Registered database(kThird, "db.test", "127.0.0.1");
    EXPECT_EQ(database.connects(""), "");
  });
}

TEST_F(OnSeveralHosts, ADatabaseWhoseHostDoesNotResolveIsReachedAtTheNameServers) {
  in([] {
    resolveAs("unknown.test", {});
    for (const char* portHost : {"unknown.test", ""}) {
      Registered database(kOther, portHost, kOther);
      EXPECT_EQ(database.connects("nameserver.test"), "") << portHost;
    }
  });
}

TEST_F(OnSeveralHosts, AnotherNameOfTheNameServersHostIsThatHost) {
  in([] {
    resolveAs("alias.test", {kThird, kOther});
    for (const char* portHost : {"alias.test", "NameServer.test"}) {
      Registered database(kOther, portHost, kOther);
      EXPECT_EQ(database.connects("nameserver.test"), "") << portHost;
    }
  });
}

TEST_F(OnSeveralHosts, ALoopbackNameThatAnotherHostRegisteredIsThatHost) {
  in([] {
    resolveAs("localhost", {"::1", "127.0.0.1"});
    resolveAs("localhost.localdomain", {"127.0.0.1"});
    for (const char* portHost : {"localhost", "127.0.0.1", "::1", "localhost.localdomain"}) {
      Registered database(kOther, portHost, kOther);
      EXPECT_EQ(database.connects("nameserver.test"), "") << portHost;
    }
  });
}

TEST_F(OnSeveralHosts, ADatabaseOfThisMachineIsReachedHereThoughItsNameIsOfTheLoopback) {
  in([] {
    const std::string own = VNHost::currentHost().name();
    resolveAs(own, {"127.0.1.1"});
    Registered database("127.0.1.1", own, kOther);
    EXPECT_EQ(database.connects("nameserver.test"), "");
  });
}

TEST_F(OnSeveralHosts, AnAddressOfAnInterfaceIsThisMachine) {
  in([] {
    shell("ip addr add 192.0.2.1/32 dev lo");
    Registered database("127.0.0.1", "192.0.2.1", "192.0.2.1");
    EXPECT_EQ(database.connects("192.0.2.1"), "");
    EXPECT_EQ(database.questions(), std::vector{questionOfThisMachine()});
  });
}

TEST(OnThisMachine, TheClientCallsItselfLocalhostByWhateverAddressItAsks) {
  resolveAs("here.test", {"127.0.1.1"});
  for (const char* host : {"here.test", "127.0.1.1"}) {
    Registered database("127.0.1.1", "here.test", "127.0.1.1");
    EXPECT_EQ(database.connects(host), "") << host;
    EXPECT_EQ(database.questions(), std::vector{questionOfThisMachine()}) << host;
  }
}

TEST(OnThisMachine, ADatabaseMayListenOnAnotherAddressThanTheNameServer) {
  resolveAs("here.test", {"127.0.1.1", "127.0.2.2"});
  for (const char* address : {"127.0.0.1", "127.0.1.1", "127.0.2.2"}) {
    Registered database(address, "here.test", "127.0.1.1");
    EXPECT_EQ(database.connects("here.test"), "") << address;
  }
}

TEST(OnThisMachine, AResolverThatHangsDoesNotTakeAllOfTheTime) {
  const HangingName hanging("hangs.test");
  Registered database("127.0.0.1", "hangs.test", "127.0.0.1");
  EXPECT_EQ(database.connects("127.0.0.1", 4s), "");
}

}  // namespace
}  // namespace sorvane::test
