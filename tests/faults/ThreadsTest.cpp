// A name server that gets no further thread from the system while it serves.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <string_view>
#include <vector>

#include "integration/Daemon.h"
#include "support/TestedBuild.h"
#include "support/Texts.h"

namespace sorvane::test {
namespace {

TEST(ThreadsUsedUp, WhileServingCostNobodyTheReply) {
  constexpr int kPeers = 20;
  Daemon server;
  server.setting("Threads", "1");
  server.launch({"-noexit"}, [] {
    ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libfew_threads.so", 1);
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    // As many as the start takes; the thread sanitizer has one of its own.
    ::setenv("SORVANE_TEST_THREADS", areTestedWithoutSanitizers() ? "5" : "6", 1);
  });
  ASSERT_TRUE(server.answers());
  std::vector<RawConnection> peers;
  for (int i = 0; i < kPeers; ++i) {
    peers.push_back(server.rawConnection());
    ASSERT_TRUE(peers.back().ask(Message({{"ping", ""}})));
  }
  // All come in the same turn of the serving loop, and each is for a waiting thread.
  ASSERT_EQ(kill(server.process(), SIGSTOP), 0);
  for (RawConnection& each : peers) {
    EXPECT_TRUE(each.send(frame(request("hostInfo", {}))));
  }
  ASSERT_EQ(kill(server.process(), SIGCONT), 0);
  for (RawConnection& each : peers) {
    const auto reply = each.receiveFrame();
    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->message().contains("result"));
  }
}

}  // namespace
}  // namespace sorvane::test
