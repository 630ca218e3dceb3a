#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <thread>

#include "platform/EndProcess.h"
#include "support/ForkedPart.h"

namespace sorvane {
namespace {

TEST(EndProcess, FlushesStandardOutputAndEndsWithStatus0) {
  const test::PartEnd part = test::outputOfPart([] {
    printf("not flushed yet");
    endProcess();
  });
  EXPECT_EQ(part.status, 0);
  EXPECT_EQ(part.output, "not flushed yet");
}

TEST(EndProcess, DoesTheLastActBeforeAnythingElse) {
  const test::PartEnd part = test::outputOfPart([] {
    setLastAct([] { printf("last act"); });
    endProcess();
  });
  EXPECT_EQ(part.status, 0);
  EXPECT_EQ(part.output, "last act");
}

TEST(EndProcess, RunsNoExitHandler) {
  const test::PartEnd part = test::outputOfPart([] {
    atexit([] { _exit(7); });
    endProcess();
  });
  EXPECT_EQ(part.status, 0);
}

TEST(EndProcess, WorksFromAnyThread) {
  const test::PartEnd part = test::outputOfPart([] {
    std::thread([] { endProcess(); }).join();
    _exit(7);
  });
  EXPECT_EQ(part.status, 0);
}

}  // namespace
}  // namespace sorvane
