#include "integration/HeldServerLock.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace sorvane::test {

HeldServerLock::HeldServerLock(Daemon& server, const std::function<void()>& beforeStart)
    : server_(server) {
  server.launch({"-noexit"}, [&] {
    beforeStart();
    ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libheld_lock.so", 1);
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    ::setenv("HELD_LOCK_GATE", gate_.c_str(), 1);
  });
  EXPECT_TRUE(server.answers());
}

void HeldServerLock::hold() {
  writeFile(gate_, "");
  command_ = std::make_unique<RawConnection>(server_.rawConnection());
  // A command that tries for this lock alone.
  ASSERT_TRUE(command_->send(frame(Message({{"action", "changeTimestamp"}}))));
  ASSERT_TRUE(comesToHold(gate_.string() + ".held", "held"));
}

void HeldServerLock::release() {
  EXPECT_TRUE(command_->staysSilent(std::chrono::milliseconds(0)));
  std::filesystem::remove(gate_);
  const auto reply = command_->receiveFrame();
  ASSERT_TRUE(reply);
  EXPECT_TRUE(reply->message().contains("result"));
}

}  // namespace sorvane::test
