#include <gtest/gtest.h>

#include <cstdio>

#include "platform/ProductVersion.h"

namespace sorvane {
namespace {

TEST(ProductVersion, EndsWithItsBuildDate) {
  const BuildDate date = productBuildDate();
  EXPECT_GE(date.year, 2026);
  EXPECT_TRUE(date.month >= 1 && date.month <= 12) << date.month;
  EXPECT_TRUE(date.day >= 1 && date.day <= 31) << date.day;
  char text[32];
  std::snprintf(text, sizeof text, ") %02d.%02d.%04d", date.month, date.day, date.year);
  EXPECT_TRUE(productVersion().ends_with(text)) << productVersion();
}

}  // namespace
}  // namespace sorvane
