#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <thread>

#include "platform/EndProcess.h"
#include "support/ChildProcess.h"

namespace sorvane {
namespace {

TEST(EndProcess, FlushesStandardOutputAndEndsWithStatus0) {
  const test::ChildEnd child = test::runInChild([] {
    printf("not flushed yet");
    endProcess();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.output, "not flushed yet");
}

TEST(EndProcess, RunsNoExitHandler) {
  const test::ChildEnd child = test::runInChild([] {
    atexit([] { _exit(7); });
    endProcess();
  });
  EXPECT_EQ(child.status, 0);
}

TEST(EndProcess, WorksFromAnyThread) {
  const test::ChildEnd child = test::runInChild([] {
    std::thread([] { endProcess(); }).join();
    _exit(7);
  });
  EXPECT_EQ(child.status, 0);
}

}  // namespace
}  // namespace sorvane
