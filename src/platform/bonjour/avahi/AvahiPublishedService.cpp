#include "platform/bonjour/avahi/AvahiPublishedService.h"

#include <avahi-common/error.h>

#include <algorithm>

#include "platform/Console.h"
#include "platform/bonjour/ServiceNames.h"
#include "platform/bonjour/avahi/AvahiErrors.h"

namespace sorvane {

AvahiPublishedService::AvahiPublishedService(AvahiLink& link, const std::string& domain,
                                             const std::string& type, const std::string& name,
                                             int port)
    : NetService(domain, type, name), link_(link), askedName_(name), port_(port) {}

AvahiPublishedService::~AvahiPublishedService() {
  if (publishing_) {
    withdraw();
    link_.leave(*this);
  }
}

void AvahiPublishedService::publish() {
  if (publishing_) {
    return;
  }
  publishing_ = true;
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceWillPublish(*this);
    }
  }));
  link_.join(*this);
}

void AvahiPublishedService::resolve() {
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceDidNotResolve(*this, "the service was not found by a browser");
    }
  }));
}

void AvahiPublishedService::stop() {
  calls_.cancelAll();
  if (!publishing_) {
    return;
  }
  publishing_ = false;
  withdraw();
  link_.leave(*this);
  link_.runLoop().perform(calls_.cancellable([this] {
    if (delegate() != nullptr) {
      delegate()->netServiceDidStop(*this);
    }
  }));
}

void AvahiPublishedService::avahiIsRunning(AvahiClient& client) {
  withdraw();
  client_ = &client;
  const char* const hostName = avahi_client_get_host_name(&client);
  if (hostName == nullptr) {
    callFailed(avahi_client_errno(&client));
    return;
  }
  firstName_ = askedName_.empty() ? hostName : askedName_;
  attempt_ = 1;
  announce();
}

void AvahiPublishedService::withdraw() {
  announcement_.cancelAll();
  if (group_ != nullptr) {
    avahi_entry_group_free(group_);
    group_ = nullptr;
  }
  client_ = nullptr;
}

// Makes a new group for each name. After a collision the old group would keep its old records.
void AvahiPublishedService::announce() {
  announcement_.cancelAll();
  if (group_ != nullptr) {
    avahi_entry_group_free(group_);
  }
  group_ = avahi_entry_group_new(client_, &AvahiPublishedService::groupChanged, this);
  const int error = group_ == nullptr ? avahi_client_errno(client_)
                                      : addRecords(serviceNameOfAttempt(firstName_, attempt_));
  if (error == AVAHI_ERR_COLLISION) {
    nameIsTaken();
  } else if (error != AVAHI_OK) {
    callFailed(error);
  }
}

int AvahiPublishedService::addRecords(const std::string& name) {
  if (port_ < 0 || port_ > UINT16_MAX) {
    return AVAHI_ERR_INVALID_PORT;
  }
  const int error = avahi_entry_group_add_service(
      group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{}, name.c_str(),
      type().c_str(), domain().empty() ? nullptr : domain().c_str(), nullptr,
      static_cast<std::uint16_t>(port_), nullptr);
  return error != AVAHI_OK ? error : avahi_entry_group_commit(group_);
}

void AvahiPublishedService::groupChanged(AvahiEntryGroup*, AvahiEntryGroupState state,
                                         void* service) {
  auto& self = *static_cast<AvahiPublishedService*>(service);
  self.link_.runLoop().perform(
      self.announcement_.cancellable([&self, state] { self.enter(state); }));
}

void AvahiPublishedService::enter(AvahiEntryGroupState state) {
  switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
      announced();
      break;
    case AVAHI_ENTRY_GROUP_COLLISION:
      nameIsTaken();
      break;
    case AVAHI_ENTRY_GROUP_FAILURE:
      callFailed(avahi_client_errno(client_));
      break;
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING:
      break;
  }
}

void AvahiPublishedService::announced() {
  link_.worked();
  setName(serviceNameOfAttempt(firstName_, attempt_));
  if (attempt_ > 1) {
    consoleLine("Bonjour: the name \"" + firstName_ + "\" is taken; published as \"" + name() +
                "\"");
  }
  if (delegate() != nullptr) {
    delegate()->netServiceDidPublish(*this);
  }
}

void AvahiPublishedService::nameIsTaken() {
  if (attempt_ == kNames) {
    giveUp("the name is taken, and so are all others that were tried");
    return;
  }
  ++attempt_;
  const std::chrono::seconds pause =
      attempt_ > kNamesAtOnce ? kPauseBetweenNames : std::chrono::seconds(0);
  link_.runLoop().performAfterDelay(pause, announcement_.cancellable([this] { announce(); }));
}

void AvahiPublishedService::callFailed(int error) {
  if (isFaultOfArguments(error)) {
    giveUp(avahi_strerror(error));
  } else {
    link_.failed();
  }
}

void AvahiPublishedService::giveUp(const std::string& reason) {
  withdraw();
  link_.leave(*this);
  publishing_ = false;
  link_.runLoop().perform(calls_.cancellable([this, reason] {
    consoleLine("Bonjour: \"" + firstName_ + "\" cannot be published: " + reason);
    if (delegate() != nullptr) {
      delegate()->netServiceDidNotPublish(*this, reason);
    }
  }));
}

}  // namespace sorvane
