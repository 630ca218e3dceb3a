#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "platform/wire/ByteBuffer.h"

namespace sorvane {
namespace {

TEST(ByteBuffer, KeepsWhatWasAppendedWhileItGrows) {
  ByteBuffer buffer;
  std::string expected;
  // Each is longer than all before, so that doubling alone does not make room for it.
  for (std::size_t bytes = 0; bytes < 100000; bytes = 3 * bytes + 1) {
    const std::string more(bytes, static_cast<char>('a' + bytes % 26));
    if (bytes % 2 == 0) {
      buffer.append(more);
    } else {
      std::memcpy(buffer.extend(bytes), more.data(), bytes);
    }
    expected += more;
    ASSERT_GE(buffer.capacity(), buffer.size());
    ASSERT_EQ(buffer.view(), expected);
  }
}

TEST(ByteBuffer, GrowsSeldomHoweverSmallThePiecesAre) {
  ByteBuffer buffer;
  int times = 0;
  for (int count = 0; count < 100000; ++count) {
    const std::size_t before = buffer.capacity();
    buffer.append("ten bytes.");
    times += buffer.capacity() == before ? 0 : 1;
  }
  EXPECT_LE(times, 16);
}

TEST(ByteBuffer, KeepsItsMemoryWhenItIsCutOffOrCleared) {
  ByteBuffer buffer;
  buffer.append(std::string(1000, 'x') + "y");
  const char* const bytes = buffer.data();
  buffer.truncate(3);
  EXPECT_EQ(buffer.view(), "xxx");
  buffer.clear();
  EXPECT_TRUE(buffer.empty());
  buffer.append(std::string(1001, 'z'));
  EXPECT_EQ(buffer.data(), bytes);
}

TEST(ByteBuffer, OfMoreBytesThanThereCanBeRaisesAndStaysAsItWas) {
  ByteBuffer buffer;
  buffer.append("text");
  EXPECT_THROW(static_cast<void>(buffer.extend(std::numeric_limits<std::size_t>::max())),
               std::bad_alloc);
  EXPECT_EQ(buffer.view(), "text");
}

TEST(ByteBuffer, IsEmptyAndWithoutMemoryAfterItWasMoved) {
  ByteBuffer from;
  from.append("text");
  ByteBuffer to;
  to.append("before");
  to = std::exchange(from, ByteBuffer());
  EXPECT_EQ(to.view(), "text");
  EXPECT_TRUE(from.empty());
  EXPECT_EQ(from.capacity(), 0U);
  from.append("again");
  EXPECT_EQ(from.view(), "again");
  EXPECT_EQ(to.view(), "text");
}

}  // namespace
}  // namespace sorvane
