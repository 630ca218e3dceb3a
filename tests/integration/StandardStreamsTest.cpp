// Programs that are started without some of the three standard streams.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

/// The sum of 1, 2 and 4 for standard input, output and error that are closed.
class ClosedStreams : public testing::TestWithParam<int> {
 protected:
  static bool isClosed(int stream) { return (GetParam() & (1 << stream)) != 0; }
  static void closeStreams() {
    for (const int stream : {0, 1, 2}) {
      if (isClosed(stream)) {
        close(stream);
      }
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Sets, ClosedStreams, testing::Range(0, 8));

TEST_P(ClosedStreams, OfTheNameServerAreOpenOnNothingElse) {
  Daemon server;
  server.launch({"-verbose"}, closeStreams);
  ASSERT_TRUE(server.answers());
  for (const int stream : {0, 1, 2}) {
    const auto file = std::filesystem::read_symlink("/proc/" + std::to_string(server.process()) +
                                                    "/fd/" + std::to_string(stream));
    EXPECT_EQ(file == "/dev/null", isClosed(stream)) << stream << " is " << file;
    EXPECT_TRUE(file == "/dev/null" || file.filename() == "input" || file.filename() == "output" ||
                file.filename() == "errors")
        << stream << " is " << file;
  }
  ASSERT_TRUE(server.registers("db1"));
  EXPECT_FALSE(server.ask({{"acceptPort", ""}}));
  EXPECT_TRUE(server.logs("Exception detected."));
  EXPECT_EQ(server.log().find("sorvinfo["), std::string::npos) << "the console is not the log";
  if (!isClosed(STDERR_FILENO)) {
    EXPECT_TRUE(server.complains("Exception detected."));
  }
}

TEST_P(ClosedStreams, OfSorvctlDoNotReachTheNameServer) {
  Daemon server;
  server.start();
  Program ping(builtProgram("sorvctl"), {"--port", std::to_string(server.basePort()), "ping"},
               Program::Options{{}, closeStreams});
  EXPECT_EQ(ping.wait(), 0);
  Program search(builtProgram("sorvctl"),
                 {"--port", std::to_string(server.basePort()), "find", "nobody"},
                 Program::Options{{}, closeStreams});
  EXPECT_EQ(search.wait(), 1);
  EXPECT_EQ(server.console(), "");
}

}  // namespace
}  // namespace sorvane::test
