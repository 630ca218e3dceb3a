#include <errno.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <system_error>

#include "platform/Descriptor.h"
#include "platform/WithoutInterruption.h"
#include "platform/server/Poller.h"
#include "platform/server/SystemCalls.h"

namespace sorvane {
namespace {

epoll_event eventFor(Poller::Interest interest, void* owner) {
  epoll_event event{};
  switch (interest) {
    case Poller::Interest::readable:
      event.events = EPOLLIN;
      break;
    case Poller::Interest::writable:
      event.events = EPOLLOUT;
      break;
    case Poller::Interest::none:
      break;
  }
  event.data.ptr = owner;
  return event;
}

int checked(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

}  // namespace

struct Poller::State {
  const Descriptor epoll{checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")};
  const Descriptor wakeUp{checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")};
  std::array<epoll_event, kEventsAtOnce> raw;
  std::array<Event, kEventsAtOnce> events;
};

Poller::Poller() : state_(std::make_unique<State>()) {
  epoll_event event = eventFor(Interest::readable, nullptr);
  checked(epoll_ctl(state_->epoll.number(), EPOLL_CTL_ADD, state_->wakeUp.number(), &event),
          "epoll_ctl");
}

Poller::~Poller() = default;

bool Poller::add(int descriptor, Interest interest, void* owner) {
  epoll_event event = eventFor(interest, owner);
  return epoll_ctl(state_->epoll.number(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

bool Poller::modify(int descriptor, Interest interest, void* owner) {
  epoll_event event = eventFor(interest, owner);
  return epoll_ctl(state_->epoll.number(), EPOLL_CTL_MOD, descriptor, &event) == 0;
}

void Poller::remove(int descriptor) {
  epoll_ctl(state_->epoll.number(), EPOLL_CTL_DEL, descriptor, nullptr);
}

std::span<const Poller::Event> Poller::wait(int milliseconds) {
  const int answered =
      systemcall::wait(state_->epoll.number(), state_->raw.data(), kEventsAtOnce, milliseconds);
  const std::size_t count = answered < 0 ? 0 : static_cast<std::size_t>(answered);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t bits = state_->raw[i].events;
    void* const owner = state_->raw[i].data.ptr;
    if (owner == nullptr) {
      std::uint64_t times = 0;
      [[maybe_unused]] const ssize_t taken = read(state_->wakeUp.number(), &times, sizeof times);
    }
    state_->events[i] = {owner, (bits & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0,
                         (bits & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0};
  }
  return {state_->events.data(), count};
}

void Poller::wake() {
  const std::uint64_t once = 1;
  [[maybe_unused]] const ssize_t written =
      withoutInterruption([&] { return write(state_->wakeUp.number(), &once, sizeof once); });
}

}  // namespace sorvane
