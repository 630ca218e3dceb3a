#include "platform/bonjour/avahi/AvahiWatches.h"

#include <avahi-common/timeval.h>
#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <limits>

// The library declares these types and leaves their definition to the run loop.

struct AvahiWatch {
  static AvahiWatch* add(const AvahiPoll* functions, int descriptor, AvahiWatchEvent events,
                         AvahiWatchCallback callback, void* userData) {
    auto& all = static_cast<sorvane::AvahiWatches*>(functions->userdata)->watches_;
    all.push_back(std::unique_ptr<AvahiWatch>(
        new AvahiWatch{descriptor, events, AvahiWatchEvent{}, callback, userData}));
    return all.back().get();
  }

  int descriptor;
  AvahiWatchEvent awaited;
  AvahiWatchEvent happened;
  AvahiWatchCallback callback;  // null once freed
  void* userData;
};

struct AvahiTimeout {
  static AvahiTimeout* add(const AvahiPoll* functions, const timeval* due,
                           AvahiTimeoutCallback callback, void* userData) {
    auto& all = static_cast<sorvane::AvahiWatches*>(functions->userdata)->timeouts_;
    all.push_back(std::unique_ptr<AvahiTimeout>(new AvahiTimeout{{}, callback, userData}));
    all.back()->set(due);
    return all.back().get();
  }

  void set(const timeval* time) { due = time == nullptr ? std::nullopt : std::optional(*time); }

  std::optional<timeval> due;     // of the system's clock; nullopt: not set
  AvahiTimeoutCallback callback;  // null once freed
  void* userData;
};

namespace sorvane {
namespace {

template <typename Entry>
void forgetFreed(std::vector<std::unique_ptr<Entry>>& all) {
  std::erase_if(all, [](const auto& each) { return each->callback == nullptr; });
}

}  // namespace

AvahiWatches::AvahiWatches() {
  functions_.userdata = this;
  functions_.watch_new = &AvahiWatch::add;
  functions_.watch_update = [](AvahiWatch* watch, AvahiWatchEvent events) {
    watch->awaited = events;
  };
  functions_.watch_get_events = [](AvahiWatch* watch) { return watch->happened; };
  functions_.watch_free = [](AvahiWatch* watch) { watch->callback = nullptr; };
  functions_.timeout_new = &AvahiTimeout::add;
  functions_.timeout_update = [](AvahiTimeout* timeout, const timeval* due) { timeout->set(due); };
  functions_.timeout_free = [](AvahiTimeout* timeout) {
    timeout->callback = nullptr;
    timeout->due.reset();
  };
}

AvahiWatches::~AvahiWatches() = default;

bool AvahiWatches::wait(std::optional<std::chrono::milliseconds> limit) {
  forgetFreed(watches_);
  forgetFreed(timeouts_);
  std::vector<pollfd> questions;
  for (const auto& watch : watches_) {
    questions.push_back({watch->descriptor, static_cast<short>(watch->awaited), 0});
  }
  const int answered = poll(questions.data(), questions.size(), pollTime(limit));
  if (answered < 0 && errno != EINTR) {
    return false;
  }
  for (std::size_t i = 0; i < questions.size(); ++i) {
    watches_[i]->happened = static_cast<AvahiWatchEvent>(answered > 0 ? questions[i].revents : 0);
  }
  reportEvents();
  reportTimeouts();
  return true;
}

int AvahiWatches::pollTime(std::optional<std::chrono::milliseconds> limit) const {
  constexpr std::chrono::milliseconds kLongest{std::numeric_limits<int>::max()};
  std::optional<std::chrono::milliseconds> time = limit;
  for (const auto& timeout : timeouts_) {
    if (timeout->due) {
      const std::chrono::microseconds left(-avahi_age(&*timeout->due));
      const auto rounded = std::chrono::ceil<std::chrono::milliseconds>(left);
      time = std::max(std::chrono::milliseconds(0), std::min(time.value_or(rounded), rounded));
    }
  }
  return time ? static_cast<int>(std::min(*time, kLongest).count()) : -1;
}

// A call may add entries behind the others and free any entry, so no iterator is kept.
void AvahiWatches::reportEvents() {
  for (std::size_t i = 0; i < watches_.size(); ++i) {
    AvahiWatch& watch = *watches_[i];
    if (watch.callback != nullptr && watch.happened != 0) {
      watch.callback(&watch, watch.descriptor, watch.happened, watch.userData);
      watch.happened = AvahiWatchEvent{};
    }
  }
}

void AvahiWatches::reportTimeouts() {
  const std::size_t count = timeouts_.size();
  for (std::size_t i = 0; i < count; ++i) {
    AvahiTimeout& timeout = *timeouts_[i];
    if (timeout.due && avahi_age(&*timeout.due) >= 0) {
      timeout.due.reset();
      timeout.callback(&timeout, timeout.userData);
    }
  }
}

}  // namespace sorvane
