// Database hosts that vanish without a word, as by a power cut.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "integration/Daemon.h"
#include "integration/NetworkNamespace.h"
#include "support/Texts.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPromised{30};

class VanishedPeer : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    connectByCable(here_, "192.0.2.1/24", there_, "192.0.2.2/24");
    server_.launch({"-verbose"}, [this] { here_.enter(); });
    ASSERT_TRUE(server_.logs("succeeded. "));
    tool_ = connects(here_);
  }

  [[nodiscard]] std::unique_ptr<NetConnection> connects(const NetworkNamespace& host) const {
    auto made = std::make_unique<NetConnection>();
    onNetworkOf(host, [&] {
      EXPECT_TRUE(made->connectToPort("192.0.2.1", server_.basePort())) << made->lastError();
    });
    return made;
  }

  [[nodiscard]] std::unique_ptr<NetConnection> registers(const NetworkNamespace& host,
                                                         const std::string& name) const {
    auto database = connects(host);
    EXPECT_TRUE(database->sendDictionary(
        {{"reconnectPort", name}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}}));
    return database;
  }

  [[nodiscard]] bool finds(const std::string& name) {
    return tool_->sendDictionary({{"findPort", name}, {"portHost", "h"}})->contains("portNumber");
  }

  NetworkNamespace here_;
  NetworkNamespace there_;
  Daemon server_;
  std::unique_ptr<NetConnection> tool_;
};

TEST_F(VanishedPeer, IsForgottenWithinThirtySecondsEvenWithRepliesUnderWay) {
  const auto near = registers(here_, "near");
  const auto quiet = registers(there_, "quiet");
  const auto waiting = registers(there_, "waiting");
  ASSERT_TRUE(waiting->sendDictionary(request("awaitPortChanges", {})));
  for (int i = 0; i < 2; ++i) {  // the second one waits behind the first
    ASSERT_TRUE(waiting->sendRequest(request("awaitPortChanges", {{"timeout", "300"}})));
  }
  const auto deaf = registers(there_, "deaf");
  ASSERT_TRUE(deaf->sendDictionary(
      request("set_userpreferences", {{"key", "anna"}, {"databases", std::string(500000, 'x')}})));
  for (int i = 0; i < 100; ++i) {  // more replies than the system's buffers take
    ASSERT_TRUE(deaf->sendRequest(request("get_userpreferences", {{"key", "anna"}})));
  }
  ASSERT_TRUE(finds("quiet") && finds("waiting") && finds("deaf"));

  const auto vanished = Clock::now();
  there_.run("ip", {"link", "set", "eth0", "down"});
  EXPECT_TRUE(finds("quiet") && finds("waiting") && finds("deaf"))
      << "nobody has said that they are gone";
  // Those who wait are told of a change just before their silence is noticed.
  std::this_thread::sleep_until(vanished + std::chrono::seconds(13));
  ASSERT_TRUE(tool_->sendDictionary(request("needsRefresh", {})));
  for (const char* const name : {"quiet", "waiting", "deaf"}) {
    EXPECT_TRUE(waitUntil([&] { return !finds(name); }, kPromised)) << name;
    EXPECT_LT(Clock::now() - vanished, kPromised) << name;
  }
  EXPECT_TRUE(finds("near")) << "whoever is quiet but there stays";
}

}  // namespace
}  // namespace sorvane::test
