#include <gtest/gtest.h>

#include <string>

#include "platform/wire/Frame.h"
#include "support/WireBytes.h"

namespace sorvane {
namespace {

constexpr std::size_t kLimit = 1000;

TEST(Frame, HeaderIsReadWhenItsEightBytesAreThere) {
  const std::string frame = test::frameOfBody("body!");
  const FrameHeader header = readFrameHeader(frame, kLimit);
  EXPECT_EQ(header.fault, nullptr);
  EXPECT_TRUE(header.complete);
  EXPECT_EQ(header.kind, FrameKind::dictionary);
  EXPECT_EQ(header.bodyBytes, 5U);
}

TEST(Frame, AnyPartOfAGoodHeaderIsIncompleteAndNoFault) {
  const std::string frame = test::frameOfBody("body!");
  for (std::size_t have = 0; have < kFrameHeaderBytes; ++have) {
    const FrameHeader header = readFrameHeader(frame.substr(0, have), kLimit);
    EXPECT_EQ(header.fault, nullptr) << have;
    EXPECT_FALSE(header.complete) << have;
    EXPECT_EQ(header.bodyBytes, 0U) << have;
  }
}

struct Bad {
  const char* name;
  std::string bytes;
  const char* reason;
};

class BadHeader : public testing::TestWithParam<Bad> {};

TEST_P(BadHeader, IsToldAtTheFirstByteThatShowsIt) {
  EXPECT_STREQ(readFrameHeader(GetParam().bytes, kLimit).fault, GetParam().reason);
  const std::string oneLess = GetParam().bytes.substr(0, GetParam().bytes.size() - 1);
  EXPECT_EQ(readFrameHeader(oneLess, kLimit).fault, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Each, BadHeader,
    testing::Values(Bad{"FirstMark", "G", "wrong mark"}, Bad{"SecondMark", "SX", "wrong mark"},
                    Bad{"Version", std::string("SV\2", 3), "wrong version"},
                    Bad{"Kind", std::string("SV\1\2", 4), "wrong kind"},
                    Bad{"NegativeKind", std::string("SV\1\xff", 4), "wrong kind"},
                    Bad{"BodyAboveTheLimit", std::string("SV\1\1\0\0\3\xe9", 8),
                        "a body above the limit"},
                    Bad{"BodyWithoutDictionary", std::string("SV\1\0\0\0\0\1", 8),
                        "a body without a dictionary"}),
    [](const auto& each) { return each.param.name; });

TEST(Frame, ABodyAtTheLimitIsTaken) {
  const FrameHeader header = readFrameHeader(std::string("SV\1\1\0\0\3\xe8", 8), kLimit);
  EXPECT_EQ(header.fault, nullptr);
  EXPECT_EQ(header.bodyBytes, 1000U);
}

TEST(Frame, HeaderIsReadTheSameWithoutTheShortWay) {
  for (const std::string& body : {std::string(), std::string("body!"), std::string(kLimit, 'x')}) {
    const FrameHeader header = readUnusualFrameHeader(test::frameOfBody(body), kLimit);
    EXPECT_EQ(header.fault, nullptr);
    EXPECT_TRUE(header.complete);
    EXPECT_EQ(header.kind, FrameKind::dictionary);
    EXPECT_EQ(header.bodyBytes, body.size());
  }
}

TEST(Frame, OfManyMebibytesIsReadByItsKind) {
  constexpr std::size_t kLongBody = std::size_t{1} << 24;
  const auto read = [](int kind) {
    return readFrameHeader(test::frameWith("SV", 1, kind, kLongBody, ""), 2 * kLongBody);
  };
  EXPECT_EQ(read(1).fault, nullptr);
  EXPECT_EQ(read(1).kind, FrameKind::dictionary);
  EXPECT_EQ(read(1).bodyBytes, kLongBody);
  EXPECT_STREQ(read(0).fault, "a body without a dictionary");
  EXPECT_STREQ(read(2).fault, "wrong kind");
}

TEST(Frame, OfAReplyHasABodyOf64MebibytesAtMost) { EXPECT_EQ(kMaximumReplyBytes, 67108864U); }

TEST(Frame, WithoutADictionaryIsTakenWhateverTheLimit) {
  for (const std::size_t limit : {std::size_t{0}, kLimit}) {
    const FrameHeader header = readFrameHeader(test::nilFrame(), limit);
    EXPECT_EQ(header.fault, nullptr) << limit;
    EXPECT_TRUE(header.complete) << limit;
    EXPECT_EQ(header.kind, FrameKind::none) << limit;
    EXPECT_EQ(header.bodyBytes, 0U) << limit;
  }
}

TEST(Frame, IsWrittenAsItIsRead) {
  ByteBuffer buffer;
  buffer.append("before");
  const std::size_t begin = beginFrame(buffer);
  buffer.append("content");
  endFrame(buffer, begin);
  EXPECT_EQ(buffer.view(), "before" + test::frameOfBody("content"));

  ByteBuffer whole;
  appendFrame(whole, "content");
  EXPECT_EQ(whole.view(), test::frameOfBody("content"));

  ByteBuffer none;
  appendEmptyFrame(none);
  EXPECT_EQ(none.view(), test::nilFrame());
}

}  // namespace
}  // namespace sorvane
