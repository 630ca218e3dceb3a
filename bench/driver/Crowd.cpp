#include "driver/Crowd.h"

#include <sys/socket.h>

#include <array>
#include <stdexcept>

#include "platform/wire/Frame.h"
#include "platform/wire/WireInteger.h"

namespace sorvane::bench {
namespace {

/// Closed connections keep their ports for a minute: several addresses of this machine are used.
constexpr std::uint32_t kAddresses = 8;
constexpr int kRepliesOfRegistration = 2;

std::chrono::nanoseconds intervalOf(int perSecond) {
  constexpr std::chrono::nanoseconds kSecond = std::chrono::seconds(1);
  return perSecond == 0 ? std::chrono::nanoseconds(0) : kSecond / perSecond;
}

}  // namespace

Crowd::Crowd(int port, int size) : port_(port) {
  for (int i = 0; i < size; ++i) {
    Member& database = members_.emplace_back(newDatabase());
    for (; database.repliesDue > 0; --database.repliesDue) {
      (void)database.socket.receiveFrame();
    }
  }
  for (int i = 0; i < size; ++i) {
    Member& watcher = members_.emplace_back();
    watcher.socket = connectTo(port, kLoopback + static_cast<std::uint32_t>(i) % kAddresses);
    watcher.socket.sendAll(sorvane_requests::didPortsChange());
    (void)watcher.socket.receiveFrame();
  }
}

Crowd::Member Crowd::newDatabase() {
  const std::uint32_t number = databases_++;
  Member database;
  database.socket = connectTo(port_, kLoopback + number % kAddresses);
  database.socket.sendAll(sorvane_requests::newPort("crowd" + std::to_string(number)) +
                          sorvane_requests::acceptPort());
  database.repliesDue = kRepliesOfRegistration;
  return database;
}

bool CrowdLoad::Pace::isDue(Clock::time_point now) {
  if (interval.count() == 0 || now < next) {
    return false;
  }
  next += interval;
  return true;
}

CrowdLoad::CrowdLoad(int port, std::vector<Exchange> exchanges, int connections, Crowd& crowd,
                     int changesPerSecond)
    : SteadyLoad(port, std::move(exchanges), connections),
      firstMember_(static_cast<std::uint32_t>(connections)),
      crowd_(crowd),
      changes_{intervalOf(changesPerSecond), {}, 0},
      questions_{
          intervalOf(static_cast<int>(crowd.members_.size() / 2)), {}, crowd.members_.size() / 2},
      question_(sorvane_requests::didPortsChange()) {
  for (std::size_t i = 0; i < crowd_.members_.size(); ++i) {
    watch(crowd_.members_[i].socket.descriptor(), firstMember_ + static_cast<std::uint32_t>(i));
  }
}

void CrowdLoad::begin() {
  SteadyLoad::begin();
  changes_.next = questions_.next = Clock::now();
}

void CrowdLoad::proceed(Clock::time_point now, bool ending) {
  if (ending) {
    return;
  }
  const std::size_t size = crowd_.members_.size() / 2;
  while (changes_.isDue(now)) {
    replaceDatabase(changes_.member);
    changes_.member = (changes_.member + 1) % size;
  }
  while (questions_.isDue(now)) {
    ask(questions_.member);
    questions_.member = size + (questions_.member + 1) % size;
  }
}

void CrowdLoad::replaceDatabase(std::size_t member) {
  Member& database = crowd_.members_[member];
  repliesDue_ -= database.repliesDue;
  database = crowd_.newDatabase();
  repliesDue_ += database.repliesDue;
  watch(database.socket.descriptor(), firstMember_ + static_cast<std::uint32_t>(member));
}

void CrowdLoad::ask(std::size_t member) {
  crowd_.members_[member].socket.sendAll(question_);
  ++crowd_.members_[member].repliesDue;
  ++repliesDue_;
}

void CrowdLoad::handle(std::uint32_t index, Clock::time_point now, bool ending) {
  if (index < firstMember_) {
    SteadyLoad::handle(index, now, ending);
    return;
  }
  Member& member = crowd_.members_[index - firstMember_];
  std::array<char, 1024> bytes;
  const std::size_t got = take(member.socket, bytes.data(), bytes.size());
  member.input.append(bytes.data(), got);
  std::string_view input = member.input;
  while (input.size() >= kFrameHeaderBytes) {
    const FrameHeader header = readFrameHeader(input, kMaximumReplyBytes);
    if (header.fault != nullptr || header.kind != FrameKind::dictionary || member.repliesDue == 0) {
      throw std::runtime_error("the server sent something else than a reply to the crowd");
    }
    if (input.size() < kFrameHeaderBytes + header.bodyBytes) {
      break;
    }
    input.remove_prefix(kFrameHeaderBytes + header.bodyBytes);
    --member.repliesDue;
    --repliesDue_;
  }
  member.input.erase(0, member.input.size() - input.size());
}

}  // namespace sorvane::bench
