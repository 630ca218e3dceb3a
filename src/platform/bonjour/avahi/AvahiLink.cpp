#include "platform/bonjour/avahi/AvahiLink.h"

#include <avahi-common/error.h>

#include <algorithm>

#include "platform/Console.h"

namespace sorvane {

void AvahiLink::join(AvahiParticipant& participant) {
  participants_.push_back(&participant);
  if (running_) {
    runLoop_.perform(reports_.cancellable([this, joined = &participant] {
      if (running_ && std::ranges::count(participants_, joined) != 0) {
        joined->avahiIsRunning(*client_);
      }
    }));
  } else if (client_ == nullptr && !retrying_) {
    connect();
  }
}

void AvahiLink::leave(AvahiParticipant& participant) { std::erase(participants_, &participant); }

void AvahiLink::worked() {
  retryDelay_ = kFirstRetry;
  missingReported_ = false;
}

void AvahiLink::failed() {
  runLoop_.perform(reports_.cancellable([this] { enter(AVAHI_CLIENT_FAILURE); }));
}

void AvahiLink::connect() {
  int error = 0;
  reports_.cancelAll();
  client_ = avahi_client_new(runLoop_.poll(), AVAHI_CLIENT_NO_FAIL, &AvahiLink::stateChanged, this,
                             &error);
  if (client_ == nullptr) {
    // Despite its flag, the library waits only for the daemon, not for D-Bus.
    reports_.cancelAll();
    reportMissing(avahi_strerror(error));
    retryLater();
  }
}

void AvahiLink::disconnect() {
  reports_.cancelAll();
  running_ = false;
  const std::vector<AvahiParticipant*> told = participants_;
  for (AvahiParticipant* const participant : told) {
    participant->avahiIsGone();
  }
  avahi_client_free(client_);
  client_ = nullptr;
}

void AvahiLink::retryLater() {
  retrying_ = true;
  runLoop_.performAfterDelay(retryDelay_, [this] {
    retrying_ = false;
    connect();
  });
  retryDelay_ = std::min(retryDelay_ * 2, kLastRetry);
}

// The library also calls this from inside avahi_client_new, and from inside objects that must not
// be freed during the call. So the state is entered on a later pass.
void AvahiLink::stateChanged(AvahiClient*, AvahiClientState state, void* link) {
  auto& self = *static_cast<AvahiLink*>(link);
  self.runLoop_.perform(self.reports_.cancellable([&self, state] { self.enter(state); }));
}

void AvahiLink::enter(AvahiClientState state) {
  running_ = state == AVAHI_CLIENT_S_RUNNING;
  const std::vector<AvahiParticipant*> told = participants_;  // a copy: participants may leave
  switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
      for (AvahiParticipant* const participant : told) {
        participant->avahiIsRunning(*client_);
      }
      break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
      for (AvahiParticipant* const participant : told) {
        participant->hostNameIsChanging();
      }
      break;
    case AVAHI_CLIENT_CONNECTING:
      reportMissing("the Avahi daemon is not running");
      break;
    case AVAHI_CLIENT_FAILURE:
      reportMissing(avahi_strerror(avahi_client_errno(client_)));
      disconnect();
      retryLater();
      break;
  }
}

void AvahiLink::reportMissing(const std::string& reason) {
  if (!missingReported_) {
    missingReported_ = true;
    consoleLine("Bonjour: Avahi cannot be reached (" + reason + "); waiting for it");
  }
}

}  // namespace sorvane
