// What the name server tells the service manager that has started it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "integration/Daemon.h"
#include "integration/HeldServerLock.h"
#include "integration/Upgrading.h"
#include "platform/Descriptor.h"
#include "support/NotifySocket.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

TEST(ServiceManagerOfTheDaemon, HearsThatTheStartIsOverWhenConnectionsAreServed) {
  NotifySocket manager(NotifySocket::Kind::abstractName);
  Daemon server;
  server.launch({"noexit"}, manager.environment());
  ASSERT_TRUE(manager.hears("READY=1")) << server.console();
  EXPECT_TRUE(server.connection()->sendDictionary({{"ping", ""}}));
}

TEST(ServiceManagerOfTheDaemon, HearsHowManyNamesAndConnectionsThereAre) {
  NotifySocket manager;
  Daemon server;
  server.launch({"noexit"}, manager.environment("3000000"));
  ASSERT_TRUE(manager.hears("STATUS=0 names, 0 connections")) << server.console();
  ASSERT_TRUE(server.registers("db1"));
  ASSERT_TRUE(server.registers("db2"));
  EXPECT_TRUE(manager.hears("STATUS=2 names, 2 connections"));
}

TEST(ServiceManagerOfTheDaemon, DoesNotHearThatTheStartIsOverWhileAnotherOneHasTheProcessLock) {
  Daemon first;
  first.start();
  ASSERT_TRUE(first.hasTakenLock());
  NotifySocket manager;
  Daemon second;
  second.setting("LockDirectory", "\"" + (first.tree() / "lock").string() + "\"");
  // It ends when it has logged why. Its log takes nothing until the test reads it.
  const auto file = second.tree() / "Logs/infoserver_log";
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  const Descriptor log(open(file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  std::string bytes(1000000, ' ');
  ASSERT_GT(write(log.number(), bytes.data(), bytes.size()), 0);
  second.launch({"noexit"}, manager.environment());
  ASSERT_TRUE(second.complains("another infoserver is running on this host"));
  ASSERT_TRUE(second.answers());
  kill(second.process(), SIGUSR2);
  EXPECT_EQ(manager.receive(300ms), std::nullopt);
  EXPECT_TRUE(second.answers()) << "nor is it upgraded in place";
  EXPECT_EQ(second.console().find("starts anew"), std::string::npos) << second.console();
  EXPECT_GT(read(log.number(), bytes.data(), bytes.size()), 0);
  EXPECT_EQ(second.waitForExit(), 0);
  EXPECT_EQ(manager.receive(0ms), std::nullopt);
}

TEST(ServiceManagerOfTheDaemon, HearsOfTheEndThatAClientHasAskedFor) {
  NotifySocket manager;
  Daemon server;
  server.launch({"noexit"}, manager.environment());
  ASSERT_TRUE(manager.hears("READY=1")) << server.console();
  ASSERT_TRUE(server.connection()->sendRequest({{"action", "restart"}}));
  EXPECT_TRUE(manager.hears("STOPPING=1"));
  EXPECT_EQ(server.waitForExit(), 0);
}

TEST(ServiceManagerOfTheDaemon, HearsTheSameAfterAnUpgradeInPlace) {
  NotifySocket manager;
  Daemon server;
  server.launch({"noexit"}, manager.environment("300000"));
  ASSERT_TRUE(manager.hears("READY=1")) << server.console();
  ASSERT_TRUE(server.registers("db1"));
  Upgrading upgrading(server);
  ASSERT_EQ(upgrading.upgrade(), "");
  manager.forgetWhatCame();
  EXPECT_TRUE(manager.hears("WATCHDOG=1"));
  ASSERT_TRUE(server.registers("db2"));
  EXPECT_TRUE(manager.hears("STATUS=2 names, 3 connections"));
  ASSERT_TRUE(server.connection()->sendRequest({{"action", "restart"}}));
  EXPECT_TRUE(manager.hears("STOPPING=1"));
}

// The watchdog wants a report every 100 ms here.
TEST(WatchdogOfTheDaemon, HearsOfItAsLongAsCommandsAreCarriedOutAndNoLonger) {
  NotifySocket manager;
  Daemon server;
  HeldServerLock lock(server, manager.environment("300000"));
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(manager.hears("WATCHDOG=1")) << server.console();
  }
  lock.hold();
  manager.forgetWhatCame();
  // The report of a round that had the lock before may still come.
  static_cast<void>(manager.receive(1s));
  EXPECT_EQ(manager.receive(1s), std::nullopt);
  EXPECT_TRUE(server.connection()->sendDictionary({{"ping", ""}})) << "pings need no lock";
  lock.release();
  EXPECT_TRUE(manager.hears("WATCHDOG=1"));
}

}  // namespace
}  // namespace sorvane::test
