// A whole server goes on with the socket and the connections of another.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/server/ContinuedConnections.h"
#include "platform/server/HandingOn.h"
#include "platform/server/Pipelining.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

const std::string kEcho = frame(Message({{"echo", "behind"}}));

/// A descriptor that cannot be the listening socket, or a connection.
class BadDescriptor : public testing::Test {
 protected:
  void expectRefused(int listener, int connection) {
    KeptServer kept;
    kept.listener = listener;
    kept.connections.resize(1);
    kept.connections[0].descriptor = connection;
    EXPECT_THROW(checkKeptDescriptors(kept), KeptFault);
  }
  const Descriptor listener_ = listeningSocket();
  SocketPair pair_;
  const int connection_ = pair_.server.number();
};

TEST_F(BadDescriptor, IsRefusedIfItIsClosedOrNoSocketOfThatKind) {
  const Descriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const Descriptor datagrams(socket(AF_INET, SOCK_DGRAM, 0));
  Descriptor gone(dup(file.number()));
  const int closed = gone.number();
  gone.close();
  for (const int bad : {closed, file.number(), datagrams.number()}) {
    expectRefused(bad, connection_);
    expectRefused(listener_.number(), bad);
  }
  expectRefused(connection_, pair_.client.number());
  const Descriptor other = listeningSocket();
  expectRefused(listener_.number(), other.number());
}

TEST_F(BadDescriptor, IsNoneThatOnlyWaitsOrStaysOpenInOtherPrograms) {
  for (const int each : {listener_.number(), connection_}) {
    fcntl(each, F_SETFD, 0);
    fcntl(each, F_SETFL, 0);
  }
  KeptServer kept;
  kept.listener = listener_.number();
  kept.connections.resize(1);
  kept.connections[0].descriptor = connection_;
  checkKeptDescriptors(kept);
  for (const int each : {listener_.number(), connection_}) {
    EXPECT_EQ(fcntl(each, F_GETFD), FD_CLOEXEC);
    EXPECT_NE(fcntl(each, F_GETFL) & O_NONBLOCK, 0);
  }
}

TEST(ContinuedServer, LosesDoublesAndDisordersNothingUnderLoad) {
  Settings settings;
  settings.threads = 3;
  ServedDelegate first(settings);
  first.delegate().openGate();
  RawConnection part = first.connect();
  part.send(kEcho.substr(0, 9));
  RawConnection holding = first.connect();
  holding.send(frame(Message({{"hold", "300"}})));
  ASSERT_TRUE(waitUntil([&] { return first.delegate().delivered == 1; }));
  std::vector<std::unique_ptr<Pipelining>> clients;
  for (int i = 0; i < 4; ++i) {
    clients.push_back(std::make_unique<Pipelining>(first.connect()));
    ASSERT_TRUE(clients.back()->getsOn());
  }
  settings.threads = 2;
  ServedDelegate second(first, settings);
  second.delegate().openGate();
  for (const auto& each : clients) {
    EXPECT_TRUE(each->getsOn());
  }
  EXPECT_EQ(second.running().connections(), 6);
  part.send(kEcho.substr(9));
  EXPECT_EQ(part.receive(kEcho.size()), kEcho);
  EXPECT_TRUE(second.connect().ask(Message({{"change", ""}}))) << "the socket listens on";
  const std::string changed = frame(Message({{"result", "changed"}}));
  EXPECT_EQ(holding.receive(changed.size()), changed);
  clients.clear();
  EXPECT_EQ(second.delegate().overlaps, 0);
  EXPECT_TRUE(second.delegate().seeEndsOf(5));
  EXPECT_EQ(first.delegate().ended, 0);
}

TEST(ContinuedServer, CountsItsConnectionsToTheLimitAndCanBeHandedOnAgain) {
  Settings settings;
  settings.maxConnections = 2;
  ServedDelegate first(settings);
  std::vector<RawConnection> clients;
  for (int i = 0; i < 2; ++i) {
    clients.push_back(first.connect());
    ASSERT_TRUE(clients.back().ask(Message()));
  }
  ServedDelegate second(first, settings);
  EXPECT_TRUE(second.connect().isClosedByPeer());
  settings.maxConnections = 1;
  ServedDelegate third(second, settings);
  EXPECT_TRUE(clients[0].ask(Message())) << "none is closed for it";
  EXPECT_TRUE(clients[1].ask(Message()));
  EXPECT_TRUE(third.connect().isClosedByPeer());
  EXPECT_EQ(third.running().connections(), 2);
}

TEST(ContinuedServer, IsNotBegunWithADescriptorThatIsNoConnection) {
  const Descriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
  KeptConnection kept;
  kept.descriptor = file.number();
  const HandingOn handing;
  const std::string description = handing.describes({kept});
  KeptReader reader(description);
  ScriptedDelegate delegate;
  EXPECT_THROW(NetConnection::continueServer(reader, delegate), KeptFault);
  EXPECT_EQ(delegate.restored, 0);
}

/// A delegate that takes its time before it lets the server serve.
class SlowToBegin : public ScriptedDelegate {
 public:
  void servingBegins(RunningServer& server) override {
    restoredBefore = restored.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    deliveredBefore = delivered.load();
    ScriptedDelegate::servingBegins(server);
  }
  std::atomic<int> restoredBefore{-1};
  std::atomic<int> deliveredBefore{-1};
};

TEST(ContinuedServer, ServesNobodyBeforeTheDelegateHasBegun) {
  static const auto& handing =
      *new HandingOn;  // its socket is the server's, which is not destroyed
  std::vector<std::unique_ptr<Made>> connections;
  std::vector<KeptConnection> kept;
  for (int i = 0; i < 3; ++i) {
    connections.push_back(std::make_unique<Made>(KeptConnection::Phase::reading));
    connections.back()->client.send(kEcho);
    kept.push_back(connections.back()->kept);
  }
  Settings settings;
  settings.threads = 3;
  Settings::replaceForTest(settings);
  auto& delegate = *new SlowToBegin;
  std::thread([&delegate, description = handing.describes(kept)] {
    KeptReader reader(description);
    NetConnection::continueServer(reader, delegate);
  }).detach();
  for (const auto& each : connections) {
    EXPECT_EQ(each->client.receive(kEcho.size()), kEcho);
  }
  EXPECT_EQ(delegate.restoredBefore, 3);
  EXPECT_EQ(delegate.deliveredBefore, 0);
}

/// A request, or a part of one, that leads to one phase or another.
std::string anything(std::mt19937& random) {
  static const std::string all[] = {
      kEcho,
      frame(Message({{"big", "400000"}})),
      frame(Message({{"shared", ""}})),
      frame(Message({{"wait", ""}})),
      frame(Message({{"log", std::string(20000, 'x')}})),
      frame(Message({{"hold", "300"}})),
  };
  const std::string& request = all[random() % std::size(all)];
  const bool isCut = random() % 4 == 0;
  return random() % 20 == 0 ? "garbage"
         : isCut            ? request.substr(random() % request.size())
                            : request;
}

TEST(ContinuedServer, ReadsWhateverTheConnectionsWereDoing) {
  const ConsoleLines console;
  Settings settings;
  settings.threads = 2;
  ServedDelegate server(settings);
  server.delegate().openGate();
  std::mt19937 random(19);
  std::map<KeptConnection::Phase, int> phases;
  std::vector<RawConnection> clients;
  constexpr int kRounds = 25;
  for (int round = 1; round <= kRounds; ++round) {
    for (int i = 0; i < 4; ++i) {
      clients.push_back(server.connect());
      for (int request = 0; request < 4; ++request) {
        clients.back().send(anything(random));
      }
    }
    if (round == kRounds) {
      clients.push_back(server.connect());
      clients.back().send(frame(Message({{"big", "8000000"}})));  // more than the system takes
      EXPECT_TRUE(clients.back().receive(1) == "S");
    }
    const auto count = static_cast<int>(clients.size());
    ASSERT_TRUE(waitUntil([&] { return server.delegate().started == count; }));
    ASSERT_TRUE(server.running().pause(std::chrono::steady_clock::now() + kPatience));
    KeptWriter writer;
    server.running().keep(writer);
    const std::string description = whole(writer);
    KeptReader reader(description);
    for (const KeptConnection& each : readKeptServer(reader).connections) {
      ++phases[each.phase];
    }
    server.running().goOn();
  }
  using Phase = KeptConnection::Phase;
  for (const Phase each : {Phase::reading, Phase::sending, Phase::holding, Phase::lingering}) {
    EXPECT_GT(phases[each], 0) << static_cast<int>(each);
  }
}

}  // namespace
}  // namespace sorvane::test
