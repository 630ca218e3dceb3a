#include <gtest/gtest.h>
#include <time.h>

#include "platform/TimeSource.h"

namespace sorvane {
namespace {

double systemSeconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST(TimeSource, CountsFromTheFirstOfJanuary2001) {
  tm reference{};
  reference.tm_year = 101;
  reference.tm_mday = 1;
  const double epoch = static_cast<double>(timegm(&reference));
  const double before = systemSeconds() - epoch;
  const double asked = timeIntervalSinceReferenceDate();
  EXPECT_GE(asked, before - 1e-3);
  EXPECT_LE(asked, systemSeconds() - epoch + 1e-3);
}

TEST(TimeSource, IsTheClockOfATestUntilItIsPutBack) {
  setTimeSource([] { return 12.5; });
  EXPECT_EQ(timeIntervalSinceReferenceDate(), 12.5);
  setTimeSource(nullptr);
  EXPECT_GT(timeIntervalSinceReferenceDate(), 1e8);
}

}  // namespace
}  // namespace sorvane
