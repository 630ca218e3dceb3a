#include <chrono>
#include <future>
#include <string>

#include "platform/NetConnection.h"
#include "platform/wire/Frame.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

const Message kRequest{{"findPort", "db1"}, {"portHost", "localhost"}};

/// A client connected to a peer that follows the script.
class Conversation {
 public:
  explicit Conversation(ScriptedPeer::Script script) : peer_(std::move(script)) {
    EXPECT_TRUE(connection.connectToPort("127.0.0.1", peer_.port())) << connection.lastError();
  }

 private:
  ScriptedPeer peer_;

 public:
  NetConnection connection;
};

/// A peer that answers the first request with these bytes and then says no more.
ScriptedPeer::Script answers(std::string bytes) {
  return [bytes = std::move(bytes)](PeerConnection& client) {
    if (client.receiveRequest()) {
      client.send(bytes);
      client.waitForClose();
    }
  };
}

struct BadReply {
  const char* what;
  std::string bytes;
};

std::string body(std::string_view key, std::string_view value) { return entry(key, value); }

TEST(MalformedReply, EndsTheConnectionWithAReason) {
  const std::string good = body("a", "1");
  const BadReply replies[] = {
      {"the mark", frameWith("SX", 1, 1, good.size(), good)},
      {"the version", frameWith("SV", 2, 1, good.size(), good)},
      {"the kind", frameWith("SV", 1, 2, good.size(), good)},
      {"no dictionary with a body", frameWith("SV", 1, 0, good.size(), good)},
      {"a body above the limit", frameWith("SV", 1, 1, kMaximumReplyBytes + 1, "")},
      {"a length of all ones", frameWith("SV", 1, 1, 0xFFFFFFFF, "")},
      {"an entry cut in its lengths", frameOfBody(good.substr(0, 3))},
      {"an entry cut in its key", frameOfBody(std::string("\0\5\0\0\0\0ab", 8))},
      {"an entry cut in its value", frameOfBody(std::string("\0\1\0\0\0\7ab", 8))},
      {"a repeated key", frameOfBody(good + good)},
      {"a key that is not UTF-8", frameOfBody(body("\xC3", "1"))},
      {"a key with a NUL", frameOfBody(body(std::string("a\0b", 3), "1"))},
      {"another protocol", "HTTP/1.1 400 Bad Request\r\n\r\n"},
  };
  for (const BadReply& reply : replies) {
    Conversation peer(answers(reply.bytes));
    EXPECT_FALSE(peer.connection.sendDictionary(kRequest)) << reply.what;
    EXPECT_EQ(peer.connection.lastError().find("malformed reply from 127.0.0.1 port "), 0U)
        << reply.what << ": " << peer.connection.lastError();
    EXPECT_FALSE(peer.connection.isConnected()) << reply.what;
    EXPECT_FALSE(peer.connection.wasClosedByPeer()) << reply.what;
  }
}

TEST(MalformedReply, LeavesTheRepliesBeforeIt) {
  Conversation peer(answers(frameOfTexts({{"result", "succeed"}}) + "rubbish"));
  ASSERT_TRUE(peer.connection.sendRequest(kRequest));
  ASSERT_TRUE(peer.connection.sendRequest(kRequest));
  const auto reply = peer.connection.receiveReply();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->text("result"), "succeed");
  EXPECT_FALSE(peer.connection.receiveReply());
  EXPECT_NE(peer.connection.lastError(), "");
}

TEST(Reply, KeepsItsEntriesInOrder) {
  Conversation peer(answers(frameOfTexts({{"z", "1"}, {"a", "2"}, {"", "3"}})));
  const auto reply = peer.connection.sendDictionary(kRequest);
  ASSERT_TRUE(reply);
  ASSERT_EQ(reply->entries().size(), 3U);
  EXPECT_EQ(reply->entries()[0].key, "z");
  EXPECT_EQ(reply->entries()[2].value, std::string_view("3\0", 2));
}

TEST(Reply, OutlivesTheConnection) {
  std::optional<Message> reply;
  {
    Conversation peer(answers(frameOfTexts({{"result", "succeed"}})));
    reply = peer.connection.sendDictionary(kRequest);
  }
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->text("result"), "succeed");
}

TEST(Reply, MayComeByteByByte) {
  Conversation peer([](PeerConnection& client) {
    if (client.receiveRequest()) {
      for (const char byte : frameOfTexts({{"result", "succeed"}})) {
        client.send(std::string_view(&byte, 1));
      }
      client.waitForClose();
    }
  });
  const auto reply = peer.connection.sendDictionary(kRequest);
  ASSERT_TRUE(reply) << peer.connection.lastError();
  EXPECT_EQ(reply->text("result"), "succeed");
}

TEST(Reply, OfTheGreatestLengthIsTaken) {
  const std::string value(kMaximumReplyBytes - 7, 'x');
  Conversation peer(answers(frameOfBody(entry("a", value))));
  const auto reply = peer.connection.sendDictionary(kRequest);
  ASSERT_TRUE(reply) << peer.connection.lastError();
  EXPECT_EQ(reply->data("a"), value);
}

TEST(Reply, MayBeLimitedToFewerBytes) {
  const std::string fits = frameOfBody(entry("a", std::string(93, 'x')));
  const std::string tooLong = frameOfBody(entry("a", std::string(94, 'x')));
  Conversation peer(answers(fits + tooLong));
  peer.connection.setMaximumReplyBytes(100);
  ASSERT_TRUE(peer.connection.sendRequest(kRequest));
  ASSERT_TRUE(peer.connection.sendRequest(kRequest));
  EXPECT_TRUE(peer.connection.receiveReply()) << peer.connection.lastError();
  EXPECT_FALSE(peer.connection.receiveReply());
  EXPECT_NE(peer.connection.lastError().find("a body above the limit"), std::string::npos);
  EXPECT_FALSE(peer.connection.isConnected());
}

TEST(Reply, CannotBeAllowedMoreBytesThanTheGreatestLength) {
  Conversation peer(answers(frameWith("SV", 1, 1, kMaximumReplyBytes + 1, "")));
  peer.connection.setMaximumReplyBytes(kMaximumReplyBytes * 2);
  EXPECT_FALSE(peer.connection.sendDictionary(kRequest));
  EXPECT_NE(peer.connection.lastError().find("a body above the limit"), std::string::npos);
}

TEST(NilReply, IsNothingWithoutAnErrorAndTheConnectionGoesOn) {
  Conversation peer([](PeerConnection& client) {
    for (const std::string& reply : {nilFrame(), frameOfBody(""), nilFrame()}) {
      if (client.receiveRequest()) {
        client.send(reply);
      }
    }
    client.waitForClose();
  });
  EXPECT_FALSE(peer.connection.sendDictionary(kRequest));
  EXPECT_EQ(peer.connection.lastError(), "");
  EXPECT_TRUE(peer.connection.isConnected());
  const auto empty = peer.connection.sendDictionary(kRequest);
  ASSERT_TRUE(empty) << "an empty dictionary is a reply";
  EXPECT_TRUE(empty->entries().empty());
  EXPECT_FALSE(peer.connection.sendDictionary(kRequest));
  EXPECT_EQ(peer.connection.lastError(), "");
}

TEST(SilentServer, EndsTheConnectionAtTheLimit) {
  Conversation peer([](PeerConnection& client) { client.waitForClose(); });
  peer.connection.setTimeLimits(5s, 100ms);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(peer.connection.sendDictionary(kRequest));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
  EXPECT_NE(peer.connection.lastError().find("no answer in time"), std::string::npos);
  EXPECT_FALSE(peer.connection.isConnected()) << "a late reply would answer the next request";
  EXPECT_FALSE(peer.connection.wasClosedByPeer());
}

TEST(SlowServer, IsHeldToTheLimitHoweverOftenItSendsAByte) {
  Conversation peer([](PeerConnection& client) {
    (void)client.receiveRequest();
    client.send(frameWith("SV", 1, 1, 1000000, ""));
    while (!client.isClosedByPeer(1ms) && client.send("x")) {
    }
  });
  peer.connection.setTimeLimits(5s, 150ms);
  EXPECT_FALSE(peer.connection.sendDictionary(kRequest));
  EXPECT_NE(peer.connection.lastError().find("no answer in time"), std::string::npos);
}

TEST(ServerThatDoesNotRead, EndsTheSendingAtTheLimit) {
  std::promise<void> over;
  Conversation peer([over = over.get_future().share()](PeerConnection&) { over.wait(); });
  peer.connection.setTimeLimits(5s, 150ms);
  Message large;
  large.setData("a", std::string(std::size_t{32} << 20, 'x'));
  EXPECT_FALSE(peer.connection.sendRequest(large));
  EXPECT_NE(peer.connection.lastError().find("did not take the request in time"),
            std::string::npos);
  over.set_value();
}

TEST(ServerThatCloses, IsToldApartFromASilentOne) {
  Conversation peer([](PeerConnection& client) { (void)client.receiveRequest(); });
  EXPECT_FALSE(peer.connection.sendDictionary(kRequest));
  EXPECT_TRUE(peer.connection.wasClosedByPeer());
  EXPECT_NE(peer.connection.lastError().find("closed the connection"), std::string::npos);
}

TEST(ServerThatCloses, InTheMiddleOfAReplyGivesNone) {
  const std::string frame = frameOfTexts({{"result", "succeed"}});
  for (std::size_t length = 0; length < frame.size(); ++length) {
    Conversation peer([&frame, length](PeerConnection& client) {
      (void)client.receiveRequest();
      client.send(std::string_view(frame).substr(0, length));
    });
    EXPECT_FALSE(peer.connection.sendDictionary(kRequest)) << length;
    EXPECT_TRUE(peer.connection.wasClosedByPeer()) << length;
  }
}

TEST(SendDictionary, SendsTheFrame) {
  std::string received;
  const std::string expected = frameOfTexts({{"findPort", "db1"}, {"portHost", "localhost"}});
  {
    Conversation peer([&](PeerConnection& client) {
      received = client.receive(expected.size());
      client.send(nilFrame());
    });
    EXPECT_FALSE(peer.connection.sendDictionary(kRequest));
    EXPECT_EQ(peer.connection.lastError(), "");
  }
  EXPECT_EQ(received, expected);
}

TEST(SendData, SendsTheBytesAsTheyAreAndTheTextsWithTheirNul) {
  std::optional<std::string> received;
  {
    Conversation peer([&](PeerConnection& client) {
      received = client.receiveRequest();
      client.send(frameOfTexts({{"result", "succeed"}}));
    });
    EXPECT_TRUE(
        peer.connection.sendData(std::string_view("{\0}", 3), "setDatabasePreferences7", "secret"));
  }
  EXPECT_EQ(received, entry("data", std::string("{\0}", 3)) +
                          entry("action", std::string("setDatabasePreferences7\0", 24)) +
                          entry("parameter", std::string("secret\0", 7)));
}

TEST(SendDictionary, WithoutAConnectionTellsSo) {
  NetConnection connection;
  EXPECT_FALSE(connection.sendDictionary(kRequest));
  EXPECT_EQ(connection.lastError(), "not connected");
  EXPECT_FALSE(connection.receiveReply());
  EXPECT_EQ(connection.lastError(), "not connected");
}

}  // namespace
}  // namespace sorvane::test
