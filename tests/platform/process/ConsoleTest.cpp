#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "platform/Console.h"
#include "support/ChildProcess.h"

namespace sorvane {
namespace {

using test::ChildEnd;
using test::runInChild;

/// The prefix that the running program puts before each line.
std::string prefix() { return "platform_tests[" + std::to_string(getpid()) + "]: "; }

std::string readAvailable(int descriptor) {
  std::string text;
  std::array<char, 65536> buffer;
  fcntl(descriptor, F_SETFL, O_NONBLOCK);
  ssize_t length = 0;
  while ((length = read(descriptor, buffer.data(), buffer.size())) > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(length));
  }
  return text;
}

std::size_t occurrences(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size()) {
    ++count;
  }
  return count;
}

/// Everything that a child wrote, with the prefix shown as "P: ".
std::string shown(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    const std::string line = text.substr(at, end - at);
    const std::size_t close = line.find("]: ");
    EXPECT_EQ(line.rfind("platform_tests[", 0), 0U) << line;
    result += "P: " + line.substr(close + 3) + "\n";
    at = end + 1;
  }
  return result;
}

std::string linesOf(const char* text) {
  return shown(runInChild([&] { consoleLine(text); }).errors);
}

TEST(Console, LineCarriesTheNameAndTheNumberOfTheProcess) {
  const ChildEnd child = runInChild([] {
    printf("%s", prefix().c_str());
    consoleLine("hello");
  });
  EXPECT_EQ(child.errors, child.output + "hello\n");
}

TEST(Console, TextWithLineFeedsBecomesSeveralLines) {
  EXPECT_EQ(linesOf("one\ntwo"), "P: one\nP: two\n");
  EXPECT_EQ(linesOf("one\n\ntwo"), "P: one\nP: \nP: two\n");
  EXPECT_EQ(linesOf(""), "P: \n");
}

TEST(Console, OneLineFeedAtTheEndAddsNoLine) {
  EXPECT_EQ(linesOf("one\n"), "P: one\n");
  EXPECT_EQ(linesOf("one\n\n"), "P: one\nP: \n");
  EXPECT_EQ(linesOf("\n"), "P: \n");
}

TEST(Console, TextIsNeverAFormat) { EXPECT_EQ(linesOf("100 %s%n %%"), "P: 100 %s%n %%\n"); }

TEST(Console, LineLongerThanAPipeTakesAtOnceIsWrittenWhole) {
  const std::string text(20000, 'x');
  EXPECT_EQ(linesOf(text.c_str()), "P: " + text + "\n");
}

TEST(Console, PipeThatNobodyReadsIsNotWaitedForAndTheLossIsCounted) {
  const ChildEnd child = runInChild([] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    constexpr int kLines = 5000;
    for (int i = 0; i < kLines; ++i) {
      consoleLine("a line that is long enough to fill the pipe before all of them are written");
    }
    const std::size_t taken = occurrences(readAvailable(ends[0]), "a line that");
    EXPECT_LT(taken, kLines);
    EXPECT_GT(taken, 100);
    consoleLine("read again");
    EXPECT_EQ(readAvailable(ends[0]), prefix() + std::to_string(kLines - taken) +
                                          " console lines were left out\n" + prefix() +
                                          "read again\n");
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0) << "the shared flags were changed";
  });
  EXPECT_EQ(child.status, 0) << child.output;
}

TEST(Console, TerminalThatTakesNothingIsNotWaitedFor) {
  const ChildEnd child = runInChild([] {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(dup2(terminal, STDERR_FILENO), STDERR_FILENO);
    for (int i = 0; i < 5000; ++i) {
      consoleLine("a line that is long enough to fill the terminal's queue in a while");
    }
    EXPECT_GT(occurrences(readAvailable(master), "a line that"), 10U);
  });
  EXPECT_EQ(child.status, 0) << child.output << " signal " << child.signal;
}

TEST(Console, SocketThatNobodyReadsIsNotWaitedFor) {
  const ChildEnd child = runInChild([] {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    for (int i = 0; i < 20000; ++i) {
      consoleLine("a line that is long enough to fill the socket's queue in a while");
    }
    EXPECT_GT(occurrences(readAvailable(ends[0]), "a line that"), 100U);
  });
  EXPECT_EQ(child.status, 0) << child.output << " signal " << child.signal;
}

TEST(Console, PipeWithoutAReaderEndsNothing) {
  const ChildEnd child = runInChild([] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    consoleLine("into the void");
  });
  EXPECT_EQ(child.status, 0) << child.output << " signal " << child.signal;
}

TEST(Console, ClosedStandardErrorEndsNothing) {
  const ChildEnd child = runInChild([] {
    close(STDERR_FILENO);
    consoleLine("into the void");
  });
  EXPECT_EQ(child.status, 0) << child.output << " signal " << child.signal;
}

/// A system log of the child's own: a socket in a /dev that only the child sees.
class OwnSystemLog {
 public:
  OwnSystemLog() : socket_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    EXPECT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0);
    sockaddr_un address{AF_UNIX, "/dev/log"};
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  std::string next() const {
    std::array<char, 1000> buffer;
    const ssize_t length = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    return length < 0 ? "" : std::string(buffer.data(), static_cast<std::size_t>(length));
  }

 private:
  int socket_;
};

TEST(Console, LineGoesToTheSystemLogWhereOneRuns) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const ChildEnd child = test::runInOwnNetwork([] {
    const OwnSystemLog log;
    consoleLine("100 %s%n");
    const std::string entry = log.next();
    EXPECT_EQ(entry.rfind("<29>", 0), 0U) << "not facility daemon, level notice: " << entry;
    EXPECT_NE(entry.find("platform_tests"), std::string::npos) << entry;
    EXPECT_NE(entry.find(": 100 %s%n"), std::string::npos) << entry;
  });
  EXPECT_EQ(child.status, 0) << child.output;
}

TEST(Console, SystemLogThatIsNotReadIsNotWaitedFor) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const ChildEnd child = test::runInOwnNetwork([] {
    const OwnSystemLog log;
    for (int i = 0; i < 2000; ++i) {
      consoleLine("again");
    }
    EXPECT_NE(log.next(), "");
  });
  EXPECT_EQ(child.status, 0) << child.output << " signal " << child.signal;
}

/// The lines that a sink received.
std::vector<std::string>& sunk() {
  static std::vector<std::string> lines;
  return lines;
}

class ConsoleSinkTest : public testing::Test {
 protected:
  ConsoleSinkTest() {
    sunk().clear();
    setConsoleSink([](std::string_view line) { sunk().emplace_back(line); });
  }
  ~ConsoleSinkTest() override { setConsoleSink(nullptr); }
};

TEST_F(ConsoleSinkTest, ReceivesEachLineBare) {
  consoleLine("one\ntwo\n");
  EXPECT_EQ(sunk(), (std::vector<std::string>{"one", "two"}));
}

TEST_F(ConsoleSinkTest, RateLimitLetsABurstThroughAndCountsTheRest) {
  ConsoleRateLimit limit;
  const ConsoleRateLimit::Clock::time_point start{std::chrono::hours(1)};
  for (int i = 0; i < ConsoleRateLimit::kBurst + 7; ++i) {
    limit.line("flood", start + std::chrono::milliseconds(i));
  }
  EXPECT_EQ(sunk(), std::vector<std::string>(ConsoleRateLimit::kBurst, "flood"));
  sunk().clear();
  limit.line("later", start + std::chrono::seconds(ConsoleRateLimit::kSeconds));
  EXPECT_EQ(sunk(), (std::vector<std::string>{"7 lines like the next one were left out", "later"}));
}

TEST_F(ConsoleSinkTest, RateLimitOfManyThreadsLetsOneBurstThrough) {
  static std::atomic<int> lines;
  lines = 0;
  setConsoleSink([](std::string_view) { ++lines; });
  ConsoleRateLimit limit;
  const auto now = ConsoleRateLimit::Clock::now();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int line = 0; line < 100; ++line) {
        limit.line("flood", now);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(lines, ConsoleRateLimit::kBurst);
}

}  // namespace
}  // namespace sorvane
