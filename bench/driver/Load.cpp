#include "driver/Load.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sorvane::bench {
namespace {

constexpr int kEvents = 256;
/// A server that is silent for that long has lost a request.
constexpr std::chrono::seconds kPatience{20};

double threadSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

[[noreturn]] void throwWrongAnswer() {
  throw std::runtime_error("the server sent something else than it did when it was first asked");
}

}  // namespace

Load::Load() : poller_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (poller_.descriptor() < 0) {
    throwSystemError("epoll_create1");
  }
}

void Load::watch(int descriptor, std::uint32_t index) const {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u32 = index;
  if (::epoll_ctl(poller(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throwSystemError("epoll_ctl");
  }
}

std::size_t Load::take(const Socket& socket, char* bytes, std::size_t room) {
  const ssize_t got = ::recv(socket.descriptor(), bytes, room, MSG_DONTWAIT);
  if (got < 0 && errno != EAGAIN) {
    throwSystemError("recv");
  }
  if (got == 0) {
    throw std::runtime_error("the server closed a connection under load");
  }
  return got < 0 ? 0 : static_cast<std::size_t>(got);
}

LoadResult Load::run(std::chrono::nanoseconds time) {
  result_ = {};
  std::array<epoll_event, kEvents> events;
  const double onCore = threadSeconds();
  const Clock::time_point start = Clock::now();
  Clock::time_point lastAnswer = start;
  begin();
  while (pending() > 0) {
    const int ready = ::epoll_wait(poller(), events.data(), kEvents, 0);
    const Clock::time_point now = Clock::now();
    if (ready > 0) {
      lastAnswer = now;
    } else if (now - lastAnswer > kPatience) {
      throw std::runtime_error("a reply is missing");
    }
    const bool ending = now - start >= time;
    proceed(now, ending);
    for (int i = 0; i < ready; ++i) {
      handle(events[i].data.u32, Clock::now(), ending);
    }
  }
  result_.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  result_.generatorSeconds = threadSeconds() - onCore;
  return result_;
}

SteadyLoad::SteadyLoad(int port, std::vector<Exchange> exchanges, int connections)
    : exchanges_(std::move(exchanges)) {
  std::size_t longest = 0;
  for (const Exchange& exchange : exchanges_) {
    longest = std::max(longest, exchange.reply.size());
  }
  input_.resize(longest + 1);
  for (int i = 0; i < connections; ++i) {
    connections_.push_back({connectTo(port), nullptr, 0, {}});
    const int yes = 1;
    const int descriptor = connections_.back().socket.descriptor();
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    watch(descriptor, static_cast<std::uint32_t>(i));
  }
}

void SteadyLoad::begin() {
  for (Connection& connection : connections_) {
    send(connection, Clock::now());
  }
}

void SteadyLoad::send(Connection& connection, Clock::time_point now) {
  connection.sent = now;
  connection.received = 0;
  connection.exchange = &exchanges_[next_];
  next_ = next_ + 1 == exchanges_.size() ? 0 : next_ + 1;
  connection.socket.sendAll(connection.exchange->request);
  ++pending_;
}

void SteadyLoad::handle(std::uint32_t index, Clock::time_point now, bool ending) {
  Connection& connection = connections_[index];
  const Exchange& exchange = *connection.exchange;
  // One byte more than the reply has, so that a reply that is too long is noticed.
  const std::size_t due = exchange.reply.size() - connection.received;
  const std::size_t got = take(connection.socket, input_.data(), due + 1);
  if (got > due ||
      std::memcmp(input_.data(), exchange.reply.data() + connection.received, got) != 0) {
    throwWrongAnswer();
  }
  connection.received += got;
  if (got < due) {
    return;
  }
  --pending_;
  result_.operations += static_cast<std::uint64_t>(exchange.operations);
  result_.latency.add(static_cast<std::uint64_t>((now - connection.sent).count()));
  if (!ending) {
    send(connection, now);
  }
}

}  // namespace sorvane::bench
