#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "daemon/Arguments.h"

namespace sorvane {
namespace {

class Arguments : public testing::Test {
 protected:
  void startedWith(std::vector<const char*> arguments) {
    arguments_ = std::move(arguments);
    recordArguments(static_cast<int>(arguments_.size()), arguments_.data());
  }
  void TearDown() override { recordArguments(0, nullptr); }

  std::vector<const char*> arguments_;
};

TEST_F(Arguments, AreCountedWithTheProgramsPath) {
  startedWith({"/usr/bin/program", "kill", "extra"});
  EXPECT_EQ(VN_parameterCount(), 3);
}

TEST_F(Arguments, AreAnsweredByTheirIndexUnderBothNames) {
  startedWith({"/usr/bin/program", "verbose", ""});
  for (auto parameter : {&VN_parameter, &parameterString}) {
    EXPECT_STREQ(parameter(0), "/usr/bin/program");
    EXPECT_STREQ(parameter(1), "verbose");
    EXPECT_STREQ(parameter(2), "");
  }
}

TEST_F(Arguments, OutsideTheArrayAreNull) {
  startedWith({"program", "verbose"});
  for (auto parameter : {&VN_parameter, &parameterString}) {
    EXPECT_EQ(parameter(2), nullptr) << "the count itself";
    EXPECT_EQ(parameter(std::numeric_limits<std::int32_t>::max()), nullptr);
    EXPECT_EQ(parameter(-1), nullptr);
    EXPECT_EQ(parameter(std::numeric_limits<std::int32_t>::min()), nullptr);
  }
}

TEST_F(Arguments, WithoutAnArrayOrInAnEmptyOneAreNone) {
  recordArguments(3, nullptr);
  EXPECT_EQ(VN_parameterCount(), 0);
  EXPECT_EQ(VN_parameter(0), nullptr);
  startedWith({});
  EXPECT_EQ(VN_parameterCount(), 0);
  EXPECT_EQ(parameterString(0), nullptr);
}

}  // namespace
}  // namespace sorvane
