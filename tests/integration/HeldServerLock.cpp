#include "integration/HeldServerLock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>

namespace sorvane::test {
namespace {

constexpr int kPatienceForPoll = static_cast<int>(std::chrono::milliseconds(kPatience).count());

}  // namespace

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
  readLog();
  const int room = fcntl(log_, F_SETPIPE_SZ, 4096);
  ASSERT_GT(room, 0);
  holder_ = std::make_unique<RawConnection>(server_.rawConnection());
  const std::string longer(2 * static_cast<std::size_t>(room), 'x');  // than the pipe takes
  ASSERT_TRUE(holder_->send(frame(Message({{"findPort", "nobody"}, {"portHost", longer}}))));
  pollfd begun{log_, POLLIN, 0};
  ASSERT_EQ(poll(&begun, 1, kPatienceForPoll), 1) << "the search is not written to the log";
}

void HeldServerLock::release() {
  fcntl(log_, F_SETPIPE_SZ, 1 << 20);
  do {
    readLog();
    std::array<pollfd, 2> either{{{log_, POLLIN, 0}, {holder_->descriptor(), POLLIN, 0}}};
    ASSERT_GT(poll(either.data(), either.size(), kPatienceForPoll), 0);
  } while (holder_->staysSilent(std::chrono::milliseconds(0)));
  EXPECT_EQ(holder_->receiveFrame()->message().text("notFound"), "notFound");
  readLog();
}

void HeldServerLock::readLog() const {
  char sink[65536];
  while (read(log_, sink, sizeof sink) > 0) {
  }
}

}  // namespace sorvane::test
