// Bytes that are no requests: what the name server does with the connection on which they come, and
// with all the others.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ostream>

#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

using namespace std::string_literals;

/// The client's end, as the server's console names its peer.
std::string ownAddress(const RawConnection& client) {
  sockaddr_in address{};
  socklen_t bytes = sizeof address;
  EXPECT_EQ(getsockname(client.descriptor(), reinterpret_cast<sockaddr*>(&address), &bytes), 0);
  return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

Message reconnection(std::string_view name) {
  return {{"reconnectPort", name}, {"portNumber", "7"}, {"portHost", "h"}, {"portType", "t"}};
}

// ---- Each fault

struct BadFrame {
  const char* name;
  std::string bytes;
  const char* reason;
};

void PrintTo(const BadFrame& bad, std::ostream* out) { *out << bad.name; }

class MalformedFrame : public testing::TestWithParam<BadFrame> {
 protected:
  Daemon server_;
};

TEST_P(MalformedFrame, CostsItsSenderTheConnectionAndOneConsoleLineAndNobodyElseAnything) {
  server_.start();
  ASSERT_TRUE(server_.registers("db1"));
  RawConnection sender = server_.rawConnection();
  ASSERT_TRUE(sender.ask(reconnection("of the sender")));
  ASSERT_TRUE(server_.finds("of the sender"));

  const std::string before = frame(Message({{"findPort", "db1"}, {"portHost", "h"}}));
  const std::string after = frame(reconnection("after it"));
  ASSERT_TRUE(sender.send(before + before + GetParam().bytes + after));
  EXPECT_EQ(sender.receiveFrame()->kind, 1) << "complete requests that came before are answered";
  EXPECT_EQ(sender.receiveFrame()->message().text("portName"), "db1");
  EXPECT_TRUE(sender.isClosedByPeer()) << "the bad one has no reply";
  EXPECT_EQ(server_.console(), "sorvinfo[" + std::to_string(server_.process()) +
                                   "]: " + ownAddress(sender) + ": connection closed, " +
                                   GetParam().reason + "\n");

  EXPECT_FALSE(server_.finds("of the sender")) << "forgotten before the sender sees the end";
  EXPECT_FALSE(server_.finds("after it"));
  EXPECT_FALSE(server_.finds("within it"));
  EXPECT_TRUE(server_.finds("db1"));
  EXPECT_EQ(server_.ask({{"newPort", ""}, {"portName", "x"}, {"portHost", "h"}, {"portType", "t"}})
                ->text("portNumber"),
            std::to_string(server_.basePort() + 2))
      << "no number was handed out";
}

// A command that must not be carried out, with something wrong at its end.
std::string within(const std::string& wrong) {
  return frameOfBody(entry("reconnectPort", "within it\0"s) + entry("portNumber", "1\0"s) +
                     entry("portHost", "h\0"s) + entry("portType", "t\0"s) + wrong);
}

INSTANTIATE_TEST_SUITE_P(
    Each, MalformedFrame,
    testing::Values(
        BadFrame{"ForeignProtocol", "GET / HTTP/1.0\r\n\r\n", "wrong mark"},
        BadFrame{"WrongSecondMark", frameWith("SW", 1, 1, 0, ""), "wrong mark"},
        BadFrame{"NoVersion", frameWith("SV", 0, 1, 0, ""), "wrong version"},
        BadFrame{"LaterVersion", frameWith("SV", 2, 1, 0, ""), "wrong version"},
        BadFrame{"WrongKind", frameWith("SV", 1, 2, 0, ""), "wrong kind"},
        BadFrame{"KindZero", nilFrame(), "a request without a dictionary"},
        BadFrame{"KindZeroWithABody", frameWith("SV", 1, 0, 1, "x"), "a body without a dictionary"},
        BadFrame{"BodyAboveTheLimit", frameWith("SV", 1, 1, 1048577, ""), "a body above the limit"},
        BadFrame{"LargestBody", frameWith("SV", 1, 1, 0xFFFFFFFF, ""), "a body above the limit"},
        BadFrame{"HeaderOfAnEntryCut", within("\0\1\0\0\0"s), "an entry runs past the body"},
        BadFrame{"KeyPastTheBody", within("\0\2\0\0\0\0k"s), "an entry runs past the body"},
        BadFrame{"ValuePastTheBody", within("\0\1\0\0\0\2kv"s), "an entry runs past the body"},
        BadFrame{"LongestValue", within("\0\1\xff\xff\xff\xffkv"s), "an entry runs past the body"},
        BadFrame{"RepeatedKey", within(entry("portType", "other\0"s)), "a key is repeated"},
        BadFrame{"RepeatedEmptyKey", within(entry("", "") + entry("", "")), "a key is repeated"},
        BadFrame{"KeyOfLatin1", within(entry("\xe4", "")), "a key is not UTF-8 text"},
        BadFrame{"KeyOfASurrogate", within(entry("\xed\xa0\x80", "")), "a key is not UTF-8 text"},
        BadFrame{"KeyWrittenTooLong", within(entry("\xc1\x81", "")), "a key is not UTF-8 text"},
        BadFrame{"KeyWithNul", within(entry("a\0"s, "")), "a key is not UTF-8 text"}),
    [](const auto& each) { return each.param.name; });

// ---- What is no fault

TEST(WellFormedFrame, MayHaveAnEmptyKeyAndEmptyValuesAndAnyBytesInThem) {
  Daemon server;
  server.start();
  RawConnection client = server.rawConnection();
  ASSERT_TRUE(client.ask(reconnection("db1")));
  const std::string body =
      entry("acceptPort", "") + entry("", "\0\xff\xfe"s) + entry("ü", "SV\1\2");
  ASSERT_TRUE(client.send(frameOfBody(body)));
  EXPECT_EQ(client.receiveFrame()->body, body);
}

TEST(MaxMessageBytes, IsTheLargestBodyThatIsTaken) {
  Daemon server;
  server.setting("MaxMessageBytes", "5000");
  server.start();
  const auto body = [](std::size_t bytes) {
    return entry("ping", "") + entry("x", std::string(bytes - (6 + 4) - (6 + 1), 'x'));
  };
  RawConnection client = server.rawConnection();
  ASSERT_TRUE(client.send(frameOfBody(body(5000))));
  EXPECT_EQ(client.receiveFrame()->body, "");
  ASSERT_TRUE(client.send(frameOfBody(body(5001)).substr(0, 8)));
  EXPECT_TRUE(client.isClosedByPeer()) << "its header tells it";
  EXPECT_TRUE(server.complains("a body above the limit"));
}

TEST(HalfFrame, ThatThePeerClosesOnIsForgottenWithoutAWord) {
  Daemon server;
  server.start();
  const std::string whole = frame(reconnection("db1"));
  for (std::size_t bytes = 1; bytes < whole.size(); ++bytes) {
    RawConnection client = server.rawConnection();
    ASSERT_TRUE(client.send(whole.substr(0, bytes)));
    client.shutdownWriting();
    EXPECT_TRUE(client.isClosedByPeer()) << bytes;
  }
  EXPECT_FALSE(server.finds("db1"));
  EXPECT_EQ(server.console(), "");
}

// ---- A flood

TEST(FloodOfMalformedFrames, WritesAFewLinesAndThenTheNumberOfThoseLeftOut) {
  constexpr int kFirstLines = 20;
  Daemon server;
  server.start();
  int sent = 0;
  const auto sendsOne = [&] {
    RawConnection client = server.rawConnection();
    ASSERT_TRUE(client.send("nonsense"));
    EXPECT_TRUE(client.isClosedByPeer());
    ++sent;
  };
  while (sent < 1000) {
    sendsOne();
  }
  EXPECT_EQ(timesIn(server.console(), "\n"), kFirstLines);
  // The flood goes on for as long as lines are left out: ten seconds in all.
  ASSERT_TRUE(waitUntil([&] {
    sendsOne();
    return timesIn(server.console(), "\n") > kFirstLines;
  }));
  const std::string expected =
      "]: " + std::to_string(sent - kFirstLines - 1) + " lines like the next one were left out\n";
  EXPECT_EQ(timesIn(server.console(), expected), 1) << expected << server.console();
  EXPECT_EQ(timesIn(server.console(), "connection closed, wrong mark\n"), kFirstLines + 1);
}

TEST(FloodOfMalformedFrames, DelaysNobodyWhenTheConsoleIsNotRead) {
  int console[2];
  ASSERT_EQ(pipe2(console, O_CLOEXEC), 0);
  ASSERT_EQ(fcntl(console[1], F_SETFL, O_NONBLOCK), 0);
  while (write(console[1], "x", 1) == 1) {
  }
  ASSERT_EQ(fcntl(console[1], F_SETFL, 0), 0);
  Daemon server;
  server.launch({"-noexit"}, [&] { dup2(console[1], STDERR_FILENO); });
  ASSERT_TRUE(server.answers());
  RawConnection client = server.rawConnection();
  for (int i = 0; i < 100; ++i) {
    RawConnection other = server.rawConnection();
    ASSERT_TRUE(other.send("nonsense"));
    ASSERT_TRUE(other.isClosedByPeer());
    ASSERT_TRUE(client.ask(Message({{"ping", ""}})));
  }
  close(console[0]);
  close(console[1]);
}

}  // namespace
}  // namespace sorvane::test
