// The description of a server's connections: what is written is read, and nothing else is.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "platform/server/HandingOn.h"
#include "platform/server/UntakenReplies.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Phase = KeptConnection::Phase;

constexpr int kListener = 3;

std::string described(const std::vector<KeptConnection>& connections) {
  KeptWriter writer;
  KeptConnectionWriter all(writer, kListener, connections.size());
  for (const KeptConnection& each : connections) {
    all.write(each);
  }
  return whole(writer);
}

KeptServer readDescription(const std::string& description) {
  KeptReader reader(description);
  KeptServer kept = readKeptServer(reader);
  reader.end();
  return kept;
}

std::shared_ptr<const std::string> text(const char* text) {
  return std::make_shared<const std::string>(text);
}

/// One connection in each phase, with what it can have there.
std::vector<KeptConnection> oneInEachPhase() {
  KeptConnection reading;
  reading.descriptor = 4;
  reading.input = "part";
  reading.deadline = milliseconds(250);
  KeptConnection sending;
  sending.descriptor = 5;
  sending.phase = Phase::sending;
  sending.input = "behind";
  sending.replies = {"abc", {{0, text("shared")}, {2, text("other")}}, 3};
  sending.deadline = milliseconds(0);
  KeptConnection refused;
  refused.descriptor = 6;
  refused.phase = Phase::sending;
  refused.isRefused = true;
  refused.replies.own = "the last ones";
  refused.deadline = milliseconds(std::numeric_limits<std::int32_t>::max());
  KeptConnection holding;
  holding.descriptor = 7;
  holding.phase = Phase::holding;
  holding.input = "behind, too";
  holding.deadline = milliseconds(30000);
  holding.holdingTime = seconds(300);
  KeptConnection lingering;
  lingering.descriptor = 8;
  lingering.phase = Phase::lingering;
  lingering.isRefused = true;
  lingering.isEnded = true;
  lingering.deadline = milliseconds(999);
  return {reading, sending, refused, holding, lingering};
}

void expectEqual(const KeptConnection& read, const KeptConnection& written) {
  EXPECT_EQ(read.descriptor, written.descriptor);
  EXPECT_EQ(read.phase, written.phase);
  EXPECT_EQ(read.isRefused, written.isRefused);
  EXPECT_EQ(read.isEnded, written.isEnded);
  EXPECT_EQ(read.input, written.input);
  EXPECT_EQ(read.deadline, written.deadline);
  EXPECT_EQ(read.holdingTime, written.holdingTime);
  EXPECT_EQ(read.replies.own, written.replies.own);
  EXPECT_EQ(read.replies.sentOfFirst, written.replies.sentOfFirst);
  ASSERT_EQ(read.replies.shared.size(), written.replies.shared.size());
  for (std::size_t i = 0; i < read.replies.shared.size(); ++i) {
    EXPECT_EQ(read.replies.shared[i].place, written.replies.shared[i].place);
    EXPECT_EQ(*read.replies.shared[i].text, *written.replies.shared[i].text);
  }
}

TEST(KeptServer, IsReadAsItWasWritten) {
  const std::vector<KeptConnection> written = oneInEachPhase();
  const std::string description = described(written);
  const KeptServer kept = readDescription(description);
  EXPECT_EQ(kept.listener, kListener);
  ASSERT_EQ(kept.connections.size(), written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    SCOPED_TRACE(i);
    expectEqual(kept.connections[i], written[i]);
  }
}

TEST(KeptServer, TellsWhichDescriptorsTheNextProgramNeeds) {
  KeptWriter writer;
  KeptConnectionWriter all(writer, kListener, 5);
  for (const KeptConnection& each : oneInEachPhase()) {
    all.write(each);
  }
  EXPECT_EQ(writer.descriptors(), (std::vector<int>{kListener, 4, 5, 6, 7, 8}));
}

TEST(KeptServer, HasATextThatRepliesShareOnceWrittenAndRead) {
  const auto shared = std::make_shared<const std::string>(100000, 's');
  std::vector<KeptConnection> connections(100);
  int descriptor = kListener;
  for (KeptConnection& each : connections) {
    each.descriptor = ++descriptor;
    each.phase = Phase::sending;
    each.replies.shared = {{0, shared}, {0, shared}};
    each.deadline = milliseconds(1);
  }
  const std::string description = described(connections);
  EXPECT_LT(description.size(), shared->size() + 100 * 30);
  const KeptServer kept = readDescription(description);
  const auto& text = kept.connections.front().replies.shared.front().text;
  EXPECT_EQ(*text, *shared);
  for (const KeptConnection& each : kept.connections) {
    ASSERT_EQ(each.replies.shared.size(), 2U);
    EXPECT_EQ(each.replies.shared[0].text, text);
    EXPECT_EQ(each.replies.shared[1].text, text);
  }
}

/// A description that cannot be, made of one that can be.
struct Impossible {
  const char* name;
  std::function<void(std::vector<KeptConnection>&)> make;
};

void PrintTo(const Impossible& each, std::ostream* out) { *out << each.name; }

class ImpossibleKeptServer : public testing::TestWithParam<Impossible> {};

TEST_P(ImpossibleKeptServer, IsRefused) {
  std::vector<KeptConnection> connections = oneInEachPhase();
  GetParam().make(connections);
  EXPECT_THROW(readDescription(described(connections)), KeptFault);
}

constexpr int kReading = 0;
constexpr int kSending = 1;
constexpr int kRefused = 2;
constexpr int kHolding = 3;
constexpr int kLingering = 4;

const Impossible kImpossible[] = {
    {"ADescriptorTwice", [](auto& all) { all[kHolding].descriptor = all[kReading].descriptor; }},
    {"TheListenerAsAConnection", [](auto& all) { all[kHolding].descriptor = kListener; }},
    {"AStandardStream", [](auto& all) { all[kReading].descriptor = 2; }},
    {"APhaseThatThereIsNot", [](auto& all) { all[kLingering].phase = static_cast<Phase>(4); }},
    {"ReadingThoughRefused",
     [](auto& all) {
       all[kReading].isRefused = true;
       all[kReading].input = "";
       all[kReading].deadline.reset();
     }},
    {"ReadingAfterItsEnd", [](auto& all) { all[kReading].isEnded = true; }},
    {"ReadingWithReplies", [](auto& all) { all[kReading].replies.own = "x"; }},
    {"ReadingAPartWithoutDeadline", [](auto& all) { all[kReading].deadline.reset(); }},
    {"ReadingNothingWithADeadline", [](auto& all) { all[kReading].input = ""; }},
    {"SendingAfterItsEnd", [](auto& all) { all[kSending].isEnded = true; }},
    {"SendingWithoutDeadline", [](auto& all) { all[kSending].deadline.reset(); }},
    {"SendingNothingWithADeadline", [](auto& all) { all[kSending].replies = {}; }},
    {"InputOfOneThatIsRefused", [](auto& all) { all[kRefused].input = "x"; }},
    {"HoldingThoughRefused",
     [](auto& all) {
       all[kHolding].isRefused = true;
       all[kHolding].input = "";
       all[kHolding].deadline.reset();
     }},
    {"HoldingAfterItsEnd", [](auto& all) { all[kHolding].isEnded = true; }},
    {"HoldingWithReplies", [](auto& all) { all[kHolding].replies.own = "x"; }},
    {"HoldingADeadlineForNothing", [](auto& all) { all[kHolding].input = ""; }},
    {"LingeringThoughNotRefused", [](auto& all) { all[kLingering].isRefused = false; }},
    {"LingeringBeforeItsEnd", [](auto& all) { all[kLingering].isEnded = false; }},
    {"LingeringForEver", [](auto& all) { all[kLingering].deadline.reset(); }},
    {"LingeringWithReplies", [](auto& all) { all[kLingering].replies.own = "x"; }},
    {"ATextBehindTheEndOfTheReplies", [](auto& all) { all[kSending].replies.shared[1].place = 4; }},
    {"TextsOutOfOrder",
     [](auto& all) {
       auto& shared = all[kSending].replies.shared;
       shared[0].place = 3;
       all[kSending].replies.sentOfFirst = 0;
     }},
    {"MoreSentThanTheTextHas", [](auto& all) { all[kSending].replies.sentOfFirst = 7; }},
};

INSTANTIATE_TEST_SUITE_P(With, ImpossibleKeptServer, testing::ValuesIn(kImpossible),
                         [](const auto& each) { return each.param.name; });

/// A body that is written value by value, from the listening socket on.
std::string ofNumbers(std::initializer_list<std::uint64_t> numbers) {
  KeptWriter writer;
  for (const std::uint64_t each : numbers) {
    writer.number(each);
  }
  return whole(writer);
}

TEST(KeptServer, IsRefusedWithAValueBeyondWhatMayBe) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  constexpr std::uint64_t kLongest = std::numeric_limits<std::int32_t>::max();
  // Listener, count; descriptor, phase, refused, ended, input; own replies, shared texts; deadline.
  EXPECT_NO_THROW(readDescription(ofNumbers({3, 1, 4, 0, 0, 0, 0, 0, 0, 0})));
  EXPECT_THROW(readDescription(ofNumbers({3, kMost, 4, 0, 0, 0, 0, 0, 0, 0})), KeptFault);
  EXPECT_THROW(readDescription(ofNumbers({3, 2, 4, 0, 0, 0, 0, 0, 0, 0})), KeptFault);
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 256, 0, 0, 0, 0, 0, 0})), KeptFault);
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 0, 2, 0, 0, 0, 0, 0})), KeptFault);
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 0, 0, 2, 0, 0, 0, 0})), KeptFault);
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 0, 0, 0, 0, 0, kMost, 0})), KeptFault);
  // In the phase `lingering`, with a deadline.
  EXPECT_NO_THROW(readDescription(ofNumbers({3, 1, 4, 3, 1, 1, 0, 0, 0, 1, kLongest})));
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 3, 1, 1, 0, 0, 0, 1, kLongest + 1})), KeptFault);
  // In the phase `holding`, with the time left.
  EXPECT_NO_THROW(readDescription(ofNumbers({3, 1, 4, 2, 0, 0, 0, 0, 0, 0, 300000})));
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 2, 0, 0, 0, 0, 0, 0, 300001})), KeptFault);
  // In the phase `sending`, with one shared text, which is empty: its place, its number, itself.
  EXPECT_NO_THROW(readDescription(ofNumbers({3, 1, 4, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 9})));
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 1, 9})),
               KeptFault);
  EXPECT_THROW(readDescription(ofNumbers({3, 1, 4, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1, 9})),
               KeptFault);
}

TEST(KeptServer, IsRefusedWhereverItEndsTooEarly) {
  const std::string description = described(oneInEachPhase());
  KeptWriter other;
  const std::size_t header = other.header().size();
  for (std::size_t length = 0; length < description.size() - header; ++length) {
    KeptWriter cut;
    cut.text(std::string_view(description).substr(header, length));
    const std::string shorter = whole(cut);
    KeptReader outer(shorter);
    KeptReader reader = outer;
    // The body of a description of that length, with a right check sum, stands in a text of it.
    (void)reader.count();
    EXPECT_THROW((void)readKeptServer(reader), KeptFault) << length;
  }
}

// Replies may have been cut anywhere: before, in, between and behind the shared texts.
TEST(KeptReplies, GoOnWhereverTheyWereCut) {
  const auto first = text("first shared text");
  const auto second = text("second");
  const auto fill = [&](ReplyBuffer& replies) {
    replies.own().append("own ");
    replies.share(first);
    replies.share(second);
    replies.own().append("more");
    replies.share(first);
    replies.own().append("end");
  };
  ReplyBuffer all;
  fill(all);
  std::string bytes;
  all.forEachPiece([&](std::string_view piece) { bytes += piece; });
  for (std::size_t sent = 0; sent < bytes.size(); ++sent) {
    UntakenTotal total(100000);
    UntakenReplies replies(total);
    ReplyBuffer same;
    fill(same);
    ASSERT_TRUE(replies.keep(std::move(same), sent));
    std::vector<KeptConnection> one(1);
    one[0].descriptor = 4;
    one[0].phase = Phase::sending;
    one[0].replies = replies.kept();
    one[0].deadline = milliseconds(1);
    const std::string description = described(one);
    const KeptServer kept = readDescription(description);
    UntakenReplies continued(total);
    continued.restore(kept.connections[0].replies);
    SocketPair pair;
    EXPECT_EQ(continued.send(pair.server.number()), static_cast<ssize_t>(bytes.size() - sent));
    EXPECT_TRUE(continued.empty());
    RawConnection client = RawConnection::ofSocket(pair.client.release());
    EXPECT_EQ(client.receive(bytes.size() - sent), bytes.substr(sent)) << sent;
  }
}

TEST(KeptReplies, CountWhateverTheLimitIsAndATextThatTheyShareOnce) {
  const auto shared = std::make_shared<const std::string>(5000, 's');
  UntakenTotal total(100);
  {
    UntakenReplies first(total);
    first.restore({"own", {{3, shared}}, 0});
    const std::size_t bytes = total.bytes();
    EXPECT_GE(bytes, 5000U);
    UntakenReplies second(total);
    second.restore({"", {{0, shared}}, 1});
    EXPECT_LT(total.bytes(), bytes + 100);
    ReplyBuffer further;
    further.own().append("x");
    UntakenReplies third(total);
    EXPECT_FALSE(third.keep(std::move(further), 0)) << "the limit is for what comes";
  }
  EXPECT_EQ(total.bytes(), 0U);
}

}  // namespace
}  // namespace sorvane::test
