#include "driver/Telling.h"

#include <fmt/format.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "driver/Exchange.h"
#include "driver/Histogram.h"
#include "driver/ProcessFigures.h"
#include "driver/RivalRequests.h"
#include "driver/Table.h"

namespace sorvane::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double kWaitingBytes = 300.0;
constexpr std::chrono::milliseconds kRest{5};  // before a change, so that all are waiting
constexpr std::chrono::seconds kPatience{20};

/// Those who are to be told. They never sleep, so that no waking up of their own adds to the times.
class Audience {
 public:
  explicit Audience(std::vector<Socket> sockets)
      : sockets_(std::move(sockets)), poller_(::epoll_create1(EPOLL_CLOEXEC)) {
    if (poller_.descriptor() < 0) {
      throwSystemError("epoll_create1");
    }
    for (std::size_t i = 0; i < sockets_.size(); ++i) {
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.u64 = i;
      if (::epoll_ctl(poller_.descriptor(), EPOLL_CTL_ADD, sockets_[i].descriptor(), &event) != 0) {
        throwSystemError("epoll_ctl");
      }
    }
  }

  [[nodiscard]] std::size_t size() const { return sockets_.size(); }
  [[nodiscard]] const Socket& operator[](std::size_t index) const { return sockets_[index]; }

  /// Calls `use(bytes)` with what has come to each, once.
  template <typename Use>
  void read(Use&& use) const {
    std::array<epoll_event, 256> events;
    const int ready =
        ::epoll_wait(poller_.descriptor(), events.data(), static_cast<int>(events.size()), 0);
    for (int i = 0; i < ready; ++i) {
      std::array<char, 256> bytes;
      const ssize_t got =
          ::recv(sockets_[events[static_cast<std::size_t>(i)].data.u64].descriptor(), bytes.data(),
                 bytes.size(), MSG_DONTWAIT);
      if (got <= 0) {
        throw std::runtime_error("the server closed a connection that waits");
      }
      use(std::string_view(bytes.data(), static_cast<std::size_t>(got)));
    }
  }

 private:
  const std::vector<Socket> sockets_;
  const Socket poller_;
};

std::vector<Socket> connections(int port, int count) {
  std::vector<Socket> sockets;
  for (int i = 0; i < count; ++i) {
    sockets.push_back(connectTo(port));
  }
  return sockets;
}

void makeChange(const Socket& maker, const Exchange& change) { maker.sendAll(change.request); }

void takeReply(const Socket& maker, const Exchange& change) {
  if (maker.receive(change.reply.size()) != change.reply) {
    throw std::runtime_error("the server did not make the change");
  }
}

void requirePatience(Clock::time_point since) {
  if (Clock::now() - since > kPatience) {
    throw std::runtime_error("somebody was not told of a change");
  }
}

/// What those who wait send, the change that another connection makes, and what they are told.
struct Telling {
  std::string wait;  ///< empty: nothing
  Exchange change;
  std::string told;
};

/// All wait; a change is made; each is told. That many times.
Histogram timesOfTelling(const Audience& audience, const Socket& maker, const Telling& telling,
                         int changes) {
  Histogram times;
  for (int change = 0; change < changes; ++change) {
    for (std::size_t i = 0; i < audience.size() && !telling.wait.empty(); ++i) {
      audience[i].sendAll(telling.wait);
    }
    std::this_thread::sleep_for(kRest);
    const Clock::time_point begin = Clock::now();
    makeChange(maker, telling.change);
    for (std::size_t told = 0; told < audience.size();) {
      audience.read([&](std::string_view bytes) {
        if (bytes != telling.told) {
          throw std::runtime_error("somebody was told something else than the change");
        }
        times.add(static_cast<std::uint64_t>((Clock::now() - begin).count()));
        ++told;
      });
      requirePatience(begin);
    }
    takeReply(maker, telling.change);
  }
  return times;
}

/// Each asks once in the interval, one after the other. A change is made when all know of the one
/// before.
Histogram timesOfAsking(const Audience& audience, const Socket& maker, const Exchange& change,
                        std::chrono::nanoseconds interval, int changes) {
  const std::string question = sorvane_requests::didPortsChange();
  const std::string yes = sorvane_requests::result("YES");
  const std::chrono::nanoseconds pause = interval / audience.size();
  Histogram times;
  std::size_t next = 0;
  Clock::time_point due = Clock::now();
  for (int number = 0; number < changes; ++number) {
    const Clock::time_point begin = Clock::now();
    makeChange(maker, change);
    for (std::size_t told = 0; told < audience.size();) {
      if (Clock::now() >= due) {
        due += pause;
        audience[next].sendAll(question);
        next = (next + 1) % audience.size();
      }
      audience.read([&](std::string_view bytes) {
        if (bytes == yes) {
          times.add(static_cast<std::uint64_t>((Clock::now() - begin).count()));
          ++told;
        }
      });
      requirePatience(begin);
    }
    takeReply(maker, change);
  }
  return times;
}

void printTimes(const std::string& name, const Histogram& times) {
  fmt::print("  {:<34}{:>12}{:>12}{:>12}\n", name, grouped(times.quantile(0.5)),
             grouped(times.quantile(0.99)), grouped(times.quantile(1.0)));
}

/// Brings watchers of the name server into the state in which they have been told of all.
void clear(const Audience& audience) {
  for (std::size_t i = 0; i < audience.size(); ++i) {
    audience[i].sendAll(sorvane_requests::didPortsChange());
    (void)audience[i].receiveFrame();
  }
}

void printRivalTelling(const Options& options, const Cores& cores) {
  const std::unique_ptr<Rival> rival = Rival::start(Rival::Kind::redis, cores.server);
  if (rival == nullptr) {
    fmt::print("  redis-server is not installed\n");
    return;
  }
  const Audience audience(connections(rival->port(), options.watchers));
  const Exchange subscription = rival_requests::subscription();
  for (std::size_t i = 0; i < audience.size(); ++i) {
    audience[i].sendAll(subscription.request);
    if (audience[i].receive(subscription.reply.size()) != subscription.reply) {
      throw std::runtime_error("the other server has no subscriptions");
    }
  }
  const Socket maker = connectTo(rival->port());
  printTimes(
      "redis, publish and subscribe",
      timesOfTelling(audience, maker,
                     {"", rival_requests::publication(options.watchers), rival_requests::message()},
                     options.changes));
}

/// Bytes that each of so many connections costs which wait, beyond what it cost before.
double bytesOfWaiting(const Server& server, int count) {
  const Socket last = connectTo(server.port());
  const auto settle = [&] {  // the only serving thread has come that far
    last.sendAll(sorvane_requests::ping());
    (void)last.receiveFrame();
  };
  const Audience audience(connections(server.port(), count));
  clear(audience);
  settle();
  const std::uint64_t before = privateMemory(server.process());
  for (std::size_t i = 0; i < audience.size(); ++i) {
    audience[i].sendAll(sorvane_requests::awaitPortChanges());
  }
  settle();
  const std::uint64_t after = privateMemory(server.process());
  return (static_cast<double>(after) - static_cast<double>(before)) / count;
}

}  // namespace

void printTelling(const Options& options, const Cores& cores) {
  fmt::print(
      "\na change told to {} {}, from its request to each of them, microseconds\n"
      "  {:<34}{:>12}{:>12}{:>12}\n",
      grouped(options.watchers), kWhoWait, "", "p50", "p99", "longest");
  const NameServer server(options.daemon, cores.server, 1);
  {
    const Audience audience(connections(server.port(), options.watchers));
    const Socket maker = connectTo(server.port());
    const Exchange change =
        recordExchange(server.port(), sorvane_requests::reconnectPort("watched"));
    std::this_thread::sleep_for(kRest);  // the connection that has recorded it has ended
    clear(audience);
    const std::string yes = sorvane_requests::result("YES");
    printTimes("sorvinfo, awaitPortChanges",
               timesOfTelling(audience, maker, {sorvane_requests::awaitPortChanges(), change, yes},
                              options.changes));
    printTimes(
        fmt::format("sorvinfo, asked each {} ms", options.askingInterval.count()),
        timesOfAsking(audience, maker, change, options.askingInterval, options.askedChanges));
  }
  if (options.rivals) {
    printRivalTelling(options, cores);
  }
  const NameServer other(options.daemon, cores.server, 1);
  const double bytes = bytesOfWaiting(other, options.idleConnections);
  fmt::print("  {} bytes of the server's own memory for each of {} {}, beyond an idle one\n",
             grouped(bytes), grouped(options.idleConnections), kWhoWait);
  printAim(fmt::format("at most {:.0f} bytes", kWaitingBytes), grouped(bytes),
           bytes <= kWaitingBytes);
}

}  // namespace sorvane::bench
