#include "sorvctl/ChangeWait.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <string>

#include "sorvctl/Failure.h"

namespace sorvctl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kHeld{30};       // how long the server is to hold a reply
constexpr seconds kLeastHeld{1};   // a server that says NO at once must not be asked in a circle
constexpr seconds kReplyTakes{5};  // on its way, at most
constexpr milliseconds kLongestPoll{60'000};

}  // namespace

Awaited awaitReadable(int descriptor, int wake, Clock::time_point end) {
  std::array<pollfd, 2> waiting{pollfd{descriptor, POLLIN, 0}, pollfd{wake, POLLIN, 0}};
  const auto left = std::clamp(std::chrono::ceil<milliseconds>(end - Clock::now()), milliseconds(0),
                               kLongestPoll);
  if (poll(waiting.data(), waiting.size(), static_cast<int>(left.count())) <= 0) {
    return Awaited::timeOver;
  }
  return waiting[1].revents != 0 ? Awaited::woken : Awaited::readable;
}

ChangeWait::ChangeWait(Session& session, milliseconds interval, milliseconds betweenPings)
    : session_(session),
      interval_(interval),
      betweenPings_(betweenPings),
      waiting_(session.options(), session.end()) {
  begin();
}

void ChangeWait::begin() {
  waiting_.close();
  askedAt_.reset();
  answered_ = false;
  lacking_ = false;
  nextPing_ = Clock::now() + betweenPings_;
  nextQuestion_ = Clock::now();
}

milliseconds ChangeWait::replyLimit() const {
  return session_.timeLimit().value_or(sorvane::NetConnection::kReplyLimit);
}

ChangeWait::End ChangeWait::wait(milliseconds limit, int wake) {
  const Time end = Clock::now() + limit;
  try {
    while (true) {
      const auto ended = lacking_ ? askFromTimeToTime(end, wake) : await(end, wake);
      if (ended) {
        return *ended;
      }
    }
  } catch (const Failure&) {
    begin();
    throw;
  }
}

std::optional<ChangeWait::End> ChangeWait::await(Time end, int wake) {
  if (!askedAt_) {
    waiting_.send({{"action", "awaitPortChanges"}, {"timeout", std::to_string(kHeld.count())}});
    askedAt_ = Clock::now();
  }
  const Time due = *askedAt_ + (answered_ ? kHeld + kReplyTakes : replyLimit());
  switch (
      awaitReadable(waiting_.connection().descriptor(), wake, std::min({end, due, nextPing_}))) {
    case Awaited::readable:
      return takeReply();
    case Awaited::woken:
      return End::woken;
    case Awaited::timeOver:
      break;
  }
  const Time now = Clock::now();
  if (now >= due) {
    throw Failure(Status::notReached, "no reply from " + session_.hostName() + " port " +
                                          std::to_string(session_.basePort()) +
                                          ": no answer in time");
  }
  if (now >= end) {
    return End::timeOver;
  }
  if (now >= nextPing_) {
    (void)session_.askForDictionary({{"ping", "ping"}});
    nextPing_ = Clock::now() + betweenPings_;
  }
  return std::nullopt;
}

std::optional<ChangeWait::End> ChangeWait::takeReply() {
  const auto reply = waiting_.receive();
  const bool isHeld = Clock::now() - *askedAt_ >= kLeastHeld;
  askedAt_.reset();
  answered_ = true;
  const std::string result = reply ? textOf(*reply, "result") : "";
  if (result == "YES") {
    nextPing_ = Clock::now() + betweenPings_;  // the caller asks what has changed
    return End::changed;
  }
  if (result != "NO" || !isHeld) {
    lacking_ = true;
    waiting_.close();
  }
  return std::nullopt;
}

std::optional<ChangeWait::End> ChangeWait::askFromTimeToTime(Time end, int wake) {
  if (awaitReadable(-1, wake, std::min(end, nextQuestion_)) == Awaited::woken) {
    return End::woken;
  }
  const Time now = Clock::now();
  if (now >= nextQuestion_) {
    nextQuestion_ = now + interval_;
    if (session_.askForResult(action("didPortsChange")) == "YES") {
      return End::changed;
    }
  }
  return now >= end ? std::optional(End::timeOver) : std::nullopt;
}

}  // namespace sorvctl
