#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "daemon/ServiceManager.h"
#include "support/ConsoleLines.h"
#include "support/ForkedPart.h"
#include "support/NotifySocket.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;
using testing::Optional;

constexpr ServiceManager::Clock::time_point kNow{1h};
const std::string kThisProcess = std::to_string(getpid());

ServiceManager withoutWatchdog(const NotifySocket& socket) {
  return {socket.name().c_str(), nullptr, nullptr};
}

TEST(ServiceManager, IsToldAtAPathAndAtAnAbstractName) {
  for (const auto kind : {NotifySocket::Kind::path, NotifySocket::Kind::abstractName}) {
    NotifySocket socket(kind);
    ServiceManager manager = withoutWatchdog(socket);
    manager.tellServing({}, kNow);
    EXPECT_TRUE(socket.hears("READY=1")) << socket.name();
  }
}

TEST(ServiceManager, IsToldOnceThatTheStartIsOverTogetherWithTheCounts) {
  NotifySocket socket;
  ServiceManager manager = withoutWatchdog(socket);
  manager.tellServing({.names = 12, .connections = 34}, kNow);
  EXPECT_THAT(socket.receive(),
              Optional(std::string("READY=1\nSTATUS=12 names, 34 connections\n")));
  manager.tellServing({.names = 1, .connections = 1}, kNow + 1h);
  EXPECT_THAT(socket.receive(), Optional(std::string("STATUS=1 name, 1 connection\n")));
}

TEST(ServiceManager, IsToldNothingWhenNothingHasChanged) {
  NotifySocket socket;
  ServiceManager manager = withoutWatchdog(socket);
  manager.tellServing({}, kNow);
  socket.forgetWhatCame();
  manager.tellServing({}, kNow + 1h);
  EXPECT_EQ(socket.receive(0ms), std::nullopt);
}

TEST(ServiceManager, IsToldOfChangesAtABoundedRate) {
  NotifySocket socket;
  ServiceManager manager = withoutWatchdog(socket);
  manager.tellServing({}, kNow);
  socket.forgetWhatCame();
  const auto due = kNow + ServiceManager::kStatusInterval;
  manager.tellServing({.names = 1}, due - 1ms);
  EXPECT_EQ(socket.receive(0ms), std::nullopt);
  manager.tellServing({.names = 2}, due);
  EXPECT_THAT(socket.receive(), Optional(std::string("STATUS=2 names, 0 connections\n")));
  manager.tellServing({.names = 3}, due + 1ms);
  EXPECT_EQ(socket.receive(0ms), std::nullopt);
}

TEST(ServiceManager, ThatKeepsAWatchdogHearsOfEachReport) {
  NotifySocket socket;
  ServiceManager manager(socket.name().c_str(), "3000000", kThisProcess.c_str());
  manager.tellServing({}, kNow);
  EXPECT_THAT(socket.receive(),
              Optional(std::string("READY=1\nWATCHDOG=1\nSTATUS=0 names, 0 connections\n")));
  manager.tellServing({}, kNow);
  EXPECT_THAT(socket.receive(), Optional(std::string("WATCHDOG=1\n")));
}

TEST(ServiceManager, WantsThreeReportsInTheTimeOfItsWatchdogAndOneEveryTenSecondsAtLeast) {
  const NotifySocket socket;
  const auto intervalOf = [&](const char* watchdog) {
    return ServiceManager(socket.name().c_str(), watchdog, nullptr).interval();
  };
  EXPECT_EQ(intervalOf("3000000"), 1s);
  EXPECT_EQ(intervalOf("1"), 1us);
  EXPECT_EQ(intervalOf("9000000000000000000"), 10s);
  EXPECT_EQ(intervalOf(nullptr), 10s);
}

TEST(ServiceManager, ThatMeansAnotherProcessGetsNoWatchdogReports) {
  NotifySocket socket;
  ServiceManager manager(socket.name().c_str(), "3000000", std::to_string(getpid() + 1).c_str());
  EXPECT_EQ(manager.interval(), 10s);
  manager.tellServing({}, kNow);
  EXPECT_THAT(socket.receive(), Optional(std::string("READY=1\nSTATUS=0 names, 0 connections\n")));
}

TEST(ServiceManager, WithAWatchdogTimeThatIsNoNumberGetsALineOnTheConsoleAndNoReports) {
  for (const char* const watchdog : {"", "0", "-1", "12s", "99999999999999999999"}) {
    const ConsoleLines console;
    const NotifySocket socket;
    EXPECT_EQ(ServiceManager(socket.name().c_str(), watchdog, nullptr).interval(), 10s);
    EXPECT_EQ(console.count("WATCHDOG_USEC"), 1) << watchdog;
  }
}

TEST(ServiceManager, ThatCannotBeReachedYetHearsLaterThatTheStartIsOver) {
  NotifySocket socket;
  ServiceManager manager = withoutWatchdog(socket);
  socket.fill();
  manager.tellServing({}, kNow);  // returns
  manager.tellStopping();
  socket.forgetWhatCame();
  manager.tellServing({}, kNow + 1s);
  EXPECT_THAT(socket.receive(), Optional(std::string("READY=1\nSTATUS=0 names, 0 connections\n")));
}

TEST(ServiceManager, HearsOfTheEndOnlyIfItKnowsThatTheStartIsOver) {
  NotifySocket socket;
  ServiceManager manager = withoutWatchdog(socket);
  manager.tellStopping();
  EXPECT_EQ(socket.receive(0ms), std::nullopt);
  manager.tellServing({}, kNow);
  socket.forgetWhatCame();
  manager.tellStopping();
  EXPECT_THAT(socket.receive(), Optional(std::string("STOPPING=1\n")));
}

TEST(ServiceManager, HearsOfAnEndThatFollowsTheStartAtOnce) {
  for (int round = 0; round < 500; ++round) {
    NotifySocket socket;
    ServiceManager manager = withoutWatchdog(socket);
    std::thread reports([&manager] { manager.tellServing({}, kNow); });
    EXPECT_TRUE(socket.hears("READY=1"));
    manager.tellStopping();
    EXPECT_THAT(socket.receive(0ms), Optional(std::string("STOPPING=1\n"))) << round;
    reports.join();
  }
}

TEST(ServiceManager, WithAnAddressOfAnotherKindCostsALineOnTheConsole) {
  for (const std::string& address : {std::string(), std::string("/"), std::string("relative"),
                                     std::string("vsock:2:1234"), "/" + std::string(107, 'x')}) {
    const ConsoleLines console;
    ServiceManager manager(address.c_str(), nullptr, nullptr);
    manager.tellServing({}, kNow);
    EXPECT_EQ(console.count("NOTIFY_SOCKET"), 1) << address;
  }
}

TEST(ServiceManager, IsTakenOutOfTheEnvironmentSoThatOtherProgramsDoNotSpeakToIt) {
  NotifySocket socket;
  const PartEnd part = outputOfPart([&] {
    socket.environment("3000000")();
    takeServiceManager();
    ASSERT_NE(serviceManager(), nullptr);
    EXPECT_EQ(serviceManager()->interval(), 1s);
    shell("! env | grep -E 'NOTIFY_SOCKET|WATCHDOG'");
  });
  EXPECT_EQ(part.status, 0) << part.output << part.errors;
}

TEST(ServiceManager, IsNobodyWithoutASocket) {
  const PartEnd part = outputOfPart([] {
    unsetenv("NOTIFY_SOCKET");
    setenv("WATCHDOG_USEC", "3000000", 1);
    takeServiceManager();
    EXPECT_EQ(serviceManager(), nullptr);
    EXPECT_EQ(getenv("WATCHDOG_USEC"), nullptr);
  });
  EXPECT_EQ(part.status, 0) << part.output << part.errors;
}

}  // namespace
}  // namespace sorvane::test
