// How a connection ends: what is still answered, what is forgotten, and when.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>

#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kReplyBytes = 500000;
constexpr int kReplies = 40;  // more than the system's buffers take

class ConnectionEnd : public testing::Test {
 protected:
  void SetUp() override {
    server_.start();
    ASSERT_TRUE(owner_.emplace(server_.rawConnection())
                    .ask(Message({{"reconnectPort", "db1"},
                                  {"portNumber", "1"},
                                  {"portHost", "h"},
                                  {"portType", std::string(kReplyBytes, 'x')}})));
  }

  /// Short requests whose replies are long.
  [[nodiscard]] static std::string requests() {
    std::string many;
    for (int i = 0; i < kReplies; ++i) {
      many += frame(Message({{"findPort", "db1"}, {"portHost", std::to_string(i)}}));
    }
    return many;
  }
  static void expectAllReplies(RawConnection& client) {
    for (int i = 0; i < kReplies; ++i) {
      const auto reply = client.receiveFrame();
      ASSERT_TRUE(reply) << i;
      ASSERT_GE(reply->body.size(), kReplyBytes);
      ASSERT_EQ(reply->message().text("portHostAddress"), std::to_string(i));
    }
  }

  Daemon server_;

 private:
  std::optional<RawConnection> owner_;
};

TEST_F(ConnectionEnd, ByTheClientsWritingSideComesAfterEveryReply) {
  RawConnection client = server_.rawConnection();
  ASSERT_TRUE(client.send(requests()));
  client.shutdownWriting();
  expectAllReplies(client);
  EXPECT_TRUE(client.isClosedByPeer());
}

TEST_F(ConnectionEnd, ByABadFrameComesAfterEveryReplyToTheRequestsBefore) {
  RawConnection client = server_.rawConnection();
  ASSERT_TRUE(client.send(requests() + "nonsense"));
  expectAllReplies(client);
  EXPECT_TRUE(client.isClosedByPeer());
  EXPECT_TRUE(server_.complains("connection closed, wrong mark\n"));
}

TEST_F(ConnectionEnd, ByABadFrameDropsWhatTheClientGoesOnToSendForASecond) {
  RawConnection client = server_.rawConnection();
  const auto began = Clock::now();
  ASSERT_TRUE(client.send("nonsense"));
  EXPECT_TRUE(client.isClosedByPeer()) << "the server's writing side is shut at once";
  EXPECT_LT(Clock::now() - began, milliseconds(900));
  const std::string more(10000, 'x');
  while (client.send(more)) {
    ASSERT_LT(Clock::now() - began, std::chrono::seconds(20)) << "it takes more and more";
  }
  EXPECT_GE(Clock::now() - began, milliseconds(990));
  EXPECT_EQ(timesIn(server_.console(), "connection closed"), 1) << "one line for one connection";
}

TEST_F(ConnectionEnd, ByAResetForgetsWhatWasRegisteredAndWhatWasAsked) {
  RawConnection database = server_.rawConnection();
  ASSERT_TRUE(database.ask(Message(
      {{"reconnectPort", "db2"}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}})));
  ASSERT_TRUE(database.send(requests()));
  const linger reset{1, 0};
  ASSERT_EQ(setsockopt(database.descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset), 0);
  database.close();
  EXPECT_TRUE(waitUntil([this] { return !server_.finds("db2"); }));
  EXPECT_TRUE(server_.finds("db1"));
  EXPECT_EQ(server_.console(), "");
}

}  // namespace
}  // namespace sorvane::test
