// The main function of every test program.
#include <gtest/gtest.h>

#include "support/ProcessState.h"

namespace {

/// Each test finds the process as the first one found it.
class ResetAfterEachTest : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& /*test*/) override { sorvane::test::resetProcessState(); }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new ResetAfterEachTest);
  return RUN_ALL_TESTS();
}
