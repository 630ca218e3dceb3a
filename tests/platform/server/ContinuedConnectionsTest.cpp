// Connections that one server hands on to another go on as if nothing had happened.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "platform/server/HandingOn.h"
#include "platform/server/ServerConnection.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using Phase = KeptConnection::Phase;

const std::string kEcho = frame(Message({{"echo", "behind"}}));
const std::string kChanged = frame(Message({{"result", "changed"}}));
const std::string kOver = frame(Message({{"result", "over"}}));
const std::string kHold = frame(Message({{"hold", "300"}}));
const std::string kGarbage = "garbage that is no frame";
constexpr std::size_t kBig = 3000000;  // more than the socket takes
const std::string kAskBig = frame(Message({{"big", std::to_string(kBig)}}));
const std::string kBigReply = frameOfBody(entry("data", std::string(kBig, 'x')));

/// What a client has received without waiting; nothing is left then.
std::string received(const RawConnection& client) {
  std::string bytes(1 << 16, ' ');
  const ssize_t came = recv(client.descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  bytes.resize(came < 0 ? 0 : static_cast<std::size_t>(came));
  return bytes;
}

class Continued : public testing::Test, protected HandingOn {
 protected:
  void handOn() { HandingOn::handOn(before_, after_); }
  /// The only connection of the first server.
  KeptConnection only() {
    KeptConnection kept;
    int count = 0;
    before_.loop().forEachConnection([&](ServerConnection& each) {
      kept = each.kept(Clock::now());
      ++count;
    });
    EXPECT_EQ(count, 1);
    return kept;
  }

  ServedByHand before_;
  ServedByHand after_;
};

TEST_F(Continued, IsTheSameConnectionForItsDelegateWhichIsToldOfItsEndOnce) {
  RawConnection client = before_.connect();
  handOn();
  EXPECT_EQ(after_.delegate().started, 0);
  EXPECT_EQ(after_.delegate().restored, 1);
  EXPECT_EQ(after_.context().connections, 1);
  client.send(kEcho);
  EXPECT_EQ(after_.receives(client, kEcho.size()), kEcho);
  client.close();
  after_.turn();
  EXPECT_EQ(after_.delegate().ended, 1);
  EXPECT_EQ(after_.delegate().overlaps, 0);
  EXPECT_EQ(after_.context().connections, 0);
  EXPECT_EQ(before_.delegate().ended, 0);
}

TEST_F(Continued, ReadsAFrameOnWhereverItWasCut) {
  std::vector<RawConnection> clients;
  for (std::size_t cut = 1; cut < kEcho.size(); ++cut) {
    clients.push_back(before_.connect());
    clients.back().send(kEcho + kEcho.substr(0, cut));
    EXPECT_EQ(before_.receives(clients.back(), kEcho.size()), kEcho);
  }
  handOn();
  for (std::size_t cut = 1; cut < kEcho.size(); ++cut) {
    RawConnection& client = clients[cut - 1];
    client.send(kEcho.substr(cut));
    EXPECT_EQ(after_.receives(client, kEcho.size()), kEcho) << cut;
  }
  EXPECT_EQ(after_.context().unfinishedInput.now(), 0U);
}

TEST_F(Continued, ReadsAFrameOnOfWhichEachServerGetsOneByte) {
  RawConnection client = before_.connect();
  std::vector<std::unique_ptr<ServedByHand>> servers;
  ServedByHand* last = &before_;
  for (const char byte : kEcho) {
    client.send(std::string(1, byte));
    last->turn();
    servers.push_back(std::make_unique<ServedByHand>());
    HandingOn::handOn(*last, *servers.back());
    last = servers.back().get();
  }
  EXPECT_EQ(last->receives(client, kEcho.size()), kEcho);
}

TEST_F(Continued, SendsOnWhatTheClientHasNotTakenAndGoesOnWithTheRequestsBehind) {
  RawConnection client = before_.connect();
  client.send(kAskBig + kEcho + kEcho.substr(0, 5));
  before_.turn();
  EXPECT_EQ(only().phase, Phase::sending);
  handOn();
  EXPECT_GE(after_.context().untakenReplies.bytes(), kBig / 2);
  client.send(kEcho.substr(5));
  EXPECT_TRUE(after_.receives(client, kBigReply.size()) == kBigReply);
  EXPECT_EQ(after_.receives(client, 2 * kEcho.size()), kEcho + kEcho);
  EXPECT_EQ(after_.context().untakenReplies.bytes(), 0U);
}

TEST_F(Continued, GoesOnWithRequestsThatHadToWaitForTheirTurn) {
  RawConnection client = before_.connect();
  std::string requests;
  for (int i = 0; i < 1000; ++i) {
    requests += frame(Message({{"echo", std::to_string(i)}}));
  }
  client.send(requests);
  before_.turn();
  const KeptConnection kept = only();
  EXPECT_EQ(kept.phase, Phase::sending);
  EXPECT_TRUE(kept.replies.empty());
  EXPECT_FALSE(kept.input.empty());
  handOn();
  EXPECT_EQ(after_.receives(client, requests.size()), requests);
}

TEST_F(Continued, SharesATextWithTheOtherSlowReadersAsBefore) {
  constexpr std::size_t kReaders = 50;
  const std::size_t length = before_.delegate().sharedText->size();
  std::vector<RawConnection> clients;
  for (std::size_t i = 0; i < kReaders; ++i) {
    clients.push_back(before_.connect());
    clients.back().send(frame(Message({{"shared", ""}})));
    before_.turn();
  }
  const std::string description = keeps(before_);
  EXPECT_LT(description.size(), length + kReaders * 100);
  readAll(description, after_);
  EXPECT_GE(after_.context().untakenReplies.bytes(), length);
  EXPECT_LT(after_.context().untakenReplies.bytes(), length + kReaders * 1000);
  const std::string reply = frame(Message({{"text", *before_.delegate().sharedText}}));
  for (RawConnection& client : clients) {
    EXPECT_TRUE(after_.receives(client, reply.size()) == reply);
  }
}

TEST_F(Continued, SendsTheRepliesBeforeABadFrameAndLingersThen) {
  const ConsoleLines console;
  RawConnection client = before_.connect();
  client.send(kAskBig + kGarbage);
  before_.turn();  // the reply is so long that the next frame has its turn later
  EXPECT_FALSE(only().isRefused);
  RawConnection refused = before_.connect();
  refused.send(frame(Message({{"big", "250000"}})) + kGarbage);
  before_.turn();
  handOn();
  EXPECT_TRUE(after_.receives(client, kBigReply.size() + 1) == kBigReply) << "and then the end";
  EXPECT_EQ(after_.receives(refused, 300000).size(), 250000 + kBigReply.size() - kBig);
  EXPECT_EQ(after_.delegate().ended, 2);
  EXPECT_EQ(before_.delegate().ended, 0);
}

TEST_F(Continued, LingersOnWithoutATellingOfItsEndAnew) {
  const ConsoleLines console;
  RawConnection client = before_.connect();
  client.send(kGarbage);
  before_.turn();
  EXPECT_EQ(only().phase, Phase::lingering);
  EXPECT_EQ(before_.delegate().ended, 1);
  handOn();
  EXPECT_EQ(before_.delegate().overlaps, 0) << "it is asked for nothing after the end";
  EXPECT_EQ(after_.delegate().restored, 0);
  ASSERT_FALSE(after_.loop().lingerers().empty());
  client.send(kEcho);
  after_.turn();  // which drops it
  EXPECT_EQ(after_.context().connections, 1);
  client.close();
  after_.turn();
  EXPECT_EQ(after_.context().connections, 0);
  EXPECT_EQ(after_.delegate().ended, 0);
}

TEST_F(Continued, EndsInTheFirstTurnIfItsPeerHasGoneMeanwhile) {
  RawConnection client = before_.connect();
  const std::string description = keeps(before_);
  client.close();
  readAll(description, after_);
  EXPECT_EQ(after_.delegate().ended, 0);
  after_.turn();
  EXPECT_EQ(after_.delegate().ended, 1);
}

TEST_F(Continued, AsksAHeldRequestOnceAndAnswersItAtTheNextChange) {
  RawConnection client = before_.connect();
  RawConnection maker = before_.connect();
  before_.delegate().changesMade = 5;
  after_.delegate().changesMade = 5;
  client.send(kHold + kHold + kEcho);
  EXPECT_EQ(before_.receives(client, kChanged.size()), kChanged);  // the first one
  handOn();
  after_.turn();
  EXPECT_EQ(after_.delegate().askedHeld, 1);
  maker.send(kEcho);
  EXPECT_EQ(after_.receives(maker, kEcho.size()), kEcho);
  EXPECT_EQ(after_.delegate().askedHeld, 1) << "not again without a change";
  EXPECT_EQ(received(client), "");
  maker.send(frame(Message({{"change", ""}})));
  EXPECT_EQ(after_.receives(maker, 8).size(), 8U);
  EXPECT_EQ(received(client), kChanged + kEcho);
}

TEST_F(Continued, MissesNoChangeOfTheTimeBetween) {
  RawConnection client = before_.connect();
  client.send(kHold);
  before_.turn();
  after_.delegate().changesMade = 1;
  handOn();
  EXPECT_EQ(after_.receives(client, kChanged.size()), kChanged);
}

TEST_F(Continued, KeepsWhatCameBehindAHeldRequestAndTheTimeOfItsLastFrame) {
  RawConnection client = before_.connect();
  client.send(kHold + kEcho + kEcho.substr(0, 9));
  before_.turn();
  const auto due = before_.loop().partialFrames().next().due;
  std::this_thread::sleep_for(milliseconds(3));
  const auto begin = Clock::now();
  handOn();
  const auto took = Clock::now() - begin;
  after_.turn();  // the request is asked
  client.send(kEcho.substr(9, 1));
  after_.turn();
  ASSERT_FALSE(after_.loop().partialFrames().empty());
  EXPECT_LE(after_.loop().partialFrames().next().due, due + took + milliseconds(1)) << "as it was";
  client.send(kEcho.substr(10));
  after_.turn();
  EXPECT_TRUE(after_.loop().partialFrames().empty());
  EXPECT_EQ(received(client), "");
  RawConnection maker = after_.connect();
  maker.send(frame(Message({{"change", ""}})));
  EXPECT_EQ(after_.receives(maker, 8).size(), 8U);
  EXPECT_EQ(received(client), kChanged + kEcho + kEcho);
}

TEST_F(Continued, AnswersHeldRequestsAtTheirTimesInWhateverOrderTheyAreKept) {
  Made late(Phase::holding);
  Made early(Phase::holding);
  late.kept.holdingTime = milliseconds(900);
  early.kept.holdingTime = milliseconds(30);
  readAll(describes({late.kept, early.kept}), after_);
  const auto begin = Clock::now();
  EXPECT_EQ(after_.receives(early.client, kOver.size()), kOver);
  EXPECT_GE(Clock::now() - begin, milliseconds(20));
  EXPECT_LT(Clock::now() - begin, milliseconds(800));
  EXPECT_EQ(received(late.client), "");
}

TEST_F(Continued, TellsHowLongAHeldRequestHasLeft) {
  RawConnection client = before_.connect();
  const auto begin = Clock::now();
  client.send(kHold);
  before_.turn();
  const milliseconds left = only().holdingTime;
  EXPECT_LE(left, std::chrono::seconds(300));
  EXPECT_GE(left, std::chrono::seconds(300) - (Clock::now() - begin));
}

/// Takes the reply of an echo that a connection has, with one of three deadlines.
struct Deadline {
  const char* name;
  std::string bytes;
  DeadlineQueue& (ServingLoop::*queue)();
};

void PrintTo(const Deadline& each, std::ostream* out) { *out << each.name; }

class ContinuedDeadline : public testing::TestWithParam<Deadline>, protected HandingOn {};

TEST_P(ContinuedDeadline, IsTheOneThatItWas) {
  const ConsoleLines console;
  ServedByHand before;
  ServedByHand after;
  RawConnection client = before.connect();
  client.send(GetParam().bytes);
  before.turn();
  ASSERT_FALSE((before.loop().*GetParam().queue)().empty());
  const auto due = (before.loop().*GetParam().queue)().next().due;
  std::this_thread::sleep_for(milliseconds(20));
  const auto begin = Clock::now();
  handOn(before, after);
  const auto took = Clock::now() - begin;
  ASSERT_FALSE((after.loop().*GetParam().queue)().empty());
  EXPECT_GE((after.loop().*GetParam().queue)().next().due, due);
  EXPECT_LE((after.loop().*GetParam().queue)().next().due, due + took + milliseconds(1));
}

INSTANTIATE_TEST_SUITE_P(
    Of, ContinuedDeadline,
    testing::Values(Deadline{"APartOfAFrame", kEcho.substr(0, 9), &ServingLoop::partialFrames},
                    Deadline{"AFrameBehindAHeldRequest", kHold + kEcho.substr(0, 9),
                             &ServingLoop::partialFrames},
                    Deadline{"AReplyThatIsNotTaken", kAskBig, &ServingLoop::untakenReplies},
                    Deadline{"ARefusedConnection", kGarbage, &ServingLoop::lingerers}),
    [](const auto& each) { return each.param.name; });

TEST_F(Continued, HasNoLongerTimeThanTheSettingsAllowNow) {
  const ConsoleLines console;
  ServedByHand after({.partialMessage = milliseconds(40)});
  RawConnection client = before_.connect();
  client.send(kEcho.substr(0, 9));
  before_.turn();
  const auto begin = Clock::now();
  HandingOn::handOn(before_, after);
  EXPECT_EQ(after.receives(client, 1), "") << "the end";
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
  EXPECT_EQ(after.delegate().ended, 1);
}

TEST_F(Continued, EndsInTheOrderOfTheDeadlinesInWhateverOrderTheyAreKept) {
  const ConsoleLines console;
  Made late(Phase::reading);
  Made early(Phase::reading);
  Made middle(Phase::reading);
  late.kept.deadline = milliseconds(20000);
  early.kept.deadline = milliseconds(0);
  middle.kept.deadline = milliseconds(10000);
  for (Made* const each : {&late, &early, &middle}) {
    each->kept.input = "NX";
  }
  const auto begin = Clock::now();
  readAll(describes({late.kept, early.kept, middle.kept}), after_);
  after_.turn();
  EXPECT_EQ(after_.delegate().ended, 1);
  EXPECT_TRUE(early.client.isClosedByPeer());
  EXPECT_LT(after_.loop().partialFrames().next().due, begin + std::chrono::seconds(15));
}

TEST_F(Continued, IsGivenToTheLoopsEvenly) {
  std::vector<RawConnection> clients;
  for (int i = 0; i < 7; ++i) {
    clients.push_back(before_.connect());
  }
  ServedByHand after({.loops = 3});
  HandingOn::handOn(before_, after);
  EXPECT_EQ(after.loops()[0]->load(), 3);
  EXPECT_EQ(after.loops()[1]->load(), 2);
  EXPECT_EQ(after.loops()[2]->load(), 2);
  EXPECT_EQ(after.context().connections, 7);
}

TEST_F(Continued, IsNotRefusedByASmallerLimitOfWhatAllConnectionsKeep) {
  ServedByHand after({.unfinishedBytes = 100, .unsentBytes = 100});
  const std::string request = frame(Message({{"echo", std::string(10000, 'x')}}));
  RawConnection part = before_.connect();
  part.send(request.substr(0, 9000));
  before_.turn();
  RawConnection slow = before_.connect();
  slow.send(kAskBig + request);
  before_.turn();
  HandingOn::handOn(before_, after);
  EXPECT_GE(after.context().unfinishedInput.now(), 19000U);
  EXPECT_GE(after.context().untakenReplies.bytes(), kBig / 2);
  EXPECT_TRUE(after.receives(slow, kBigReply.size()) == kBigReply);
  EXPECT_EQ(after.receives(slow, request.size()), request);
  part.send(request.substr(9000));
  EXPECT_EQ(after.receives(part, request.size()), request);
  EXPECT_EQ(after.context().unfinishedInput.now(), 0U);
  EXPECT_EQ(after.context().untakenReplies.bytes(), 0U);
}

TEST_F(Continued, IsNothingAtAllIfThePartOfTheDelegateCannotBeRead) {
  Made first(Phase::sending);
  Made second(Phase::reading);
  const std::string input(100, 'x');
  first.kept.input = input;
  KeptWriter writer;
  const Descriptor listener = listeningSocket();
  KeptConnectionWriter all(writer, listener.number(), 2);
  all.write(first.kept);
  all.write(second.kept);
  writer.number(0);  // the part of the first one; there is none of the second
  EXPECT_THROW(readAll(writer.header() + std::string(writer.body()), after_), KeptFault);
  writer.number(0);
  writer.number(0);  // and now there is one too many
  EXPECT_THROW(readAll(writer.header() + std::string(writer.body()), after_), KeptFault);
  EXPECT_EQ(after_.context().connections, 0);
  EXPECT_EQ(after_.context().unfinishedInput.now(), 0U);
  EXPECT_EQ(after_.delegate().ended, 0);
  for (const Made* const each : {&first, &second}) {
    EXPECT_GE(fcntl(each->kept.descriptor, F_GETFD), 0) << "is open";
    close(each->kept.descriptor);
  }
}

}  // namespace
}  // namespace sorvane::test
