#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <limits>
#include <new>
#include <string>

#include "platform/HandOver.h"
#include "platform/SharedMemory.h"
#include "support/ForkedPart.h"

namespace sorvane::test {
namespace {

TEST(SharedMemory, IsZeroAndSharedWithForkedProcesses) {
  constexpr std::size_t kBytes = 100000;
  const SharedMemory memory(kBytes);
  EXPECT_EQ(std::count(memory.bytes(), memory.bytes() + kBytes, 0), kBytes);
  inOwnProcess([&] { memory.bytes()[kBytes - 1] = 'x'; });
  EXPECT_EQ(memory.bytes()[kBytes - 1], 'x');
}

TEST(SharedMemory, RaisesWhenThereIsNoMemory) {
  EXPECT_THROW(SharedMemory(std::numeric_limits<std::size_t>::max() / 4), std::bad_alloc);
}

TEST(MemoryFile, KeepsItsBytesWhenItGrows) {
  MemoryFile file;
  ASSERT_TRUE(file.isOpen());
  ASSERT_TRUE(file.growTo(3));
  std::copy_n("abc", 3, file.bytes());
  ASSERT_TRUE(file.growTo(100000));
  EXPECT_EQ(file.size(), 100000U);
  EXPECT_EQ(std::string(file.bytes(), 4), std::string("abc\0", 4));
  file.bytes()[99999] = 'z';
  const MappedFile read(file.descriptor());
  EXPECT_EQ(read.bytes().size(), 100000U);
  EXPECT_EQ(read.bytes().back(), 'z');
  EXPECT_GE(fcntl(file.descriptor(), F_GETFD), 0) << "reading leaves the descriptor open";
}

TEST(MemoryFile, StaysAsItIsWhenThereIsNoMemory) {
  inOwnProcess([] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{8192, 8192};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    MemoryFile file;
    ASSERT_TRUE(file.growTo(100));
    file.bytes()[99] = 'x';
    EXPECT_FALSE(file.growTo(100000));
    EXPECT_EQ(file.size(), 100U);
    EXPECT_EQ(file.bytes()[99], 'x');
  });
}

}  // namespace
}  // namespace sorvane::test
