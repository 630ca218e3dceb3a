// Which connections are marked as at work, and which sockets go on after a death.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/SurvivingSockets.h"
#include "platform/WorkMarks.h"
#include "platform/server/HandingOn.h"
#include "platform/server/ServedByHand.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kDescriptors = 1000;

TEST(WorkMarks, AreAtRestAtFirstAndSharedWithAProcessThatIsForked) {
  WorkMarks marks(kDescriptors);
  EXPECT_FALSE(marks.isAtWork(5));
  if (const pid_t child = fork(); child == 0) {
    marks.setAtWork(5);
    marks.setAtWork(6);
    marks.setAtRest(6);
    _exit(0);
  } else {
    waitpid(child, nullptr, 0);
  }
  EXPECT_TRUE(marks.isAtWork(5));
  EXPECT_FALSE(marks.isAtWork(6));
  EXPECT_FALSE(marks.isAtWork(4));
}

TEST(WorkMarks, AreOnesOwn) {
  constexpr int kMany = 100000;
  WorkMarks marks(kMany);
  for (int descriptor = 0; descriptor < kMany; ++descriptor) {
    ASSERT_FALSE(marks.isAtWork(descriptor)) << descriptor;
    marks.setAtWork(descriptor);
  }
  for (int descriptor = 0; descriptor < kMany; descriptor += 3) {
    marks.setAtRest(descriptor);
  }
  for (int descriptor = 0; descriptor < kMany; ++descriptor) {
    ASSERT_EQ(marks.isAtWork(descriptor), descriptor % 3 != 0) << descriptor;
  }
}

TEST(WorkMarks, HaveNoneForHigherDescriptorsWhichCountAsAtWork) {
  WorkMarks marks(2);
  for (const int descriptor : {-1, 2, 1 << 30}) {
    marks.setAtRest(descriptor);
    EXPECT_TRUE(marks.isAtWork(descriptor)) << descriptor;
  }
}

/// One connection of a server by hand that sets marks.
class MarkedConnection : public testing::Test {
 protected:
  void connects() {
    SocketPair pair;
    descriptor_ = pair.server.number();
    server_.loop().adopt(pair.server.release());
    client_.emplace(RawConnection::ofSocket(pair.client.release()));
  }
  void sends(const std::string& bytes) {
    client_->send(bytes);
    server_.turn();
  }
  [[nodiscard]] bool isAtWork() const { return marks_.isAtWork(descriptor_); }

  WorkMarks marks_{kDescriptors};
  ServedByHand server_{HandLimits{.marks = &marks_}};
  std::optional<RawConnection> client_;
  int descriptor_ = -1;
};

const std::string kEcho = frame({{"echo", "x"}});

TEST_F(MarkedConnection, IsAtRestOnceItsRepliesAreSent) {
  connects();
  EXPECT_FALSE(isAtWork());
  for (int i = 0; i < 3; ++i) {
    sends(kEcho + kEcho);
    EXPECT_FALSE(isAtWork());
  }
  EXPECT_EQ(client_->receive(6 * kEcho.size()).size(), 6 * kEcho.size());
}

TEST_F(MarkedConnection, IsAtWorkWhileItDelivers) {
  connects();
  bool wasAtWork = false;
  server_.delegate().whenDelivered = [&] { wasAtWork = isAtWork(); };
  sends(kEcho);
  EXPECT_TRUE(wasAtWork);
  EXPECT_FALSE(isAtWork());
}

TEST_F(MarkedConnection, IsAtWorkWithAPartOfAFrame) {
  connects();
  sends(kEcho.substr(0, 1));
  EXPECT_TRUE(isAtWork());
  sends(kEcho.substr(1, 9));
  EXPECT_TRUE(isAtWork());
  sends(kEcho.substr(10) + kEcho.substr(0, 3));
  EXPECT_TRUE(isAtWork()) << "the next frame has begun";
  sends(kEcho.substr(3));
  EXPECT_FALSE(isAtWork());
}

TEST_F(MarkedConnection, IsAtWorkUntilThePeerHasTakenTheWholeReply) {
  connects();
  constexpr std::size_t kBytes = 1 << 22;
  sends(frame({{"big", std::to_string(kBytes)}}));
  EXPECT_TRUE(isAtWork());
  const std::size_t length = bodyLength(server_.receives(*client_, 8));
  EXPECT_TRUE(isAtWork());
  EXPECT_EQ(server_.receives(*client_, length).size(), length);
  EXPECT_FALSE(isAtWork());
}

TEST_F(MarkedConnection, IsAtWorkWhileARequestIsHeld) {
  connects();
  sends(frame({{"hold", "300"}}));
  EXPECT_TRUE(isAtWork());
  EXPECT_TRUE(client_->staysSilent(0ms));
  RawConnection other = server_.connect();
  other.send(frame({{"change", ""}}));
  EXPECT_EQ(server_.receives(*client_, 8).size(), 8U);
  EXPECT_FALSE(isAtWork());
}

TEST_F(MarkedConnection, IsAtWorkWhileARequestWaitsOnAnotherThread) {
  connects();
  sends(frame({{"wait", ""}}));
  EXPECT_TRUE(isAtWork());
  server_.delegate().openGate();
  EXPECT_EQ(server_.receives(*client_, 8).size(), 8U);
  EXPECT_FALSE(isAtWork());
}

TEST_F(MarkedConnection, IsAtWorkWhileItLingersAndUntilTheNextOneHasItsNumber) {
  connects();
  sends("this is no frame");
  EXPECT_TRUE(isAtWork());
  client_->close();
  server_.turn();
  EXPECT_TRUE(isAtWork()) << "nobody can see a moment at which it is open and at rest";
  const int before = descriptor_;
  SocketPair pair;
  descriptor_ = pair.server.number();
  ASSERT_TRUE(descriptor_ == before || pair.client.number() == before);
  marks_.setAtWork(descriptor_);
  server_.loop().adopt(pair.server.release());
  EXPECT_FALSE(isAtWork());
}

TEST_F(MarkedConnection, IsAtWorkAfterAnUpgradeIfItWasBefore) {
  ServedByHand next(HandLimits{.marks = &marks_});
  HandingOn handing;
  connects();
  sends(kEcho);
  handing.handOn(server_, next);
  EXPECT_FALSE(isAtWork());
  ServedByHand third(HandLimits{.marks = &marks_});
  client_->send(kEcho.substr(0, 3));
  next.turn();
  marks_.setAtRest(descriptor_);  // as in the memory of a new program
  handing.handOn(next, third);
  EXPECT_TRUE(isAtWork());
}

// ---- SurvivingSockets

/// A connection over 127.0.0.1 to a listening socket.
struct Accepted {
  explicit Accepted(const Descriptor& listener) : client(portOf(listener)) {
    server = Descriptor(accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  static int portOf(const Descriptor& listener) {
    sockaddr_in address{};
    socklen_t bytes = sizeof address;
    getsockname(listener.number(), reinterpret_cast<sockaddr*>(&address), &bytes);
    return ntohs(address.sin_port);
  }
  RawConnection client;
  Descriptor server;
};

TEST(SurvivingSockets, AreTheListenerAndItsConnectionsAtRest) {
  const Descriptor listener = listeningSocket();
  const Accepted rests(listener);
  const Accepted works(listener);
  Accepted gone(listener);
  const linger reset{1, 0};
  setsockopt(gone.client.descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  gone.client.close();
  const Descriptor otherListener = listeningSocket();
  const Accepted ofOther(otherListener);
  const SocketPair local;
  const Descriptor file(memfd_create("file", MFD_CLOEXEC));
  WorkMarks marks(kDescriptors);
  marks.setAtWork(works.server.number());
  const std::vector<int> all{listener.number(),       rests.server.number(),
                             works.server.number(),   gone.server.number(),
                             ofOther.server.number(), rests.client.descriptor(),
                             local.server.number(),   file.number()};
  const SurvivingSockets found = survivingSockets(listener.number(), all, marks);
  EXPECT_EQ(found.listener, listener.number());
  EXPECT_EQ(found.connections, std::vector{rests.server.number()});
}

TEST(SurvivingSockets, AreNoneWithoutAListener) {
  const Descriptor listener = listeningSocket();
  const Accepted rests(listener);
  for (const int none : {-1, 999, rests.server.number()}) {
    const SurvivingSockets found =
        survivingSockets(none, {listener.number(), rests.server.number()}, WorkMarks(kDescriptors));
    EXPECT_LT(found.listener, 0) << none;
    EXPECT_TRUE(found.connections.empty()) << none;
  }
}

TEST(InternetSockets, AreFoundAmongOthers) {
  const Descriptor listener = listeningSocket();
  const Accepted accepted(listener);
  const Descriptor unbound(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const SocketPair local;
  EXPECT_EQ(internetSockets({0, listener.number(), accepted.server.number(), unbound.number(),
                             local.server.number(), 999}),
            (std::vector{listener.number(), accepted.server.number(), unbound.number()}));
}

}  // namespace
}  // namespace sorvane::test
