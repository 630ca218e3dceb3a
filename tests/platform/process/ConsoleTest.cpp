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
#include "support/ConsoleLines.h"
#include "support/OwnNamespaces.h"

namespace sorvane {
namespace {

using test::ConsoleLines;
using test::inOwnProcess;
using test::outputOfPart;
using test::timesIn;

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

/// The lines that the console shows of a text, the program's name left out.
std::string linesOf(const char* text) {
  return test::withoutProgramName(outputOfPart([&] { consoleLine(text); }).errors);
}

TEST(Console, LineCarriesTheNameAndTheNumberOfTheProcess) {
  const test::PartEnd part = outputOfPart([] {
    printf("%s", prefix().c_str());
    consoleLine("hello");
  });
  EXPECT_EQ(part.errors, part.output + "hello\n");
}

TEST(Console, TextWithLineFeedsBecomesSeveralLines) {
  EXPECT_EQ(linesOf("one\ntwo"), "one\ntwo\n");
  EXPECT_EQ(linesOf("one\n\ntwo"), "one\n\ntwo\n");
  EXPECT_EQ(linesOf(""), "\n");
}

TEST(Console, OneLineFeedAtTheEndAddsNoLine) {
  EXPECT_EQ(linesOf("one\n"), "one\n");
  EXPECT_EQ(linesOf("one\n\n"), "one\n\n");
  EXPECT_EQ(linesOf("\n"), "\n");
}

/// So many lines, each ended by a line feed: "line 1", "line 2", ...
std::string numberedLines(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) {
    text += "line " + std::to_string(i) + "\n";
  }
  return text;
}

TEST(Console, TextOfManyLinesIsCutAndSaysHowManyWereLeftOut) {
  EXPECT_EQ(linesOf(numberedLines(100).c_str()), numberedLines(100));
  EXPECT_EQ(linesOf(numberedLines(101).c_str()),
            numberedLines(100) + "1 more lines of this text were left out\n");
  EXPECT_EQ(linesOf((numberedLines(100) + "\n").c_str()),
            numberedLines(100) + "1 more lines of this text were left out\n");
  EXPECT_EQ(linesOf((numberedLines(110000) + "no line feed").c_str()),
            numberedLines(100) + "109901 more lines of this text were left out\n");
}

TEST(Console, TextOfManyLinesIsWrittenAtOnce) {
  inOwnProcess([] {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    consoleLine(numberedLines(150));
    std::array<char, 65536> buffer;
    const ssize_t length = recv(ends[0], buffer.data(), buffer.size(), MSG_DONTWAIT);
    ASSERT_GT(length, 0);
    const std::string first(buffer.data(), static_cast<std::size_t>(length));
    EXPECT_EQ(timesIn(first, prefix()), 101) << first;
    EXPECT_EQ(recv(ends[0], buffer.data(), buffer.size(), MSG_DONTWAIT), -1) << "a second write";
  });
}

TEST(Console, LinesOfATextThatAPipeHasNoRoomForAreCounted) {
  inOwnProcess([] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int room = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    ASSERT_GT(room, 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    const std::string longLine(static_cast<std::size_t>(room) / 3, 'x');
    consoleLine(longLine + "\n" + longLine + "\n" + longLine + "\n" + longLine + "\n");
    EXPECT_EQ(readAvailable(ends[0]), prefix() + longLine + "\n" + prefix() + longLine + "\n");
    consoleLine("read again\nand again");
    EXPECT_EQ(readAvailable(ends[0]), prefix() + "2 console lines were left out\n" + prefix() +
                                          "read again\n" + prefix() + "and again\n");
  });
}

TEST(Console, TextIsNeverAFormat) { EXPECT_EQ(linesOf("100 %s%n %%"), "100 %s%n %%\n"); }

TEST(Console, LineLongerThanAPipeTakesAtOnceIsWrittenWhole) {
  const std::string text(20000, 'x');
  EXPECT_EQ(linesOf(text.c_str()), text + "\n");
}

TEST(Console, PipeThatNobodyReadsIsNotWaitedForAndTheLossIsCounted) {
  inOwnProcess([] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    constexpr int kLines = 5000;
    for (int i = 0; i < kLines; ++i) {
      consoleLine("a line that is long enough to fill the pipe before all of them are written");
    }
    const int taken = timesIn(readAvailable(ends[0]), "a line that");
    EXPECT_LT(taken, kLines);
    EXPECT_GT(taken, 100);
    consoleLine("read again");
    EXPECT_EQ(readAvailable(ends[0]), prefix() + std::to_string(kLines - taken) +
                                          " console lines were left out\n" + prefix() +
                                          "read again\n");
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0) << "the shared flags were changed";
  });
}

TEST(Console, TerminalThatTakesNothingIsNotWaitedFor) {
  inOwnProcess([] {
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
    EXPECT_GT(timesIn(readAvailable(master), "a line that"), 10);
  });
}

TEST(Console, SocketThatNobodyReadsIsNotWaitedFor) {
  inOwnProcess([] {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    for (int i = 0; i < 20000; ++i) {
      consoleLine("a line that is long enough to fill the socket's queue in a while");
    }
    EXPECT_GT(timesIn(readAvailable(ends[0]), "a line that"), 100);
  });
}

TEST(Console, PipeWithoutAReaderEndsNothing) {
  inOwnProcess([] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    consoleLine("nobody reads this");
  });
}

TEST(Console, ClosedStandardErrorEndsNothing) {
  inOwnProcess([] {
    close(STDERR_FILENO);
    consoleLine("nobody reads this");
  });
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
  test::inOwnNetwork([] {
    const OwnSystemLog log;
    consoleLine("100 %s%n");
    const std::string entry = log.next();
    EXPECT_EQ(entry.rfind("<29>", 0), 0U) << "not facility daemon, level notice: " << entry;
    EXPECT_NE(entry.find("platform_tests"), std::string::npos) << entry;
    EXPECT_NE(entry.find(": 100 %s%n"), std::string::npos) << entry;
  });
}

TEST(Console, TextOfSeveralLinesGoesToTheSystemLogLineByLine) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  test::inOwnNetwork([] {
    const OwnSystemLog log;
    consoleLine("one\ntwo\nthree\n");
    for (const char* const end : {": one", ": two", ": three"}) {
      EXPECT_TRUE(log.next().ends_with(end)) << end;
    }
    EXPECT_EQ(log.next(), "");
  });
}

TEST(Console, SystemLogThatIsNotReadIsNotWaitedFor) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const test::PartEnd part = test::outputInOwnNetwork([] {
    const OwnSystemLog log;
    for (int i = 0; i < 2000; ++i) {
      consoleLine("again");
    }
    EXPECT_NE(log.next(), "");
  });
  EXPECT_EQ(part.status, 0) << part.output;
}

TEST(ConsoleSink, ReceivesEachLineBare) {
  const ConsoleLines lines;
  consoleLine("one\ntwo\n");
  EXPECT_EQ(lines.all(), (std::vector<std::string>{"one", "two"}));
}

TEST(ConsoleRateLimit, LetsABurstThroughAndCountsTheRest) {
  ConsoleLines lines;
  ConsoleRateLimit limit;
  const ConsoleRateLimit::Clock::time_point start{std::chrono::hours(1)};
  for (int i = 0; i < ConsoleRateLimit::kBurst + 7; ++i) {
    limit.line("flood", start + std::chrono::milliseconds(i));
  }
  EXPECT_EQ(lines.all(), std::vector<std::string>(ConsoleRateLimit::kBurst, "flood"));
  lines.clear();
  limit.line("later", start + std::chrono::seconds(ConsoleRateLimit::kSeconds));
  EXPECT_EQ(lines.all(),
            (std::vector<std::string>{"7 lines like the next one were left out", "later"}));
}

TEST(ConsoleRateLimit, OfManyThreadsLetsOneBurstThrough) {
  const ConsoleLines lines;
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
  EXPECT_EQ(lines.count("flood"), ConsoleRateLimit::kBurst);
}

}  // namespace
}  // namespace sorvane
