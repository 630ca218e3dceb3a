#include <gtest/gtest.h>

#include "platform/Message.h"
#include "platform/wire/Frame.h"
#include "platform/wire/ReplyBuffer.h"
#include "support/WireBytes.h"

namespace sorvane {
namespace {

using Shared = std::shared_ptr<const std::string>;

Shared sharedText(std::size_t bytes, char letter) {
  return std::make_shared<const std::string>(bytes, letter);
}

std::string wholeOf(const ReplyBuffer& buffer) {
  std::string whole;
  buffer.forEachPiece([&](std::string_view piece) { whole += piece; });
  EXPECT_EQ(whole.size(), buffer.size());
  return whole;
}

const Shared kFirst = sharedText(MessageWriter::kLeastSharedBytes, 'a');
const Shared kSecond = sharedText(MessageWriter::kLeastSharedBytes + 1, 'b');

TEST(ReplyBuffer, HasItsOwnBytesAndSharedTextsInTheOrderOfTheWriting) {
  ReplyBuffer buffer;
  MessageWriter writer(buffer);
  writer.text("x", "own");
  writer.sharedText("first", kFirst);
  writer.sharedText("second", kSecond);
  writer.text("y", "more");
  EXPECT_EQ(wholeOf(buffer), test::entry("x", std::string("own") + '\0') +
                                 test::entry("first", *kFirst + '\0') +
                                 test::entry("second", *kSecond + '\0') +
                                 test::entry("y", std::string("more") + '\0'));
}

TEST(ReplyBuffer, DoesNotCopyALongSharedText) {
  ReplyBuffer buffer;
  MessageWriter(buffer).sharedText("first", kFirst);
  EXPECT_LT(buffer.own().size(), 20U);
  ASSERT_EQ(buffer.shared().size(), 1U);
  EXPECT_EQ(buffer.shared()[0].text, kFirst);
}

TEST(ReplyBuffer, CopiesAShortSharedTextAndOneForAnotherBuffer) {
  const Shared shortText = sharedText(MessageWriter::kLeastSharedBytes - 1, 'c');
  ReplyBuffer buffer;
  MessageWriter(buffer).sharedText("c", shortText);
  EXPECT_TRUE(buffer.shared().empty());
  EXPECT_EQ(wholeOf(buffer), test::entry("c", *shortText + '\0'));
  ByteBuffer plain;
  MessageWriter(plain).sharedText("a", kFirst);
  EXPECT_EQ(plain.view(), test::entry("a", *kFirst + '\0'));
}

TEST(ReplyBuffer, CountsSharedTextsInTheLengthOfTheirFrameAlone) {
  ReplyBuffer buffer;
  for (const Shared& each : {kFirst, kSecond}) {
    const std::size_t begin = beginFrame(buffer.own());
    MessageWriter(buffer).sharedText("k", each);
    endFrame(buffer.own(), begin, buffer.sharedBytesBeyond(begin));
  }
  EXPECT_EQ(wholeOf(buffer), test::frameOfBody(test::entry("k", *kFirst + '\0')) +
                                 test::frameOfBody(test::entry("k", *kSecond + '\0')));
}

TEST(ReplyBuffer, CutsOffAFrameWithItsSharedTextsAndLeavesTheOneBefore) {
  ReplyBuffer buffer;
  static_cast<void>(beginFrame(buffer.own()));
  MessageWriter(buffer).sharedText("k", kFirst);
  const std::string before = wholeOf(buffer);
  const std::size_t begin = beginFrame(buffer.own());
  MessageWriter(buffer).sharedText("k", kSecond);
  buffer.truncate(begin);
  EXPECT_EQ(wholeOf(buffer), before);
  buffer.clear();
  EXPECT_TRUE(buffer.empty());
  EXPECT_TRUE(buffer.shared().empty());
}

TEST(ReplyBuffer, IsEmptyAfterItWasMoved) {
  ReplyBuffer from;
  MessageWriter(from).sharedText("k", kFirst);
  const std::string whole = wholeOf(from);
  ReplyBuffer to = std::move(from);
  EXPECT_EQ(wholeOf(to), whole);
  EXPECT_TRUE(from.empty());  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_EQ(wholeOf(from), "");
}

TEST(ReplyBuffer, KeepsASharedTextAlive) {
  ReplyBuffer buffer;
  auto text = std::make_shared<const std::string>(MessageWriter::kLeastSharedBytes, 'd');
  const std::weak_ptr<const std::string> watched = text;
  MessageWriter(buffer).sharedText("k", std::move(text));
  EXPECT_FALSE(watched.expired());
  buffer.clear();
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace sorvane
