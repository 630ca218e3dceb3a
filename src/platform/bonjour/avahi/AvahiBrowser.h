// Searches for services through the Avahi daemon.
#pragma once

#include <avahi-client/lookup.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/NetService.h"
#include "platform/bonjour/avahi/AvahiFoundService.h"
#include "platform/bonjour/avahi/AvahiLink.h"

namespace sorvane {

/// A service that is in several places is reported as found once. It is reported as removed when it
/// is gone from the last place. When the daemon ends, all services are reported as removed. When
/// the daemon is back, they are found again.
class AvahiBrowser : public NetServiceBrowser, private AvahiParticipant {
 public:
  explicit AvahiBrowser(AvahiLink& link) : link_(link) {}
  ~AvahiBrowser() override;

  void searchForServicesOfType(const std::string& type, const std::string& domain) override;
  void stop() override;

 private:
  void avahiIsRunning(AvahiClient& client) override;
  void avahiIsGone() override;

  void end();
  void loseAll();
  void found(const std::string& name, const std::string& domain, const AvahiPlace& place);
  void removed(const std::string& name, const std::string& domain, const AvahiPlace& place);
  void failed(int error);
  void tell(void (NetServiceBrowserDelegate::*report)(NetServiceBrowser&,
                                                      const std::shared_ptr<NetService>&, bool),
            const std::shared_ptr<NetService>& service);
  static void browserReports(AvahiServiceBrowser* browser, AvahiIfIndex interface,
                             AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                             const char* type, const char* domain, AvahiLookupResultFlags flags,
                             void* self);

  AvahiLink& link_;
  bool searching_ = false;
  std::string type_;
  std::string domain_;
  AvahiClient* client_ = nullptr;           // null while the daemon cannot be used
  AvahiServiceBrowser* browser_ = nullptr;  // null while there is no search in the daemon
  std::map<std::pair<std::string, std::string>, std::shared_ptr<AvahiFoundService>>
      services_;  // by name and domain
  CancellableCalls calls_;
};

}  // namespace sorvane
