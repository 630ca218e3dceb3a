#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/RunningProgram.h"
#include "platform/TimeSource.h"
#include "support/ForkedPart.h"

namespace sorvane::test {
namespace {

TEST(RunningProgram, BeganOnceForAProcessAndItsChildren) {
  const double begun = programBegun();
  const double now = timeIntervalSinceReferenceDate();
  EXPECT_LE(begun, now);
  EXPECT_GT(begun, now - 600) << "tests take less time";
  EXPECT_EQ(processNumber(), getpid());
  const ForkedPart child([&](const ForkedPart& self) {
    self.tell(programBegun() == begun && processNumber() == getpid() ? 1 : 0);
  });
  EXPECT_EQ(child.hear(), 1);
}

}  // namespace
}  // namespace sorvane::test
