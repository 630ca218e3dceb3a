#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <type_traits>

#include "platform/Descriptor.h"
#include "platform/RecordedSockets.h"
#include "support/ForkedPart.h"

namespace sorvane {
namespace {

static_assert(!std::is_copy_constructible_v<Descriptor> && !std::is_copy_assignable_v<Descriptor>,
              "two owners would close a number twice");

Descriptor openNull() { return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

bool isOpenNumber(int number) { return fcntl(number, F_GETFD) != -1; }

TEST(WriteAll, TellsWhyItFailed) {
  const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(writeAll(full.number(), "x"), std::errc::no_space_on_device);
  EXPECT_FALSE(writeAll(full.number(), ""));
}

TEST(Descriptor, HasANumberBelowTheEnd) {
  test::inOwnProcess([] {
    const rlimit limit{40, 40};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(endOfDescriptors(), 40U);
    Descriptor last;
    for (Descriptor next = openNull(); next.isOpen(); next = openNull()) {
      static_cast<void>(last.release());
      last = std::move(next);
    }
    EXPECT_EQ(last.number(), 39);
  });
  EXPECT_LE(endOfDescriptors(), std::size_t{1} << 20);
}

TEST(Descriptor, ClosesAtTheEndOfItsLife) {
  int number = -1;
  {
    const Descriptor descriptor = openNull();
    EXPECT_TRUE(descriptor.isOpen());
    number = descriptor.number();
    EXPECT_TRUE(isOpenNumber(number));
  }
  EXPECT_FALSE(isOpenNumber(number));
}

TEST(Descriptor, OfAFailedCallIsNoneAndClosesNothing) {
  EXPECT_FALSE(Descriptor().isOpen());
  errno = ENOENT;
  {
    Descriptor none(-1);
    EXPECT_FALSE(none.isOpen());
    EXPECT_LT(none.number(), 0);
    none.close();
  }
  EXPECT_EQ(errno, ENOENT);
}

TEST(Descriptor, ClosesEarlyAndOnce) {
  Descriptor descriptor = openNull();
  const int number = descriptor.number();
  descriptor.close();
  EXPECT_FALSE(descriptor.isOpen());
  EXPECT_FALSE(isOpenNumber(number));
  const Descriptor another = openNull();
  ASSERT_EQ(another.number(), number);
  descriptor.close();
  EXPECT_TRUE(isOpenNumber(number)) << "the number belongs to another one now";
}

TEST(Descriptor, MovedFromOwnsNone) {
  Descriptor from = openNull();
  const int number = from.number();
  const Descriptor to = std::move(from);
  EXPECT_FALSE(from.isOpen());  // NOLINT(bugprone-use-after-move): what is promised
  EXPECT_EQ(to.number(), number);
  EXPECT_TRUE(isOpenNumber(number));
}

TEST(Descriptor, AssignedToClosesWhatItOwned) {
  Descriptor descriptor = openNull();
  const int first = descriptor.number();
  Descriptor other = openNull();
  const int second = other.number();
  descriptor = std::move(other);
  EXPECT_FALSE(isOpenNumber(first));
  EXPECT_EQ(descriptor.number(), second);
  EXPECT_TRUE(isOpenNumber(second));
}

TEST(Descriptor, ReleasedIsLeftOpen) {
  Descriptor descriptor = openNull();
  const int number = descriptor.release();
  EXPECT_FALSE(descriptor.isOpen());
  EXPECT_TRUE(isOpenNumber(number));
  ::close(number);
}

bool isInherited(const Descriptor& descriptor) {
  return (fcntl(descriptor.number(), F_GETFD) & FD_CLOEXEC) == 0;
}

TEST(OpenSocket, IsNotInheritedFromItsFirstMomentOn) {
  const test::RecordedSockets sockets;
  const Descriptor opened = openSocket(AF_INET, SOCK_DGRAM);
  ASSERT_TRUE(opened.isOpen());
  EXPECT_FALSE(isInherited(opened));
  ASSERT_EQ(sockets.all().size(), 1U);
  EXPECT_NE(sockets.all()[0].type & SOCK_CLOEXEC, 0);
}

TEST(OpenSocket, ThatFailsIsNoneWithTheReason) {
  test::RecordedSockets sockets;
  sockets.refuse(AF_INET, EMFILE);
  EXPECT_FALSE(openSocket(AF_INET, SOCK_DGRAM).isOpen());
  EXPECT_EQ(errno, EMFILE);
}

TEST(OpenPipe, IsNotInheritedAndDoesNotWait) {
  const PipeEnds pipe = openPipe();
  ASSERT_TRUE(pipe.reading.isOpen());
  EXPECT_FALSE(isInherited(pipe.reading));
  EXPECT_FALSE(isInherited(pipe.writing));
  char byte = 0;
  EXPECT_EQ(read(pipe.reading.number(), &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(write(pipe.writing.number(), "x", 1), 1);
  EXPECT_EQ(read(pipe.reading.number(), &byte, 1), 1);
  while (write(pipe.writing.number(), "x", 1) == 1) {
  }
  EXPECT_EQ(errno, EAGAIN);
}

TEST(OpenPipe, WithoutAFreeDescriptorIsNone) {
  test::inOwnProcess([] {
    const rlimit none{0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const PipeEnds pipe = openPipe();
    EXPECT_EQ(errno, EMFILE);
    EXPECT_FALSE(pipe.reading.isOpen());
    EXPECT_FALSE(pipe.writing.isOpen());
  });
}

TEST(Descriptor, KeepsTheReasonOfAnEarlierFailure) {
  errno = EADDRINUSE;
  // No descriptor has this number: closing it fails.
  Descriptor(1 << 28).close();
  EXPECT_EQ(errno, EADDRINUSE);
}

}  // namespace
}  // namespace sorvane
