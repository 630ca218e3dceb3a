// A service that is published through the Avahi daemon.
#pragma once

#include <avahi-client/publish.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/NetService.h"
#include "platform/bonjour/avahi/AvahiLink.h"

namespace sorvane {

/// The service is published again each time the daemon comes back or the host's name has changed.
/// It then begins with the name that was asked for.
class AvahiPublishedService : public NetService, private AvahiParticipant {
 public:
  /// The service gives up after `kNames` attempts at a name. From attempt `kNamesAtOnce` + 1 on, it
  /// pauses before each.
  static constexpr int kNames = 60;
  static constexpr int kNamesAtOnce = 10;
  static constexpr std::chrono::seconds kPauseBetweenNames{5};

  AvahiPublishedService(AvahiLink& link, const std::string& domain, const std::string& type,
                        const std::string& name, int port);
  ~AvahiPublishedService() override;

  void publish() override;
  /// Reports that the service cannot be resolved. Only a service that a browser found can be.
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
  std::string firstName_;             // the name that was asked for, or the host's own
  int attempt_ = 1;
  CancellableCalls calls_;         // calls of the service itself and of its delegate
  CancellableCalls announcement_;  // calls for the present group
};

}  // namespace sorvane
