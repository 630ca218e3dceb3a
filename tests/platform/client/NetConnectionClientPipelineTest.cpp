#include <string>

#include "platform/NetConnection.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

constexpr int kRequests = 10000;

Message numbered(int number) { return {{"number", std::to_string(number)}}; }

/// Takes every reply and expects them in the order of the requests.
void expectReplies(NetConnection& connection, int count) {
  for (int number = 0; number < count; ++number) {
    const auto reply = connection.receiveReply();
    ASSERT_TRUE(reply) << number << ": " << connection.lastError();
    ASSERT_EQ(reply->text("number"), std::to_string(number));
  }
}

TEST(Pipelining, OfManyRequestsToAServerThatAnswersLateWorks) {
  ScriptedPeer late([](PeerConnection& client) {
    std::string replies;
    for (int number = 0; number < kRequests; ++number) {
      replies += frameOfBody(client.receiveRequest().value_or(""));
    }
    client.send(replies);
    client.waitForClose();
  });
  NetConnection connection;
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", late.port()));
  for (int number = 0; number < kRequests; ++number) {
    ASSERT_TRUE(connection.sendRequest(numbered(number))) << connection.lastError();
  }
  expectReplies(connection, kRequests);
}

TEST(Pipelining, ToAServerWhoseRepliesFillUpDoesNotEndInBothSidesWaiting) {
  const std::string padding(8192, 'x');
  ScriptedPeer eager([&padding](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(frameOfBody(*request + entry("padding", padding)));
    }
  });
  NetConnection connection;
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", eager.port()));
  Message request;
  for (int number = 0; number < kRequests; ++number) {
    request.setText("number", std::to_string(number)).setData("filling", padding);
    ASSERT_TRUE(connection.sendRequest(request)) << number << ": " << connection.lastError();
  }
  expectReplies(connection, kRequests);
}

TEST(Pipelining, KeepsTheRepliesThatCameBeforeTheServerClosed) {
  ScriptedPeer closing([](PeerConnection& client) {
    std::string replies;
    for (int number = 0; number < 3; ++number) {
      replies += frameOfBody(client.receiveRequest().value_or(""));
    }
    client.send(replies);
  });
  NetConnection connection;
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", closing.port()));
  for (int number = 0; number < 3; ++number) {
    ASSERT_TRUE(connection.sendRequest(numbered(number)));
  }
  expectReplies(connection, 3);
  EXPECT_FALSE(connection.receiveReply());
  EXPECT_EQ(connection.lastError(), "no request waits for a reply");
}

TEST(Pipelining, DoesNotLetASingleRequestTakeAnEarlierReply) {
  ScriptedPeer echo([](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(frameOfBody(*request));
    }
  });
  NetConnection connection;
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", echo.port()));
  ASSERT_TRUE(connection.sendRequest(numbered(0)));
  EXPECT_FALSE(connection.sendDictionary(numbered(1)));
  EXPECT_NE(connection.lastError(), "");
  expectReplies(connection, 1);
  const auto reply = connection.sendDictionary(numbered(2));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->text("number"), "2");
}

TEST(Pipelining, AfterReconnectingStartsAnew) {
  ScriptedPeer echo([](PeerConnection& client) {
    while (const auto request = client.receiveRequest()) {
      client.send(frameOfBody(*request));
    }
  });
  NetConnection connection;
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", echo.port()));
  ASSERT_TRUE(connection.sendRequest(numbered(7)));
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", echo.port()));
  const auto reply = connection.sendDictionary(numbered(8));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->text("number"), "8");
}

}  // namespace
}  // namespace sorvane::test
