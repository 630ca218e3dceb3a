// A name server that gets no more memory from the system.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "integration/Client.h"
#include "integration/Preferences.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

constexpr rlim_t kMebibyte = 1024 * 1024;
constexpr std::size_t kLong = 900000;

class MemoryUsedUp : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!areTestedWithoutSanitizers()) {
      GTEST_SKIP() << "a sanitizer reserves more addresses than there is memory";
    }
    server_.setting("Threads", "1");
    server_.start();
  }

  /// From now on it gets that many bytes more.
  void limitMemory(rlim_t more) {
    rlim_t pages = 0;
    std::ifstream("/proc/" + std::to_string(server_.process()) + "/statm") >> pages;
    const rlim_t bytes = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + more;
    const rlimit limit{bytes, bytes};
    ASSERT_EQ(prlimit(server_.process(), RLIMIT_AS, &limit, nullptr), 0);
  }

  Daemon server_;
};

TEST_F(MemoryUsedUp, ByUnfinishedRequestsCostsThoseWhoSendThem) {
  constexpr int kPeers = 100;
  Client database(server_);
  database.registers("db1");
  limitMemory(16 * kMebibyte);
  const Message longRequest({{"findPort", std::string(kLong, 'x')}, {"portHost", "h"}});
  const std::string part = frame(longRequest).substr(0, kLong - 1);
  std::vector<RawConnection> peers;
  for (int i = 0; i < kPeers; ++i) {
    peers.push_back(server_.rawConnection());
    static_cast<void>(peers.back().send(part));  // cut short where the server closes
    ASSERT_TRUE(database.knows("db1"));
  }
  EXPECT_TRUE(
      server_.complains("connection closed, there is no memory for its requests and replies"));
  EXPECT_TRUE(server_.registers("db2")) << "short requests need next to none";
  EXPECT_TRUE(server_.finds("db2"));
  peers.clear();
  EXPECT_TRUE(waitUntil([&] { return server_.rawConnection().ask(longRequest).has_value(); }))
      << "the memory does not come back";
}

TEST_F(MemoryUsedUp, ByRegistrationsEndsTheProcessWithALineAndWholePreferences) {
  PreferenceClient preferences(server_);
  preferences.sets("anna", {{"databases", "db1"}});
  // A request that comes in pieces needs memory before it is delivered. Want of it costs the
  // connection alone: then the next one goes on. A new connection might get no memory either.
  std::vector<RawConnection> databases;
  for (int i = 0; i < 50; ++i) {
    databases.push_back(server_.rawConnection());
    ASSERT_TRUE(databases.back().ask(Message({{"findPort", "db1"}, {"portHost", "h"}})));
  }
  limitMemory(16 * kMebibyte);
  // One connection may not hold all that there is: 64 MiB of addresses may be reserved already.
  constexpr int kMostOfAConnection = 4000;
  int registered = 0;
  for (RawConnection& database : databases) {
    for (int i = 0; i < kMostOfAConnection; ++i) {
      if (!database.ask(
              Client::reconnection(std::to_string(registered) + std::string(10000, 'x'), "1"))) {
        break;
      }
      ++registered;
    }
  }
  EXPECT_GT(registered, 500);
  EXPECT_EQ(server_.waitForExit(), 128 + SIGABRT);
  EXPECT_TRUE(server_.complains("an unexpected exception ends the process: std::bad_alloc\n"));
  EXPECT_EQ(preferencesOnDisk(server_), PropertyList::parse("{ anna = { databases = db1; }; }"));
  server_.start();
  EXPECT_TRUE(server_.registers("db1"));
}

}  // namespace
}  // namespace sorvane::test
