#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/Descriptor.h"
#include "platform/TcpPort.h"
#include "support/OwnNamespaces.h"

namespace sorvane {
namespace {

constexpr int kPort = 20221;  // of a network of the test's own

class TcpPort : public testing::Test {
 protected:
  void SetUp() override {
    if (SORVANE_PORTABLE_HOST_NETWORK) {
      GTEST_SKIP() << "this build knows nothing of ports";
    }
    if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }
};

Descriptor listenOn(in_addr_t host) {
  Descriptor socket = openSocket(AF_INET, SOCK_STREAM);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kPort);
  address.sin_addr.s_addr = htonl(host);
  EXPECT_EQ(bind(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(socket.number(), 5), 0);
  return socket;
}

Descriptor listenOnIPv6(const in6_addr& host) {
  Descriptor socket = openSocket(AF_INET6, SOCK_STREAM);
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(kPort);
  address.sin6_addr = host;
  EXPECT_EQ(bind(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(socket.number(), 5), 0);
  return socket;
}

Descriptor connectHere() {
  Descriptor socket = openSocket(AF_INET, SOCK_STREAM);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return socket;
}

TEST_F(TcpPort, WithoutAListenerHasNone) {
  test::inOwnNetwork([] {
    const auto use = useOfTcpPort(kPort);
    ASSERT_TRUE(use.has_value());
    EXPECT_TRUE(use->listeners.empty());
    EXPECT_EQ(use->connections, 0U);
  });
}

TEST_F(TcpPort, TellsAddressUserAndProcessOfItsListener) {
  test::inOwnNetwork([] {
    const Descriptor listener = listenOn(INADDR_LOOPBACK);
    const auto use = useOfTcpPort(kPort);
    ASSERT_EQ(use->listeners.size(), 1U);
    EXPECT_EQ(use->listeners[0].address, "127.0.0.1");
    EXPECT_TRUE(use->listeners[0].isLoopback);
    EXPECT_EQ(use->listeners[0].user, geteuid());
    EXPECT_EQ(use->listeners[0].process, getpid());
    EXPECT_TRUE(useOfTcpPort(kPort + 1)->listeners.empty()) << "of another port";
  });
}

TEST_F(TcpPort, TellsThatAListenerTakesAllAddresses) {
  test::inOwnNetwork([] {
    const Descriptor listener = listenOn(INADDR_ANY);
    EXPECT_EQ(useOfTcpPort(kPort)->listeners.at(0).address, "0.0.0.0");
    EXPECT_FALSE(useOfTcpPort(kPort)->listeners.at(0).isLoopback);
  });
  test::inOwnNetwork([] {
    const Descriptor listener = listenOnIPv6(in6addr_any);
    EXPECT_EQ(useOfTcpPort(kPort)->listeners.at(0).address, "::");
  });
  test::inOwnNetwork([] {
    const Descriptor listener = listenOnIPv6(in6addr_loopback);
    EXPECT_EQ(useOfTcpPort(kPort)->listeners.at(0).address, "::1");
    EXPECT_TRUE(useOfTcpPort(kPort)->listeners.at(0).isLoopback);
  });
}

TEST_F(TcpPort, CountsTheConnectionsOfTheListenerAndNotThoseOfItsClients) {
  test::inOwnNetwork([] {
    const Descriptor listener = listenOn(INADDR_ANY);
    const Descriptor one = connectHere();
    const Descriptor other = connectHere();
    EXPECT_EQ(useOfTcpPort(kPort)->connections, 2U);
  });
}

TEST_F(TcpPort, ProcessOfAnotherUserIsNotTold) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can become another user";
  }
  test::inOwnNetwork([] {
    Descriptor listener = listenOn(INADDR_ANY);
    test::inOwnProcess([&listener] {
      listener.close();  // the child's copy
      ASSERT_EQ(setuid(65001), 0);
      const auto use = useOfTcpPort(kPort);
      ASSERT_EQ(use->listeners.size(), 1U);
      EXPECT_EQ(use->listeners[0].user, 0U);
      EXPECT_EQ(use->listeners[0].process, std::nullopt);
    });
  });
}

TEST(EphemeralPorts, AreThoseOfTheRangeThatAreNotReserved) {
  const EphemeralPorts ports{32768, 60999, "33000,34000-34010"};
  for (const int inside : {32768, 32999, 33001, 33999, 34011, 60999}) {
    EXPECT_TRUE(ports.contain(inside)) << inside;
  }
  for (const int outside : {20221, 32767, 33000, 34000, 34005, 34010, 61000}) {
    EXPECT_FALSE(ports.contain(outside)) << outside;
  }
}

TEST_F(TcpPort, EphemeralPortsAreThoseOfTheSystem) {
  test::inOwnNetwork([] {
    test::shell("echo 20000 30000 > /proc/sys/net/ipv4/ip_local_port_range");
    test::shell("echo 20221 > /proc/sys/net/ipv4/ip_local_reserved_ports");
    const auto ports = ephemeralPorts();
    ASSERT_TRUE(ports.has_value());
    EXPECT_EQ(ports->first, 20000);
    EXPECT_EQ(ports->last, 30000);
    EXPECT_EQ(ports->reserved, "20221");
  });
}

}  // namespace
}  // namespace sorvane
