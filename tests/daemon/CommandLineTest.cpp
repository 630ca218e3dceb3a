#include <gtest/gtest.h>

#include "daemon/CommandLine.h"

namespace sorvane {
namespace {

TEST(CommandLine, TheFirstWordDecidesTheStart) {
  const struct {
    const char* word;
    StartMode mode;
  } rows[] = {
      {"-MachLaunch", StartMode::verbose}, {"verbose", StartMode::verbose},
      {"-verbose", StartMode::verbose},    {"noexit", StartMode::foreground},
      {"-noexit", StartMode::foreground},  {"kill", StartMode::stopAll},
      {"-kill", StartMode::stopAll},       {"-understands", StartMode::answers},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(startMode(row.word), row.mode) << row.word;
  }
}

TEST(CommandLine, NoWordOrAnyOtherDetaches) {
  EXPECT_EQ(startMode(nullptr), StartMode::detached);
  for (const char* word :
       {"", "-Verbose", "VERBOSE", "-machlaunch", "MachLaunch", "--noexit", "Kill", "kill ",
        " kill", "killall", "-", "understands", "noexi", "noexit2", "\xFF"}) {
    EXPECT_EQ(startMode(word), StartMode::detached) << word;
  }
}

}  // namespace
}  // namespace sorvane
