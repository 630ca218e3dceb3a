// What many clients together can cost the name server: memory, and the descriptors of its files.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>
#include <vector>

#include "integration/Daemon.h"
#include "integration/DaemonProcess.h"
#include "integration/Preferences.h"
#include "support/TestedBuild.h"
#include "support/Texts.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

constexpr long kKibibytesOfMebibyte = 1024;

/// An allocator that checks its users keeps what they have freed, so its memory tells nothing.
bool memoryTells() { return areTestedWithoutSanitizers(); }

bool answersAPing(RawConnection& client) {
  return client.send(frame(Message({{"ping", ""}}))) && client.receive(8) == frameOfBody("");
}

TEST(UnfinishedFrames, OfAllConnectionsTogetherHoldABoundedAmountOfMemory) {
  constexpr int kPeers = 100;
  Daemon server;
  server.setting("MaxUnfinishedBytes", "10000000");
  server.setting("PartialMessageTimeout", "600");
  server.start();
  RawConnection client = server.rawConnection();
  ASSERT_TRUE(answersAPing(client));
  const DaemonProcess process(server.process());
  const long before = process.residentKibibytes();
  const std::string part =
      frame(Message({{"findPort", std::string(1000000, 'x')}})).substr(0, 900000);
  std::vector<RawConnection> peers;
  for (int i = 0; i < kPeers; ++i) {
    peers.push_back(server.rawConnection());
    static_cast<void>(peers.back().send(part));  // may be cut short: the server closes
  }
  EXPECT_TRUE(server.complains("connection closed, unfinished requests fill the memory"));
  int open = 0;
  for (RawConnection& each : peers) {
    open += each.staysSilent(std::chrono::milliseconds(0)) ? 1 : 0;
  }
  EXPECT_GT(open, 0) << "those within the limit stay";
  if (memoryTells()) {
    // Without a limit it would be 90 MB. The allocator keeps some of what was given back.
    EXPECT_LT(process.residentKibibytes() - before, 50 * kKibibytesOfMebibyte);
  }
  EXPECT_TRUE(answersAPing(client));
  EXPECT_TRUE(server.registers("db1")) << "who means well is served";

  peers.clear();
  const Message longRequest({{"findPort", std::string(900000, 'x')}, {"portHost", "h"}});
  EXPECT_TRUE(waitUntil([&] {  // until the server has seen them leave
    return server.rawConnection().ask(longRequest).has_value();
  })) << "there is room again";
}

/// A name server with a states list of some megabytes.
class LongStatesList : public ::testing::Test {
 protected:
  static constexpr std::size_t kNames = 4;
  static constexpr std::size_t kStateBytes = 1000000;

  void start() {
    server_.start();
    for (std::size_t i = 0; i < kNames; ++i) {
      const std::string name = "db" + std::to_string(i);
      ASSERT_TRUE(server_.registers(name));
      const auto reply = server_.ask(request(
          "setDatabaseState", {{"databaseName", name}, {"state", std::string(kStateBytes, 'x')}}));
      ASSERT_EQ(textsOf(reply), (Texts{{"result", "success"}}));
    }
  }

  Daemon server_;
  const Message asking_{{"action", "databaseStates"}};
};

TEST_F(LongStatesList, IsNotCopiedForEachClientThatReadsNothing) {
  constexpr int kPeers = 100;
  start();
  RawConnection reader = server_.rawConnection();
  const auto whole = reader.ask(asking_);
  ASSERT_TRUE(whole);
  ASSERT_GT(whole->body.size(), kNames * kStateBytes);
  const DaemonProcess process(server_.process());
  const long before = process.residentKibibytes();
  std::vector<RawConnection> deaf;
  for (int i = 0; i < kPeers; ++i) {
    deaf.push_back(server_.rawConnection());
    ASSERT_TRUE(deaf.back().send(frame(asking_)));
  }
  for (RawConnection& each : deaf) {
    ASSERT_TRUE(waitUntil([&] { return !each.staysSilent(std::chrono::milliseconds(0)); }));
  }
  if (memoryTells()) {  // a list for each of them would be four hundred megabytes
    EXPECT_LT(process.residentKibibytes() - before, 20 * kKibibytesOfMebibyte);
  }
  // Whoever reads at last gets the list of when it asked, whole.
  ASSERT_TRUE(server_.ask(request("setDatabaseState", {{"databaseName", "db0"}, {"state", "y"}})));
  for (const std::size_t i : {std::size_t{0}, deaf.size() - 1}) {
    const auto reply = deaf[i].receiveFrame();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->body, whole->body);
  }
  EXPECT_LT(reader.ask(asking_)->body.size(), whole->body.size());
}

TEST(UntakenReplies, OfAllClientsTogetherHoldABoundedAmountOfMemory) {
  constexpr int kPeers = 20;
  // More than the system takes of a peer that reads nothing, so that the server keeps a part.
  constexpr std::size_t kReplyBytes = 6000000;
  Daemon server;
  server.setting("MaxUnsentBytes", "20000000").setting("MaxMessageBytes", "8000000");
  server.start();
  RawConnection owner = server.rawConnection();
  ASSERT_TRUE(owner.ask(Message({{"reconnectPort", "db1"},
                                 {"portNumber", "1"},
                                 {"portHost", "h"},
                                 {"portType", std::string(kReplyBytes, 'x')}})));
  const Message asking({{"findPort", "db1"}, {"portHost", "h"}});
  const auto whole = owner.ask(asking);
  ASSERT_TRUE(whole);
  const DaemonProcess process(server.process());
  const long before = process.residentKibibytes();
  std::vector<RawConnection> deaf;
  for (int i = 0; i < kPeers; ++i) {
    deaf.push_back(server.rawConnection());
    ASSERT_TRUE(deaf.back().send(frame(asking)));
  }
  EXPECT_TRUE(server.complains("connection closed, replies that clients have not taken fill"));
  if (memoryTells()) {
    EXPECT_LT(process.residentKibibytes() - before, 60 * kKibibytesOfMebibyte);
  }
  EXPECT_TRUE(answersAPing(owner));
  EXPECT_TRUE(server.registers("db2"));
  deaf.clear();
  EXPECT_TRUE(waitUntil([&] {
    RawConnection reader = server.rawConnection();
    const auto reply = reader.ask(asking);
    return reply && reply->body == whole->body;
  }));
}

// ---- Descriptors and cores

TEST(ConnectionLimit, LeavesTheDescriptorsOfManyServingThreadsAside) {
  constexpr int kThreads = 64;
  constexpr int kDescriptors = 256;
  Daemon server;
  server.setting("Threads", std::to_string(kThreads));
  server.launch({"-noexit"}, [] {
    const rlimit limit{kDescriptors, kDescriptors};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  ASSERT_TRUE(server.answers());
  PreferenceClient preferences(server);
  preferences.sets("anna", {{"databases", "before"}});
  std::vector<RawConnection> clients;
  for (int i = 0; i < kDescriptors; ++i) {
    clients.push_back(server.rawConnection());
    ASSERT_TRUE(clients.back().isConnected());
  }
  EXPECT_TRUE(server.complains(": closed, 96 connections are open already\n"));
  preferences.sets("anna", {{"databases", "at the limit"}});
  EXPECT_TRUE(comesToHold(preferenceFile(server), "at the limit"));
  EXPECT_EQ(timesIn(server.console(), "cannot be accepted"), 0);
}

int epollsOf(pid_t process) {
  int number = 0;
  const auto folder = std::filesystem::path("/proc") / std::to_string(process) / "fd";
  for (const auto& each : std::filesystem::directory_iterator(folder)) {
    std::error_code gone;
    number += std::filesystem::read_symlink(each, gone) == "anon_inode:[eventpoll]" ? 1 : 0;
  }
  return number;
}

TEST(ServingThreads, AreOneForEachCoreThatTheProcessMayUse) {
  if (SORVANE_PORTABLE_HOST_NETWORK) {
    GTEST_SKIP() << "no portable call tells of the affinity";
  }
  Daemon server;
  server.setting("Threads", "0");
  server.launch({"-noexit"}, [] {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    int first = 0;
    while (!CPU_ISSET(first, &allowed)) {
      ++first;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    sched_setaffinity(0, sizeof one, &one);
  });
  ASSERT_TRUE(server.answers());
  EXPECT_EQ(epollsOf(server.process()), 1) << "each serving thread has one";
}

}  // namespace
}  // namespace sorvane::test
