#include "driver/EchoServer.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace sorvane::bench {
namespace {

constexpr std::size_t kInputBytes = 64 * 1024;
constexpr int kEvents = 256;

/// How far a connection has come; by descriptor.
struct Progress {
  std::uint32_t step = 0;
  std::uint32_t have = 0;  // bytes of a request that is not complete
};

/// Few system calls are the whole of it: one to wait, and for each ready connection one to receive
/// and one to send. A client of the driver reads what it asked for, so one send takes all of it.
class EchoServer {
 public:
  EchoServer(const Socket& listener, const std::vector<EchoStep>& steps)
      : listener_(listener.descriptor()), steps_(steps), poller_(::epoll_create1(EPOLL_CLOEXEC)) {
    const std::size_t most = kInputBytes / steps[0].requestBytes + 1;
    for (std::size_t i = 0; i < most; ++i) {
      replies_ += steps[0].reply;
    }
    ::fcntl(listener_, F_SETFL, O_NONBLOCK);
    watch(listener_);
  }

  [[noreturn]] void run() {
    std::array<epoll_event, kEvents> events;
    for (;;) {
      const int ready = ::epoll_wait(poller_, events.data(), kEvents, -1);
      for (int i = 0; i < ready; ++i) {
        if (events[i].data.fd == listener_) {
          accept();
        } else {
          serve(events[i].data.fd);
        }
      }
    }
  }

 private:
  void watch(int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    ::epoll_ctl(poller_, EPOLL_CTL_ADD, descriptor, &event);
  }

  void accept() {
    const int descriptor = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor < 0) {
      return;
    }
    if (progress_.size() <= static_cast<std::size_t>(descriptor)) {
      progress_.resize(2 * static_cast<std::size_t>(descriptor) + 1);
    }
    progress_[descriptor] = {};
    watch(descriptor);
  }

  void serve(int descriptor) {
    const ssize_t got = ::recv(descriptor, input_.data(), input_.size(), 0);
    if (got <= 0) {
      ::close(descriptor);
      return;
    }
    Progress& progress = progress_[descriptor];
    const EchoStep& step = steps_[progress.step];
    const std::size_t have = progress.have + static_cast<std::size_t>(got);
    progress.have = static_cast<std::uint32_t>(have % step.requestBytes);
    const std::size_t complete = have / step.requestBytes;
    if (complete == 0) {
      return;
    }
    const char* const reply = progress.step == 0 ? replies_.data() : step.reply.data();
    ::send(descriptor, reply, complete * step.reply.size(), MSG_NOSIGNAL);
    progress.step = (progress.step + 1) % static_cast<std::uint32_t>(steps_.size());
  }

  const int listener_;
  const std::vector<EchoStep>& steps_;
  const int poller_;
  std::string replies_;  // as many replies of the first step as one input can ask for
  std::vector<Progress> progress_;
  std::array<char, kInputBytes> input_;
};

}  // namespace

void runEchoServer(const Socket& listener, const std::vector<EchoStep>& steps) {
  static EchoServer server(listener, steps);
  server.run();
}

}  // namespace sorvane::bench
