#include "platform/server/Pipelining.h"

#include <gtest/gtest.h>

#include <iterator>
#include <utility>

#include "support/WaitUntil.h"

namespace sorvane::test {

std::string numbered(int number) {
  const char* const keys[] = {"echo", "echo", "wait", "echo", "echo", "log", "echo", "preferences"};
  const auto kind = static_cast<std::size_t>(number) % std::size(keys);
  return frame(Message({{keys[kind], std::to_string(number)}}));
}

Pipelining::Pipelining(RawConnection connection)
    : connection_(std::move(connection)), thread_([this] { run(); }) {}

Pipelining::~Pipelining() {
  isOver_ = true;
  thread_.join();
}

bool Pipelining::getsOn() const {
  const int before = answered_;
  return waitUntil([&] { return answered_ > before; });
}

void Pipelining::run() {
  constexpr int kAtOnce = 20;
  for (int number = 0; !isOver_;) {
    std::string requests;
    for (const int end = number + kAtOnce; number < end; ++number) {
      requests += numbered(number);
    }
    connection_.send(requests);
    ASSERT_EQ(connection_.receive(requests.size()), requests);
    answered_ += kAtOnce;
  }
  connection_.send(numbered(0));
  connection_.shutdownWriting();
  EXPECT_EQ(connection_.receive(1000), numbered(0)) << "none is doubled";
}

}  // namespace sorvane::test
