// A peer whose address the system does not tell: it may be anybody.
#include <errno.h>
#include <gtest/gtest.h>

#include "faults/FailingDaemon.h"
#include "integration/Client.h"

namespace sorvane::test {
namespace {

constexpr Fault kNotTold{Call::peerName, 1, ENOTCONN};

TEST(PeerWhoseAddressIsNotTold, IsInNoAllowedNetwork) {
  FailingDaemon daemon;  // it allows the loopback network alone
  daemon.start();
  daemon.countCallsAndFail(kNotTold);
  RawConnection stranger = daemon.server().rawConnection();
  EXPECT_TRUE(stranger.isClosedByPeer());
  EXPECT_TRUE(daemon.hasFailed());
  EXPECT_TRUE(daemon.server().complains("AllowedNetworks has no network for it"));
  EXPECT_TRUE(daemon.server().answers()) << "the next one is known again";
}

TEST(PeerWhoseAddressIsNotTold, IsNotThisMachine) {
  FailingDaemon daemon;
  daemon.server().setting("RemoteRegistration", "NO");
  daemon.start();
  RawConnection peer = daemon.server().rawConnection();
  ASSERT_TRUE(peer.ask(Message({{"ping", ""}})));
  daemon.countCallsAndFail(kNotTold);
  const auto refused = peer.ask(Client::reconnection("db1", "1"));
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->kind, 0) << "it has registered";
  EXPECT_TRUE(daemon.hasFailed());
  EXPECT_FALSE(daemon.server().finds("db1"));
  const auto taken = peer.ask(Client::reconnection("db1", "1"));
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->kind, 1) << "it is known again";
}

}  // namespace
}  // namespace sorvane::test
