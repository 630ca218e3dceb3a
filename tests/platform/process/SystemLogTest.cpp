#include <gtest/gtest.h>
#include <sys/socket.h>

#include "platform/Console.h"
#include "platform/RecordedSockets.h"
#include "support/ForkedPart.h"

namespace sorvane {
namespace {

TEST(SystemLog, IsAskedByASocketThatNoStartedProgramInherits) {
  const test::PartEnd part = test::outputOfPart([] {
    const test::RecordedSockets sockets;
    consoleLine("a line");
    const auto asked = sockets.of(AF_UNIX);
    ASSERT_FALSE(asked.empty());
    for (const test::SocketRequest& each : asked) {
      EXPECT_NE(each.type & SOCK_CLOEXEC, 0);
    }
  });
  EXPECT_EQ(part.status, 0) << part.output;
}

}  // namespace
}  // namespace sorvane
