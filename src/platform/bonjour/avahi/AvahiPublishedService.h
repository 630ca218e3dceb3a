// A service that is published through the Avahi daemon.
#pragma once

#include <avahi-client/publish.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/NetService.h"
#include "platform/bonjour/avahi/AvahiLink.h"

namespace sorvane {

/// Published anew, beginning with the name that was asked for, whenever the daemon comes back or
/// the host has changed its name.
class AvahiPublishedService : public NetService, private AvahiParticipant {
 public:
  /// Attempts at a name until the service gives up; those after the first few wait.
  static constexpr int kNames = 60;
  static constexpr int kNamesAtOnce = 10;
  static constexpr std::chrono::seconds kPauseBetweenNames{5};

  AvahiPublishedService(AvahiLink& link, const std::string& domain, const std::string& type,
                        const std::string& name, int port);
  ~AvahiPublishedService() override;

  void publish() override;
  /// Reports that the service cannot be resolved: that is for services which a browser found.
  void resolve() override;
  void stop() override;
  [[nodiscard]] std::vector<std::string> addresses() const override { return {}; }

 private:
  void avahiIsRunning(AvahiClient& client) override;
  void hostNameIsChanging() override { withdraw(); }
  void avahiIsGone() override { withdraw(); }

  void announce();
  void announced();
  void nameIsTaken();
  void callFailed(int error);
  void giveUp(const std::string& reason);
  void withdraw();
  [[nodiscard]] int addRecords(const std::string& name);
  void enter(AvahiEntryGroupState state);
  static void groupChanged(AvahiEntryGroup* group, AvahiEntryGroupState state, void* service);

  AvahiLink& link_;
  const std::string askedName_;
  const int port_;
  bool publishing_ = false;
  AvahiClient* client_ = nullptr;     // null while the daemon cannot be used
  AvahiEntryGroup* group_ = nullptr;  // null while nothing is announced
  std::string firstName_;             // what was asked for, or the host's own name
  int attempt_ = 1;
  CancellableCalls calls_;         // those that are the service's own, and the delegate's
  CancellableCalls announcement_;  // those of the group at hand
};

}  // namespace sorvane
