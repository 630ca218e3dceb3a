// The end of the process while its connections are busy.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <list>
#include <thread>

#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

/// Clients that register, look up, watch, store preferences and leave without a pause, until the
/// name server is gone.
class BusyClients {
 public:
  explicit BusyClients(const Daemon& server) {
    for (int i = 0; i < kThreads; ++i) {
      threads_.emplace_back([this, i, &server] { run(i, server); });
    }
    EXPECT_TRUE(waitUntil([this] { return busy_ == kThreads * kConnectionsEach; }));
  }
  ~BusyClients() {
    done_ = true;
    for (std::thread& each : threads_) {
      each.join();
    }
  }
  BusyClients(const BusyClients&) = delete;
  BusyClients& operator=(const BusyClients&) = delete;

 private:
  static constexpr int kThreads = 5;
  static constexpr int kConnectionsEach = 10;

  void run(int thread, const Daemon& server) {
    const std::string name = "db" + std::to_string(thread);
    std::vector<std::string> requests;
    for (const Message& each :
         {Message({{"newPort", ""}, {"portName", name}, {"portHost", "h"}, {"portType", "t"}}),
          Message({{"acceptPort", ""}}), Message({{"findPort", name}, {"portHost", "h"}}),
          Message({{"action", "didPortsChange"}}),
          Message({{"action", "set_userpreferences"}, {"key", name}, {"databases", "db1"}}),
          Message({{"action", "databaseStates"}}), Message({{"ping", ""}})}) {
      requests.push_back(frame(each));
    }
    std::list<RawConnection> clients;
    for (std::size_t turn = 0; !done_; ++turn) {
      if (clients.size() < kConnectionsEach) {
        RawConnection& newcomer = clients.emplace_back(server.basePort());
        for (const std::string& each : requests) {  // so many are under way on each connection
          if (!newcomer.send(each)) {
            return;
          }
        }
        ++busy_;
      } else if (!clients.front().receiveFrame() ||
                 !clients.front().send(requests[turn % requests.size()])) {
        return;
      } else if (turn % 10 == 0) {
        clients.pop_front();
        --busy_;
      } else {
        clients.splice(clients.end(), clients, clients.begin());
      }
    }
  }

  std::atomic<bool> done_{false};
  std::atomic<int> busy_{0};
  std::vector<std::thread> threads_;
};

constexpr int kRounds = 20;

class EndWhileClientsAreBusy : public testing::Test {
 protected:
  /// The status of a server that `end` ends; it must have said nothing more.
  int statusAfter(const std::function<void()>& end) {
    server_.start();
    const BusyClients clients(server_);
    end();
    const int status = server_.waitForExit().value_or(-1);
    EXPECT_EQ(server_.console(), "");
    return status;
  }
  [[nodiscard]] int statusAfter(const Message& request) {
    return statusAfter([&] {
      RawConnection client = server_.rawConnection();
      EXPECT_TRUE(client.send(frame(request)));
      EXPECT_FALSE(client.receiveFrame());
    });
  }

  Daemon server_;
};

TEST_F(EndWhileClientsAreBusy, ByTerminateHasStatusZero) {
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_EQ(statusAfter(Message({{"terminate", ""}})), 0) << i;
  }
}

TEST_F(EndWhileClientsAreBusy, ByRestartHasStatusZero) {
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_EQ(statusAfter(Message({{"action", "restart"}})), 0) << i;
  }
}

TEST_F(EndWhileClientsAreBusy, BySigtermIsThatOfTheSignalAndOfNoOther) {
  for (int i = 0; i < kRounds; ++i) {
    ASSERT_EQ(statusAfter([this] { kill(server_.process(), SIGTERM); }), 128 + SIGTERM) << i;
  }
}

TEST(EndByALockHeldElsewhere, WhileClientsConnectHasStatusZero) {
  Daemon first;
  first.start();
  Daemon second;
  second.setting("LockDirectory", "\"" + (first.tree() / "lock").string() + "\"");
  std::atomic<bool> done{false};
  std::thread connecting([&] {
    while (!done) {
      RawConnection client = second.rawConnection();
      if (client.isConnected() && client.send(frame(Message({{"action", "databaseStates"}})))) {
        static_cast<void>(client.receive(8));
      }
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    second.launch();
    EXPECT_EQ(second.waitForExit(), 0) << i;
  }
  done = true;
  connecting.join();
}

// ---- An exception that no command may raise

TEST(ForeignExceptionWithinACommand, EndsTheProcessByAbortAfterOneConsoleLine) {
  const TemporaryFolder folder;
  const auto gate = folder / "gate";
  Daemon server;
  server.launch({"-verbose"}, [&gate] {
    ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libthrowing_log.so", 1);
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    ::setenv("THROWING_LOG_GATE", gate.c_str(), 1);
  });
  ASSERT_TRUE(server.logs("succeeded. "));
  RawConnection client = server.rawConnection();
  const std::string find = frame(Message({{"findPort", "db1"}, {"portHost", "h"}}));
  ASSERT_TRUE(client.send(find));
  ASSERT_TRUE(client.receiveFrame());
  const std::string before = server.console();

  writeFile(gate, "");
  ASSERT_TRUE(client.send(find));
  EXPECT_TRUE(client.isClosedByPeer()) << "no reply, and no client left hanging";
  EXPECT_EQ(server.waitForExit(), 128 + SIGABRT);
  EXPECT_EQ(server.console().substr(before.size()),
            "sorvinfo[" + std::to_string(server.process()) +
                "]: an unexpected exception ends the process: a foreign exception\n");
}

}  // namespace
}  // namespace sorvane::test
