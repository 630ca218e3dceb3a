#include <gtest/gtest.h>

#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

/// A system call that fails with each error in turn and then returns 7.
struct ScriptedCall {
  std::vector<int> errors;
  std::size_t calls = 0;

  long operator()() {
    if (calls < errors.size()) {
      errno = errors[calls++];
      return -1;
    }
    ++calls;
    return 7;
  }
};

TEST(WithoutInterruption, RepeatsWhatASignalInterrupted) {
  ScriptedCall call{{EINTR, EINTR}};
  EXPECT_EQ(withoutInterruption(call), 7);
  EXPECT_EQ(call.calls, 3U);
}

TEST(WithoutInterruption, ReturnsAnyOtherFailureAtOnce) {
  ScriptedCall call{{EINTR, EAGAIN, EINTR}};
  EXPECT_EQ(withoutInterruption(call), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(call.calls, 2U);
}

TEST(WithoutInterruption, IgnoresAnErrorNumberLeftByAnEarlierCall) {
  ScriptedCall call;
  errno = EINTR;
  EXPECT_EQ(withoutInterruption(call), 7);
  EXPECT_EQ(call.calls, 1U);
}

}  // namespace
}  // namespace sorvane
