// Who may connect, register and end the name server: two hosts with IPv4 and IPv6.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "integration/Client.h"
#include "integration/Daemon.h"
#include "integration/NetworkNamespace.h"
#include "support/Texts.h"

namespace sorvane::test {
namespace {

constexpr const char* kHere[] = {"192.0.2.1", "2001:db8::1"};

class Access : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    connectByCable(here_, "192.0.2.1/24", there_, "192.0.2.2/24");
    here_.run("ip", {"address", "add", "2001:db8::1/64", "dev", "eth0", "nodad"});
    there_.run("ip", {"address", "add", "2001:db8::2/64", "dev", "eth0", "nodad"});
  }

  void start() {
    server_.launch({"-verbose"}, [this] { here_.enter(); });
    ASSERT_TRUE(server_.logs("succeeded. "));
  }

  /// A connection to one of the server's addresses.
  [[nodiscard]] std::unique_ptr<NetConnection> connects(const NetworkNamespace& host,
                                                        const std::string& address) const {
    auto made = std::make_unique<NetConnection>();
    onNetworkOf(host, [&] {
      EXPECT_TRUE(made->connectToPort(address, server_.basePort())) << made->lastError();
    });
    return made;
  }

  /// Whether a ping over a new connection is answered.
  [[nodiscard]] bool serves(const NetworkNamespace& host, const std::string& address) const {
    return connects(host, address)->sendDictionary({{"ping", ""}}).has_value();
  }

  NetworkNamespace here_;
  NetworkNamespace there_;
  Daemon server_;
};

Texts textsOfReply(NetConnection& connection, const Message& request) {
  const auto reply = connection.sendDictionary(request);
  EXPECT_TRUE(reply || connection.lastError().empty()) << connection.lastError();
  return textsOf(reply).value_or(Texts{{"nil", ""}});
}

const Texts kNilReply = {{"nil", ""}};

TEST_F(Access, WithoutSettingsIsForEveryone) {
  start();
  for (const std::string address : kHere) {
    EXPECT_TRUE(serves(here_, address)) << address;
    EXPECT_TRUE(serves(there_, address)) << address;
  }
}

TEST_F(Access, FromOutsideTheAllowedNetworksIsClosedBeforeAByteIsRead) {
  server_.setting("AllowedNetworks", R"(("198.51.100.0/24", "2001:db8:1::/48"))");
  start();
  for (const std::string address : kHere) {
    const auto stranger = connects(there_, address);
    EXPECT_FALSE(stranger->sendDictionary({{"ping", ""}})) << address;
    EXPECT_TRUE(stranger->wasClosedByPeer()) << stranger->lastError();
  }
  EXPECT_TRUE(server_.complains("192.0.2.2:"));
  EXPECT_TRUE(server_.complains("[2001:db8::2]:"));
  EXPECT_TRUE(server_.complains(": closed, AllowedNetworks has no network for it"));
}

TEST_F(Access, FromThisMachineIsAlwaysAllowed) {
  server_.setting("AllowedNetworks", R"(("198.51.100.0/24"))");
  start();
  for (const std::string address : {"127.0.0.1", "::1", "192.0.2.1", "2001:db8::1"}) {
    EXPECT_TRUE(serves(here_, address)) << address;
  }
}

TEST_F(Access, FromAnAllowedNetworkIsServed) {
  server_.setting("AllowedNetworks", R"(("192.0.2.0/30"))");
  start();
  EXPECT_TRUE(serves(there_, "192.0.2.1")) << "an IPv4 peer of a socket for IPv6";
  EXPECT_FALSE(serves(there_, "2001:db8::1"));
}

TEST_F(Access, FromAnAllowedNetworkOfIPv6IsServed) {
  server_.setting("AllowedNetworks", R"(("2001:db8::/64"))");
  start();
  EXPECT_TRUE(serves(there_, "2001:db8::1"));
  EXPECT_FALSE(serves(there_, "192.0.2.1"));
}

TEST_F(Access, ThatIsRefusedTakesNobodysPlaceAndFewLinesOfTheConsole) {
  server_.setting("AllowedNetworks", R"(("198.51.100.0/24"))").setting("MaxConnections", "1");
  start();
  for (int i = 0; i < 100; ++i) {
    EXPECT_FALSE(serves(there_, "192.0.2.1"));
  }
  EXPECT_TRUE(serves(here_, "127.0.0.1"));
  const std::string console = server_.console();
  int lines = 0;
  for (std::size_t at = 0; (at = console.find("AllowedNetworks", at)) != std::string::npos; ++at) {
    ++lines;
  }
  EXPECT_GE(lines, 1);
  EXPECT_LE(lines, 60) << "20 in 10 seconds; the test may have taken some of these";
}

TEST_F(Access, ToTheProcessFromElsewhereGetsNoDictionaryWithoutRemoteControl) {
  server_.setting("RemoteControl", "NO");
  start();
  for (const std::string address : kHere) {
    const auto stranger = connects(there_, address);
    EXPECT_EQ(textsOfReply(*stranger, {{"terminate", ""}}), kNilReply) << address;
    EXPECT_EQ(textsOfReply(*stranger, request("restart", {})), kNilReply) << address;
    EXPECT_EQ(textsOfReply(*stranger, {{"ping", ""}}), Texts()) << address;
  }
  const auto own = connects(here_, "192.0.2.1");
  EXPECT_TRUE(own->sendRequest({{"terminate", ""}}));
  EXPECT_EQ(server_.waitForExit(), 0) << "this machine may, by whatever address";
}

TEST_F(Access, ToTheProcessFromElsewhereEndsItByDefault) {
  start();
  EXPECT_TRUE(connects(there_, "192.0.2.1")->sendRequest(request("restart", {})));
  EXPECT_EQ(server_.waitForExit(), 0);
}

/// A request that changes something, and the reply that tells that it did.
struct Change {
  Texts request;
  Texts reply;
};

const Texts kReconnect = {
    {"reconnectPort", "db"}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}};
const Texts kSuccess = {{"result", "success"}};

const Change kChanges[] = {
    {{{"newPort", ""}, {"portName", "db"}, {"portHost", "h"}, {"portType", "t"}}, {}},
    {kReconnect, kReconnect},
    {{{"acceptPort", ""}}, {{"acceptPort", ""}}},
    {{{"action", "needsRefresh"}}, kSuccess},
    {{{"action", "setAlertState"}, {"databaseName", "db"}, {"state", "s"}}, kSuccess},
    {{{"action", "setDatabaseState"}, {"databaseName", "db"}, {"state", "s"}}, kSuccess},
    {{{"action", "sorvexecConnectHost"},
      {"hostName", "h"},
      {"portHostAddress", "a"},
      {"ethernetAddress", "02:00:00:00:00:01"}},
     {{"result", "connected"}}},
    {{{"action", "set_userpreferences_key"}, {"key", "k"}}, *kSucceed},
    {{{"action", "set_userpreferences"}, {"key", "k"}}, *kSucceed},
};

TEST_F(Access, ToTheRegistryFromElsewhereGetsNoDictionaryWithoutRemoteRegistration) {
  server_.setting("RemoteRegistration", "NO");
  start();
  const auto own = connects(here_, "127.0.0.1");
  const auto stranger = connects(there_, "192.0.2.1");
  for (const Change& each : kChanges) {
    EXPECT_EQ(textsOfReply(*stranger, textsMessage(each.request)), kNilReply)
        << ::testing::PrintToString(each.request);
  }
  EXPECT_EQ(textsOfReply(*own, {{"findPort", "db"}, {"portHost", "h"}}),
            (Texts{{"notFound", "notFound"}}));
  for (const Change& each : kChanges) {
    const Texts reply = textsOfReply(*own, textsMessage(each.request));
    EXPECT_TRUE(each.reply.empty() ? reply.size() == 1 && reply[0].first == "portNumber"
                                   : reply == each.reply)
        << ::testing::PrintToString(each.request);
  }
}

TEST_F(Access, ThatOnlyReadsIsTheSameFromElsewhereWithoutRemoteRegistration) {
  server_.setting("RemoteRegistration", "NO");
  start();
  const auto own = connects(here_, "127.0.0.1");
  ASSERT_TRUE(own->sendDictionary(textsMessage(kReconnect)));
  const auto stranger = connects(there_, "2001:db8::1");
  EXPECT_EQ(textsOfReply(*stranger, {{"findPort", "db"}, {"portHost", "h"}}),
            (Texts{{"portNumber", "1"},
                   {"portName", "db"},
                   {"portHostAddress", "h"},
                   {"portHost", "h"},
                   {"portType", "t"}}));
  EXPECT_EQ(textsOfReply(*stranger, request("databaseStates", {})),
            (Texts{{"result", "db:running"}, {"alerts", ""}}));
  EXPECT_EQ(textsOfReply(*stranger, request("watchPortChanges", {})),
            (Texts{{"result", "succeed"}}));
  EXPECT_EQ(textsOfReply(*stranger, request("didPortsChange", {})), (Texts{{"result", "YES"}}));
  EXPECT_EQ(textsOfReply(*stranger, request("hostList", {})), (Texts{{"result", ""}}));
  EXPECT_EQ(textsOfReply(*stranger, request("get_userpreferences", {{"key", "k"}, {"*", "*"}})),
            (Texts{{"result", "none"}}));
  for (const char* const action : {"hostInfo", "changeTimestamp"}) {
    EXPECT_EQ(textsOfReply(*stranger, request(action, {})).front().first, "result") << action;
  }
}

}  // namespace
}  // namespace sorvane::test
