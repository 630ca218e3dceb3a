// What the name server allocates for the requests that come all day: nothing.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "integration/Daemon.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

constexpr int kRequests = 10000;
constexpr int kPipelined = 16;
constexpr int kConnections = 4;  // so that each serving thread has some

/// A name server whose allocations are counted: see CountAllocations.cpp.
class Allocation : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!areTestedWithoutSanitizers()) {
      GTEST_SKIP() << "a build with sanitizers has an allocator of its own, which allocates more";
    }
    writeFile(count_, std::string(sizeof(std::uint64_t), '\0'));
    server_.launch({"-noexit"}, [this] {
      ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libcount_allocations.so", 1);
      ::setenv("ALLOCATION_COUNT", count_.c_str(), 1);
    });
    ASSERT_TRUE(server_.answers()) << server_.console();
    ASSERT_TRUE(server_.hasTakenLock());
    for (int i = 0; i < kConnections; ++i) {
      clients_.push_back(server_.rawConnection());
    }
  }

  [[nodiscard]] std::uint64_t allocations() const {
    std::uint64_t number = 0;
    const std::string bytes = readFile(count_);
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
  }

  /// Registers db0, db1 and so on, which takes memory.
  void registers(int databases) {
    const std::uint64_t before = allocations();
    for (int i = 0; i < databases; ++i) {
      const std::string name = "db" + std::to_string(i);
      ASSERT_TRUE(clients_[0].ask(Message(
          {{"reconnectPort", name}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}})));
    }
    ASSERT_GE(allocations() - before, static_cast<std::uint64_t>(databases))
        << "allocations are not counted";
  }

  /// Sends `total` requests, on one connection after the other, `together` at once.
  void asks(const Message& request, int total, int together) {
    std::string requests;
    for (int i = 0; i < together; ++i) {
      requests += frame(request);
    }
    for (int i = 0; i < total; i += together) {
      RawConnection& client = clients_[static_cast<std::size_t>(i / together) % clients_.size()];
      ASSERT_TRUE(client.send(requests));
      for (int reply = 0; reply < together; ++reply) {
        ASSERT_EQ(client.receiveFrame()->kind, 1);
      }
    }
  }

  void expectNoneFor(const Message& request) {
    for (const int together : {1, kPipelined}) {
      asks(request, 10 * kConnections * together, together);  // buffers grow to their working size
      const std::uint64_t before = allocations();
      asks(request, kRequests, together);
      EXPECT_EQ(allocations() - before, 0U)
          << "for " << kRequests << " requests, " << together << " at once";
    }
  }

  const TemporaryFolder folder_;
  const std::filesystem::path count_ = folder_ / "count";
  Daemon server_;
  std::vector<RawConnection> clients_;
};

Message findPort(std::string_view name) { return {{"findPort", name}, {"portHost", "client"}}; }

TEST_F(Allocation, IsNotDoneForAPing) {
  registers(1);
  expectNoneFor({{"ping", "ping"}});
}

TEST_F(Allocation, IsNotDoneForALookupInARegistryOfOneName) {
  registers(1);
  expectNoneFor(findPort("db0"));
}

TEST_F(Allocation, IsNotDoneForALookupInARegistryOfAThousandNames) {
  registers(1000);
  expectNoneFor(findPort("db999"));
}

TEST_F(Allocation, IsNotDoneForALookupInVain) {
  registers(1);
  expectNoneFor(findPort("a name that is too long to be kept in a small string"));
}

TEST_F(Allocation, IsNotDoneForDidPortsChange) {
  registers(1);
  expectNoneFor({{"action", "didPortsChange"}});
}

/// Changes are made on one serving thread and told on others: one that does not get the lock at
/// once leaves its request to a waiting thread, which allocates. So there is one serving thread
/// here.
class AllocationOnOneThread : public Allocation {
 protected:
  void SetUp() override {
    server_.setting("Threads", "1");
    Allocation::SetUp();
  }
};

TEST_F(AllocationOnOneThread, IsNotDoneForAWatcherThatWaitsOnceMore) {
  const Message waiting({{"action", "awaitPortChanges"}});
  const Message change({{"action", "needsRefresh"}});
  const auto waitsForChanges = [&](int changes) {
    for (int i = 0; i < changes; ++i) {
      for (std::size_t watcher = 1; watcher < clients_.size(); ++watcher) {
        ASSERT_TRUE(clients_[watcher].send(frame(waiting)));
      }
      ASSERT_TRUE(clients_.front().ask(change));
      for (std::size_t watcher = 1; watcher < clients_.size(); ++watcher) {
        ASSERT_TRUE(clients_[watcher].receiveFrame());
      }
    }
  };
  waitsForChanges(100);
  const std::uint64_t before = allocations();
  waitsForChanges(kRequests / 10);
  EXPECT_EQ(allocations() - before, 0U);
}

}  // namespace
}  // namespace sorvane::test
