#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <thread>

#include "sorvctl/ChangeWait.h"
#include "sorvctl/DatabaseWatch.h"
#include "sorvctl/Failure.h"
#include "sorvctl/WakePipe.h"
#include "support/ScriptedPeer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"
#include "tools/FakeNameServer.h"

namespace sorvctl {
namespace {

using namespace std::chrono_literals;
using sorvane::test::waitUntil;
using test::FakeNameServer;
using Clock = std::chrono::steady_clock;
using End = ChangeWait::End;

TEST(ChangeWait, EndsAtOnceWhenSomethingChanges) {
  FakeNameServer server;
  Session session(server.options());
  ChangeWait wait(session, 1h);
  EXPECT_EQ(wait.wait(1h), End::changed) << "at first, always";
  EXPECT_EQ(wait.wait(10ms), End::timeOver);
  std::thread changing([&] {
    EXPECT_TRUE(waitUntil([&] { return server.asked("awaitPortChanges") == 2; }));
    server.has("db1");
  });
  const auto begin = Clock::now();
  EXPECT_EQ(wait.wait(1h), End::changed);
  EXPECT_LT(Clock::now() - begin, 1s);
  changing.join();
  EXPECT_EQ(server.asked("didPortsChange"), 0);
}

TEST(ChangeWait, IsWokenAtOnce) {
  for (const auto version : {FakeNameServer::Version::now, FakeNameServer::Version::earlier}) {
    FakeNameServer server(version);
    Session session(server.options());
    ChangeWait wait(session, 1h);
    EXPECT_EQ(wait.wait(1h), End::changed);
    const WakePipe wake;
    wake.wake();
    EXPECT_EQ(wait.wait(1h, wake.descriptor()), End::woken);
  }
}

TEST(ChangeWait, AsksAServerOfAnEarlierVersionFromTimeToTimeOnOneConnection) {
  FakeNameServer server(FakeNameServer::Version::earlier);
  Session session(server.options());
  ChangeWait wait(session, 1ms);
  EXPECT_EQ(wait.wait(1h), End::changed);
  EXPECT_EQ(wait.wait(50ms), End::timeOver);
  EXPECT_GE(server.asked("didPortsChange"), 2);
  EXPECT_EQ(server.asked("awaitPortChanges"), 1);
  EXPECT_TRUE(waitUntil([&] { return server.connections() == 1; }));
  server.has("db1");
  EXPECT_EQ(wait.wait(1h), End::changed);
}

TEST(ChangeWait, AsksNobodyInACircle) {
  int asked = 0;
  const sorvane::test::ScriptedPeer peer([&](sorvane::test::PeerConnection& client) {
    while (client.receiveRequest()) {
      ++asked;
      client.send(sorvane::test::frameOfTexts({{"result", "NO"}}));
    }
  });
  Options options;
  options.port = peer.port();
  {
    Session session(options);
    ChangeWait wait(session, 1h);
    EXPECT_EQ(wait.wait(50ms), End::timeOver);
  }
  ASSERT_TRUE(peer.finishes(2));
  EXPECT_EQ(asked, 2) << "one question that is not held, and one of those from time to time";
}

TEST(ChangeWait, NoticesAServerThatHangs) {
  FakeNameServer server;
  Options options = server.options();
  options.timeoutSeconds = 0.05;
  Session session(options);
  ChangeWait wait(session, 1h, 10ms);
  EXPECT_EQ(wait.wait(1h), End::changed);
  server.hang();
  const auto begin = Clock::now();
  EXPECT_THROW((void)wait.wait(1h), Failure);
  EXPECT_LT(Clock::now() - begin, 5s);
}

TEST(ChangeWait, NoticesAServerThatHangsFromTheBegin) {
  FakeNameServer server;
  server.hang();
  Options options = server.options();
  options.timeoutSeconds = 0.05;
  Session session(options);
  ChangeWait wait(session, 1h);
  const auto begin = Clock::now();
  EXPECT_THROW((void)wait.wait(1h), Failure);
  EXPECT_LT(Clock::now() - begin, 2s);
}

TEST(ChangeWait, NoticesAServerThatGoesAndBeginsAnewWithTheNextOne) {
  std::optional<FakeNameServer> server(std::in_place);
  Session session(server->options());
  ChangeWait wait(session, 1h);
  EXPECT_EQ(wait.wait(1h), End::changed);
  std::thread ending([&] {
    EXPECT_TRUE(waitUntil([&] { return server->asked("awaitPortChanges") == 2; }));
    server.reset();
  });
  EXPECT_THROW((void)wait.wait(1h), Failure);
  ending.join();
  EXPECT_THROW((void)wait.wait(1h), Failure) << "nothing listens there";
}

TEST(DatabaseWatch, LooksAgainForAlertsThatLapseWithoutAChange) {
  FakeNameServer server;
  server.has("db1", {{"alertStatus", "disk full"}});
  Session session(server.options());
  DatabaseWatch watch(session, 1h, {}, 10ms);
  const auto before = watch.next(-1);
  ASSERT_EQ(before.value().size(), 1U);
  EXPECT_EQ(before->front().alert, "disk full");
  server.lapses("db1");
  const auto after = watch.next(-1);
  ASSERT_EQ(after.value().size(), 1U);
  EXPECT_EQ(after->front().alert, "");
}

constexpr double kReferenceDate = 978307200;

Database withAlert(std::optional<double> time) {
  Database database;
  database.alert = "disk full";
  database.alertTime = time;
  return database;
}

TEST(TimeToLapse, IsThatOfTheFirstAlertAndHasBounds) {
  const double now = kReferenceDate + 10'000;
  EXPECT_EQ(timeToLapse({Database()}, now, 60s), std::nullopt);
  EXPECT_EQ(timeToLapse({withAlert(10'000 - 600), withAlert(10'000)}, now, 60s), 3000s);
  EXPECT_EQ(timeToLapse({withAlert(10'000 - 3599)}, now, 60s), 60s);
  EXPECT_EQ(timeToLapse({withAlert(0)}, now, 60s), 60s) << "the clocks differ";
  EXPECT_EQ(timeToLapse({withAlert(100'000)}, now, 60s), 3600s) << "the clocks differ";
  EXPECT_EQ(timeToLapse({withAlert(std::nullopt)}, now, 60s), 60s) << "the server does not tell";
}

}  // namespace
}  // namespace sorvctl
