#include "integration/HeldServerLock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

namespace sorvane::test {

HeldServerLock::HeldServerLock(Daemon& server) : server_(server) {
  const auto path = server.tree() / "Logs/infoserver_log";
  EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  log_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  EXPECT_GE(log_, 0);
  server.start({"-verbose"});
  EXPECT_TRUE(server.complains("succeeded. ")) << "the last line before the commands' own";
}

HeldServerLock::~HeldServerLock() { close(log_); }

void HeldServerLock::hold() {
  const std::string filling(4096, 'x');
  for (std::size_t bytes = filling.size(); bytes > 0; bytes /= 2) {
    while (write(log_, filling.data(), bytes) > 0) {
    }
  }
  holder_ = std::make_unique<RawConnection>(server_.rawConnection());
  ASSERT_TRUE(holder_->send(frame(Message({{"findPort", "nobody"}, {"portHost", "h"}}))));
  ASSERT_TRUE(waitUntil([this] {
    RawConnection waiting = server_.rawConnection();
    return waiting.send(frame(Message({{"action", "changeTimestamp"}}))) &&
           waiting.staysSilent(std::chrono::milliseconds(100));
  })) << "commands are still answered";
}

void HeldServerLock::release() {
  ASSERT_TRUE(waitUntil([this] {
    readLog();
    return !holder_->staysSilent(std::chrono::milliseconds(1));
  }));
  EXPECT_EQ(holder_->receiveFrame()->message().text("notFound"), "notFound");
  readLog();
}

void HeldServerLock::readLog() const {
  char sink[65536];
  while (read(log_, sink, sizeof sink) > 0) {
  }
}

}  // namespace sorvane::test
