#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"
#include "support/WatchedThread.h"
#include "system/Streams.h"

namespace sorvane {
namespace {

class Streams : public testing::Test {
 protected:
  /// A stream on a file that holds `content`.
  FILE* streamOf(std::string_view content) {
    test::writeFile(path_, content);
    stream_ = VN_fopen(path_.c_str(), "r");
    EXPECT_NE(stream_, nullptr);
    return stream_;
  }

  void TearDown() override {
    if (stream_ != nullptr) {
      VN_fclose(stream_);
    }
  }

  test::TemporaryFolder folder_;
  std::string path_ = (folder_ / "file").string();
  FILE* stream_ = nullptr;
};

bool isInherited(int descriptor) { return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0; }

/// A pipe whose writing end never waits.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  ~Pipe() {
    close(ends[0]);
    close(ends[1]);
  }
  int ends[2] = {-1, -1};
};

TEST_F(Streams, OpenCreatesAndAppends) {
  for (const char* text : {"one ", "two"}) {
    FILE* stream = VN_fopen(path_.c_str(), "a+");
    ASSERT_NE(stream, nullptr);
    fputs(text, stream);
    EXPECT_EQ(VN_fclose(stream), 0);
  }
  EXPECT_EQ(test::readFile(path_), "one two");
}

TEST_F(Streams, OpenOfAMissingFileAnswersNullAndTheReason) {
  errno = 0;
  EXPECT_EQ(VN_fopen((folder_ / "missing").c_str(), "r"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Streams, OpenReadsTheModeFromACopy) {
  std::string mode = "w+";
  FILE* stream = VN_fopen(path_.c_str(), mode.data());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(mode, "w+");
  VN_fclose(stream);
}

TEST_F(Streams, StartedProgramsInheritNeitherStreamsNorDescriptors) {
  EXPECT_FALSE(isInherited(fileno(streamOf("text"))));
  const int descriptor = VN_ropen(path_.c_str());
  EXPECT_FALSE(isInherited(descriptor));
  VN_rclose(descriptor);
}

TEST_F(Streams, FgetsKeepsTheLineFeedAndTakesOneByteLessThanTheSize) {
  char buffer[5];
  FILE* stream = streamOf("ab\ncdefgh");
  ASSERT_EQ(VN_fgets(buffer, sizeof buffer, stream), buffer);
  EXPECT_STREQ(buffer, "ab\n");
  ASSERT_EQ(VN_fgets(buffer, sizeof buffer, stream), buffer);
  EXPECT_STREQ(buffer, "cdef");
  ASSERT_EQ(VN_fgets(buffer, sizeof buffer, stream), buffer);
  EXPECT_STREQ(buffer, "gh");
  EXPECT_EQ(VN_fgets(buffer, sizeof buffer, stream), nullptr);
}

TEST_F(Streams, FgetsNocrTakesAwayTheLineEnd) {
  const struct {
    const char* line;
    const char* text;
  } rows[] = {
      {"abc\r\n", "abc"}, {"abc\n", "abc"}, {"abc", "abc"},   {"ab\rcd\r\n", "ab"},
      {"\r\n", ""},       {"\n", ""},       {"abc\r", "abc"},
  };
  for (const auto& row : rows) {
    char buffer[32];
    FILE* stream = streamOf(row.line);
    ASSERT_EQ(VN_fgets_nocr(buffer, sizeof buffer, stream), buffer) << row.line;
    EXPECT_STREQ(buffer, row.text);
    EXPECT_EQ(VN_fgets_nocr(buffer, sizeof buffer, stream), nullptr);
    VN_fclose(stream);
  }
  stream_ = nullptr;
}

TEST_F(Streams, FgetcAnswersBytesFrom0To255AndThenNone) {
  FILE* stream = streamOf(std::string_view("\0\x7F\xFF", 3));
  EXPECT_EQ(VN_fgetc(stream), 0);
  EXPECT_EQ(VN_fgetc(stream), 127);
  EXPECT_EQ(VN_fgetc(stream), 255);
  EXPECT_EQ(VN_fgetc(stream), -1);
}

TEST_F(Streams, ReadAnswersHowManyBytesCame) {
  char buffer[16] = "";
  FILE* stream = streamOf("abcdef");
  EXPECT_EQ(VN_read(stream, buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 4), "abcd");
  EXPECT_EQ(VN_read(stream, buffer, 16), 2);
  EXPECT_EQ(VN_read(stream, buffer, 16), 0);
  EXPECT_EQ(VN_read(stream, buffer, -1), 0);
}

TEST_F(Streams, RopenCreatesADataFileAndKeepsAnExistingOne) {
  umask(022);
  int descriptor = VN_ropen(path_.c_str());
  ASSERT_GE(descriptor, 0);
  struct stat facts {};
  ASSERT_EQ(fstat(descriptor, &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0644U);
  EXPECT_EQ(VN_rwrite(descriptor, "abc", 3), 1);
  EXPECT_EQ(VN_rclose(descriptor), 0);

  descriptor = VN_ropen(path_.c_str());
  char buffer[4] = "";
  EXPECT_EQ(VN_rread(descriptor, buffer, 3), 1);
  EXPECT_STREQ(buffer, "abc");
  VN_rclose(descriptor);
}

TEST_F(Streams, RopenInAMissingFolderAnswersMinusOne) {
  EXPECT_EQ(VN_ropen((folder_ / "missing/file").c_str()), -1);
}

TEST_F(Streams, RreadOfLessThanAskedAndOfNothingSucceeds) {
  test::writeFile(path_, "abc");
  const int descriptor = VN_ropen(path_.c_str());
  char buffer[8] = "";
  EXPECT_EQ(VN_rread(descriptor, buffer, 8), 1);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(VN_rread(descriptor, buffer, 8), 1);
  VN_rclose(descriptor);
}

TEST_F(Streams, ReadingAndWritingFailOnADescriptorThatIsNotOpenForIt) {
  char buffer[8] = "";
  EXPECT_EQ(VN_rread(-1, buffer, 8), 0);
  EXPECT_EQ(VN_rwrite(-1, buffer, 8), 0);
  EXPECT_EQ(VN_rclose(-1), 0);
}

TEST_F(Streams, RwriteOfPartOfTheBufferFails) {
  Pipe pipe;
  ASSERT_EQ(fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK), 0);
  const std::string more(1 << 20, 'x');  // than a pipe takes
  EXPECT_EQ(VN_rwrite(pipe.ends[1], more.data(), static_cast<std::uint32_t>(more.size())), 0);
  char first = '\0';
  EXPECT_EQ(VN_rread(pipe.ends[0], &first, 1), 1);
  EXPECT_EQ(first, 'x') << "a part was written";
}

TEST_F(Streams, RwriteOnAFullDiskFails) {
  test::inOwnMounts([this] {
    test::mountSmallDisk(folder_.path(), 64);
    const int descriptor = VN_ropen(path_.c_str());
    const std::string tooMuch(128 << 10, 'x');
    EXPECT_EQ(VN_rwrite(descriptor, tooMuch.data(), 128 << 10), 0) << "a part fits";
    EXPECT_EQ(VN_rwrite(descriptor, "x", 1), 0) << "nothing fits";
    EXPECT_EQ(VN_rclose(descriptor), 0);
  });
}

TEST_F(Streams, RseekGoesToAPlaceFromTheStart) {
  test::writeFile(path_, "abcdef");
  const int descriptor = VN_ropen(path_.c_str());
  char buffer[3] = "";
  EXPECT_EQ(VN_rseek(descriptor, 4), 1);
  EXPECT_EQ(VN_rseek(descriptor, 2), 1);
  EXPECT_EQ(VN_rread(descriptor, buffer, 2), 1);
  EXPECT_STREQ(buffer, "cd");
  EXPECT_EQ(VN_rseek(descriptor, std::int64_t{1} << 33), 1) << "beyond 32 bits";
  EXPECT_EQ(VN_rseek(descriptor, -1), 0);
  VN_rclose(descriptor);
}

TEST_F(Streams, RflushAnswersOne) { EXPECT_EQ(VN_rflush(), 1); }

TEST_F(Streams, AnInterruptedRreadGoesOn) {
  Pipe pipe;
  char buffer[4] = "";
  int answer = -1;
  test::WatchedThread reader([&] { answer = VN_rread(pipe.ends[0], buffer, 3); });
  reader.interrupt();
  ASSERT_EQ(VN_rwrite(pipe.ends[1], "abc", 3), 1);
  reader.join();
  EXPECT_EQ(answer, 1);
  EXPECT_STREQ(buffer, "abc");
}

TEST(SystemLock, IsNullUntilTheFirstCallThatNeedsIt) {
  test::inOwnProcess([] {
    // A child of a program that has used the lock begins anew with none.
    systemLock = nullptr;
    EXPECT_EQ(VN_rflush(), 1);
    EXPECT_EQ(systemLock, nullptr);
    VN_rclose(-1);
    pthread_mutex_t* const made = systemLock;
    EXPECT_NE(made, nullptr);
    VN_rclose(-1);
    EXPECT_EQ(systemLock, made) << "it is made once";
  });
}

TEST(SystemLock, IsMadeOnceByThreadsThatComeTogether) {
  test::inOwnProcess([] {
    systemLock = nullptr;
    std::atomic<int> waiting{0};
    std::vector<pthread_mutex_t*> seen(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < seen.size(); ++i) {
      threads.emplace_back([&, i] {
        ++waiting;
        while (waiting < 4) {
        }
        VN_rclose(-1);
        seen[i] = systemLock;
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(seen, std::vector<pthread_mutex_t*>(4, systemLock));
  });
}

TEST_F(Streams, OpenAndCloseWaitForTheSystemLockReadingAndWritingDoNot) {
  FILE* stream = streamOf("abc");
  const int descriptor = VN_ropen(path_.c_str());
  char buffer[8] = "";
  ASSERT_EQ(QB_lock_mutex(systemLock), 0);

  EXPECT_EQ(VN_read(stream, buffer, 3), 3);
  EXPECT_EQ(VN_rread(descriptor, buffer, 3), 1);
  EXPECT_EQ(VN_rwrite(descriptor, buffer, 3), 1);
  EXPECT_EQ(VN_rseek(descriptor, 0), 1);

  std::atomic<int> done{0};
  std::list<test::WatchedThread> waiters;
  waiters.emplace_back([&] { VN_fclose(stream), ++done; });
  waiters.emplace_back([&] { VN_rclose(descriptor), ++done; });
  waiters.emplace_back([&] { VN_rclose(VN_ropen(path_.c_str())), ++done; });
  waiters.emplace_back([&] { VN_fclose(VN_fopen(path_.c_str(), "r")), ++done; });
  for (const test::WatchedThread& waiter : waiters) {
    EXPECT_TRUE(waiter.comesToAWait()) << "it got by";
  }
  EXPECT_EQ(done, 0);

  ASSERT_EQ(QB_unlock_mutex(systemLock), 0);
  waiters.clear();
  EXPECT_EQ(done, 4);
  stream_ = nullptr;
}

TEST_F(Streams, ManyThreadsOpenAndCloseTogether) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      const std::string own = path_ + std::to_string(i);
      for (int round = 0; round < 50; ++round) {
        FILE* stream = VN_fopen(own.c_str(), "w+");
        ASSERT_NE(stream, nullptr);
        fputs(own.c_str(), stream);
        EXPECT_EQ(VN_fclose(stream), 0);
        VN_rclose(VN_ropen(own.c_str()));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(test::readFile(path_ + std::to_string(i)), path_ + std::to_string(i));
  }
}

}  // namespace
}  // namespace sorvane
