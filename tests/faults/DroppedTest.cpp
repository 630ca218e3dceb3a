// Ten thousand connections that are dropped in the same instant.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "integration/Client.h"
#include "integration/DaemonProcess.h"
#include "support/ForkedPart.h"
#include "support/OwnNamespaces.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

constexpr int kWanted = 10000;
constexpr int kWantedUnderASanitizer = 2000;
constexpr int kReserve = 300;  // descriptors for everything else, here and there

int asManyAsDescriptorsAllow() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  const int wanted = areTestedWithoutSanitizers() ? kWanted : kWantedUnderASanitizer;
  return static_cast<int>(std::min<rlim_t>(static_cast<rlim_t>(wanted), limit.rlim_max - kReserve));
}

/// Registers so many databases, a connection each, and stays until it is killed.
void holdDatabases(const ForkedPart& self, const Daemon& server, int number) {
  std::vector<RawConnection> databases;
  for (int i = 0; i < number; ++i) {
    databases.push_back(server.rawConnection());
    ASSERT_TRUE(
        databases.back().send(frame(textsMessage({{"reconnectPort", "many" + std::to_string(i)},
                                                  {"portNumber", "1"},
                                                  {"portHost", "h"},
                                                  {"portType", "t"}}))));
  }
  for (RawConnection& each : databases) {
    ASSERT_TRUE(each.receiveFrame());
  }
  self.tell(1);
  for (;;) {
    pause();
  }
}

void dropManyAtOnce() {
  const int number = asManyAsDescriptorsAllow();
  Daemon server;
  server.setting("MaxConnections", std::to_string(number + kReserve));
  server.start();
  Client database(server);
  database.registers("stays");
  Client watcher(server);
  watcher.resultOf("watchPortChanges");
  const DaemonProcess process(server.process());
  const int before = process.openSockets();

  ForkedPart many([&](const ForkedPart& self) { holdDatabases(self, server, number); });
  ASSERT_EQ(many.hear(), 1);
  ASSERT_TRUE(watcher.knows("many0") && watcher.knows("many" + std::to_string(number - 1)));
  ASSERT_GE(process.openSockets(), before + number);
  while (watcher.didPortsChange() == "YES") {
  }
  many.signal(SIGKILL);
  // Those who stay are served all the while.
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_TRUE(database.knows("stays"));
    EXPECT_EQ(database.asks(Message({{"ping", ""}})), kEmptyDictionary);
    return !watcher.knows("many" + std::to_string(number - 1)) &&
           watcher.states() == "stays:running";
  })) << "some are still registered";
  EXPECT_EQ(watcher.didPortsChange(), "YES");
  EXPECT_TRUE(waitUntil([&] { return process.openSockets() == before; })) << "descriptors leak";
  EXPECT_TRUE(server.registers("comes afterwards"));
  std::printf("%d connections were dropped at once\n", number);
}

TEST(ConnectionsDroppedInTheSameInstant, AreForgottenAndNobodyElseIs) {
  // A network of its own has all ports for these connections, and keeps the traces of their end.
  if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  inOwnNetwork(dropManyAtOnce);
}

}  // namespace
}  // namespace sorvane::test
