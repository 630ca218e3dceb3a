// What "net --watch" prints about name servers that come, change and leave.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "sorvctl/net/Watch.h"
#include "support/ScriptedPeer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvctl::net {
namespace {

using namespace std::chrono_literals;
using sorvane::test::frameOfTexts;
using sorvane::test::PeerConnection;
using sorvane::test::ScriptedPeer;
using sorvane::test::waitUntil;

/// A name server with the database "db1".
class NetWatching : public testing::Test {
 protected:
  NetWatching() { testing::internal::CaptureStdout(); }
  ~NetWatching() override {
    EXPECT_TRUE(waitUntil([this] { return watching.end(); }));
  }

  [[nodiscard]] Server serverAt(const std::vector<std::string>& hosts) const {
    return {"alpha", hosts, peer.port()};
  }
  /// Follows these servers until something was seen on a new connection: the next question comes
  /// after that.
  void follows(const std::vector<Server>& servers) {
    const int before = connections;
    watching.follow(servers);
    EXPECT_TRUE(waitUntil([&] { return connections > before && questions > 1; }));
    watching.tell();
  }
  static std::string printed() { return testing::internal::GetCapturedStdout(); }

  std::atomic<int> connections = 0;
  std::atomic<int> questions = 0;  // of the latest connection, whether something has changed
  const ScriptedPeer peer{[this](PeerConnection& client) {
    questions = 0;
    ++connections;
    while (const auto request = client.receiveRequest()) {
      if (request->find("didPortsChange") != std::string::npos) {
        client.send(frameOfTexts({{"result", questions++ == 0 ? "YES" : "NO"}}));
      } else if (request->find("databaseStates") != std::string::npos) {
        client.send(frameOfTexts({{"result", "db1:running"}, {"alerts", ""}}));
      } else {
        client.send(frameOfTexts({{"portNumber", "20222"}, {"portName", "db1"}}));
      }
    }
  }};
  const Session session{Options{}};
  Watching watching{session, 1ms};
};

TEST_F(NetWatching, TellsOfAServerThatAnswersAndLeaves) {
  follows({serverAt({"127.0.0.1"})});
  watching.follow({});
  EXPECT_EQ(printed(), "alpha: answers\nalpha: came db1 number=20222 state=running\nalpha: left\n");
}

TEST_F(NetWatching, TellsNothingWhenOnlyTheAddressesOfAServerChange) {
  follows({serverAt({"127.0.0.1"})});
  follows({serverAt({"127.0.0.1", "127.0.0.2"})});
  EXPECT_EQ(printed(), "alpha: answers\nalpha: came db1 number=20222 state=running\n");
}

}  // namespace
}  // namespace sorvctl::net
