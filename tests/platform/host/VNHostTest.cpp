#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "platform/RecordedSockets.h"
#include "platform/Settings.h"
#include "platform/VNHost.h"
#include "platform/host/HostNetwork.h"
#include "support/OwnNamespaces.h"

namespace sorvane {
namespace {

using test::shell;

/// Each test runs in a network of its own, whose cards lead to nobody.
class HostInOwnNetwork : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }

  static void in(const std::function<void()>& body) {
    test::inOwnNetwork([&] {
      useSettings([](Settings&) {});
      body();
    });
  }

  static void addCard(const std::string& name, const std::string& ethernet,
                      const std::string& address) {
    const std::string otherEnd = name + "end";
    shell("ip link add " + name + " address " + ethernet + " type veth peer name " + otherEnd);
    shell("ip link set " + otherEnd + " up && ip link set " + name + " up");
    shell("ip addr add " + address + " dev " + name);
  }

  static void useSettings(const std::function<void(Settings&)>& change) {
    Settings settings;
    change(settings);
    Settings::replaceForTest(settings);
    VNHost::resetForTest();
  }
};

TEST_F(HostInOwnNetwork, WithoutACardHasTheLoopbackAddress) {
  in([] {
    EXPECT_EQ(VNHost::currentHost().address(), "127.0.0.1");
    EXPECT_EQ(VNHost::currentHost().ethernetAddress(), "00:00:00:00:00:00");
    EXPECT_FALSE(VNHost::currentHost().isDynamic());
    EXPECT_TRUE(VNHost::validateCurrentHost());
  });
}

TEST_F(HostInOwnNetwork, WithoutADefaultRouteHasTheFirstAddress) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    addCard("eth1", "02:00:00:00:0a:02", "10.2.0.1/24");
    EXPECT_EQ(VNHost::currentHost().address(), "10.1.0.1");
    EXPECT_EQ(VNHost::currentHost().ethernetAddress(), "02:00:00:00:0a:01");
  });
}

TEST_F(HostInOwnNetwork, PassesOverACardThatIsDown) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    addCard("eth1", "02:00:00:00:0a:02", "10.2.0.1/24");
    shell("ip link set eth0 down");
    EXPECT_EQ(VNHost::currentHost().address(), "10.2.0.1");
  });
}

TEST_F(HostInOwnNetwork, HasTheAddressOfTheDefaultRoutesCard) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    addCard("eth1", "02:00:00:00:0a:02", "10.2.0.1/24");
    shell("ip route add default via 10.2.0.254");
    EXPECT_EQ(VNHost::currentHost().address(), "10.2.0.1");
    EXPECT_EQ(VNHost::currentHost().ethernetAddress(), "02:00:00:00:0a:02");
  });
}

TEST_F(HostInOwnNetwork, TakesTheDefaultRouteOfTheLowestMetric) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    addCard("eth1", "02:00:00:00:0a:02", "10.2.0.1/24");
    shell("ip route add default via 10.1.0.254 metric 600");
    shell("ip route add default via 10.2.0.254 metric 100");
    EXPECT_EQ(VNHost::currentHost().address(), "10.2.0.1");
  });
}

TEST_F(HostInOwnNetwork, TakesTheAddressThatTheDefaultRoutePrefers) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    shell("ip addr add 10.1.0.9/24 dev eth0");
    shell("ip route add default via 10.1.0.254 src 10.1.0.9");
    EXPECT_EQ(VNHost::currentHost().address(), "10.1.0.9");
  });
}

TEST_F(HostInOwnNetwork, TakesTheFirstWayOfADefaultRouteWithSeveral) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    addCard("eth1", "02:00:00:00:0a:02", "10.2.0.1/24");
    shell("ip route add default nexthop dev eth1 nexthop dev eth0");
    const std::string address = VNHost::currentHost().address();
    // A system that is only asked for one way may give either.
    EXPECT_TRUE(address == "10.2.0.1" || (SORVANE_PORTABLE_HOST_NETWORK && address == "10.1.0.1"));
  });
}

TEST_F(HostInOwnNetwork, IsDynamicWhenItsAddressHasALimitedLifetime) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24 valid_lft 3600 preferred_lft 1800");
    EXPECT_TRUE(VNHost::currentHost().isDynamic());
    useSettings([](Settings& settings) { settings.dynamicAddress = false; });
    EXPECT_FALSE(VNHost::currentHost().isDynamic());
    useSettings([](Settings& settings) { settings.localAccessOnly = true; });
    EXPECT_FALSE(VNHost::currentHost().isDynamic()) << "127.0.0.1 is not assigned";
    useSettings([](Settings& settings) { settings.address = "10.9.9.9"; });
    EXPECT_FALSE(VNHost::currentHost().isDynamic()) << "the address is set";
  });
}

TEST_F(HostInOwnNetwork, IsNotDynamicWhenItsAddressLastsUnlessTheSettingsSaySo) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    // Where the system does not tell how long the address lasts, it may change.
    EXPECT_EQ(VNHost::currentHost().isDynamic(), SORVANE_PORTABLE_HOST_NETWORK);
    useSettings([](Settings& settings) { settings.dynamicAddress = true; });
    EXPECT_TRUE(VNHost::currentHost().isDynamic());
  });
}

TEST_F(HostInOwnNetwork, IsValidUntilItsAddressChanges) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    VNHost::currentHost();
    EXPECT_TRUE(VNHost::validateCurrentHost());
    shell("ip addr add 10.1.0.2/24 dev eth0");
    EXPECT_TRUE(VNHost::validateCurrentHost()) << "a further address changes nothing";
    shell("ip addr flush dev eth0 && ip addr add 10.1.0.3/24 dev eth0");
    EXPECT_FALSE(VNHost::validateCurrentHost());
    EXPECT_EQ(VNHost::currentHost().address(), "10.1.0.1") << "the object keeps its answers";
    shell("ip addr flush dev eth0 && ip addr add 10.1.0.1/24 dev eth0");
    EXPECT_TRUE(VNHost::validateCurrentHost());
  });
}

TEST_F(HostInOwnNetwork, IsInvalidWhenItsAddressGoes) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    VNHost::currentHost();
    shell("ip link del eth0");
    EXPECT_FALSE(VNHost::validateCurrentHost());
  });
}

TEST_F(HostInOwnNetwork, SettingsDoNotEnterIntoItsValidity) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    useSettings([](Settings& settings) { settings.address = "10.9.9.9"; });
    EXPECT_EQ(VNHost::currentHost().address(), "10.9.9.9");
    EXPECT_TRUE(VNHost::validateCurrentHost());
    shell("ip link del eth0");
    EXPECT_FALSE(VNHost::validateCurrentHost());
  });
}

TEST_F(HostInOwnNetwork, IsValidWhileTheSystemCannotBeAsked) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    VNHost::currentHost();
    rlimit none{0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(readHostNetwork().has_value(), false);
    EXPECT_TRUE(VNHost::validateCurrentHost());
  });
}

TEST_F(HostInOwnNetwork, IsValidWhileTheSystemGivesNoSocketToLookAtTheRoutes) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    addCard("eth1", "02:00:00:00:0a:02", "10.2.0.1/24");
    shell("ip route add default via 10.2.0.254");
    VNHost::currentHost();
    test::RecordedSockets sockets;
    sockets.refuse(SORVANE_PORTABLE_HOST_NETWORK ? AF_INET : AF_NETLINK, ENOBUFS);
    EXPECT_EQ(readHostNetwork().has_value(), false);
    EXPECT_TRUE(VNHost::validateCurrentHost());
  });
}

TEST_F(HostInOwnNetwork, IsLookedAtBySocketsThatNoStartedProgramInherits) {
  in([] {
    const test::RecordedSockets sockets;
    ASSERT_TRUE(readHostNetwork().has_value());
    ASSERT_FALSE(sockets.all().empty());
    for (const test::SocketRequest& each : sockets.all()) {
      EXPECT_NE(each.type & SOCK_CLOEXEC, 0) << each.family;
    }
  });
}

TEST_F(HostInOwnNetwork, AnswersWhatTheSettingsSay) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    useSettings([](Settings& settings) {
      settings.hostName = "db.example";
      settings.address = "10.9.9.9";
      settings.ethernetAddress = "02:00:00:00:00:ff";
      settings.bonjourDisabled = true;
    });
    EXPECT_EQ(VNHost::currentHost().name(), "db.example");
    EXPECT_EQ(VNHost::currentHost().address(), "10.9.9.9");
    EXPECT_EQ(VNHost::currentHost().ethernetAddress(), "02:00:00:00:00:ff");
    EXPECT_TRUE(VNHost::currentHost().isBonjourDisabled());
    EXPECT_FALSE(VNHost::currentHost().isLocalAccessOnly());
  });
}

TEST_F(HostInOwnNetwork, WithAFixedAddressHasTheHardwareAddressOfItsCard) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    addCard("eth1", "02:00:00:00:0a:02", "10.2.0.1/24");
    useSettings([](Settings& settings) { settings.address = "10.2.0.1"; });
    EXPECT_EQ(VNHost::currentHost().ethernetAddress(), "02:00:00:00:0a:02");
  });
}

TEST_F(HostInOwnNetwork, ForLocalAccessOnlyHasTheLoopbackAddressWhateverIsSet) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    shell("ip route add default via 10.1.0.254");
    useSettings([](Settings& settings) {
      settings.localAccessOnly = true;
      settings.address = "10.9.9.9";
    });
    EXPECT_TRUE(VNHost::currentHost().isLocalAccessOnly());
    EXPECT_EQ(VNHost::currentHost().address(), "127.0.0.1");
    EXPECT_EQ(VNHost::currentHost().ethernetAddress(), "02:00:00:00:0a:01");
  });
}

TEST_F(HostInOwnNetwork, KnowsItsNamesAndAddresses) {
  in([] {
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    shell("ip addr add 10.1.0.2/24 dev eth0");
    shell("ip -6 addr add fd00::5/64 dev eth0 nodad");
    useSettings([](Settings& settings) { settings.hostName = "db1.example.com"; });
    char system[256] = {};
    ASSERT_EQ(gethostname(system, sizeof system - 1), 0);
    const VNHost& host = VNHost::currentHost();
    for (const std::string own :
         {"db1.example.com", "DB1.Example.COM", "db1.example.com.", "db1", "localhost", "LocalHost",
          static_cast<const char*>(system), "127.0.0.1", "127.1.2.3", "::1", "::ffff:127.0.0.1",
          "10.1.0.1", "10.1.0.2", "::ffff:10.1.0.2", "fd00::5", "fd00:0:0::5", "fd00::5%eth0"}) {
      EXPECT_TRUE(host.isThisHost(own)) << own;
    }
    for (const std::string other : {"", ".", "db2", "db1.example.org", "db", "example.com",
                                    "10.1.0.3", "128.0.0.1", "fd00::6", "::", "::ffff:10.1.0.3"}) {
      EXPECT_FALSE(host.isThisHost(other)) << other;
    }
  });
}

TEST_F(HostInOwnNetwork, WithManyCardsIsReadWhole) {
  in([] {
    constexpr std::size_t kPairs = 150;
    shell("for i in $(seq " + std::to_string(kPairs) +
          "); do ip link add card$i type veth peer name end$i || exit 1; done");
    addCard("eth0", "02:00:00:00:0a:01", "10.1.0.1/24");
    EXPECT_EQ(VNHost::currentHost().address(), "10.1.0.1");
    EXPECT_EQ(readHostNetwork()->interfaces.size(), 1 + 2 * (kPairs + 1)) << "with the loopback";
  });
}

TEST(VNHost, IsOneObjectForAllThreads) {
  Settings::replaceForTest(Settings());
  VNHost::resetForTest();
  const VNHost* seen[4] = {};
  std::vector<std::thread> threads;
  for (const VNHost*& each : seen) {
    threads.emplace_back([&each] { each = &VNHost::currentHost(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const VNHost* each : seen) {
    EXPECT_EQ(each, &VNHost::currentHost());
  }
}

TEST(VNHost, WithoutASettingHasTheSystemsName) {
  Settings::replaceForTest(Settings());
  VNHost::resetForTest();
  char name[256] = {};
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  EXPECT_EQ(VNHost::currentHost().name(), name);
}

}  // namespace
}  // namespace sorvane
