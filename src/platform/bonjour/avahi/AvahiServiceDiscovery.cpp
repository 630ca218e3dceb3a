// Bonjour by the Avahi client library, which talks to the system's Avahi daemon.
#include "platform/NetService.h"
#include "platform/bonjour/avahi/AvahiBrowser.h"
#include "platform/bonjour/avahi/AvahiLink.h"
#include "platform/bonjour/avahi/AvahiPublishedService.h"
#include "platform/bonjour/avahi/AvahiRunLoop.h"

namespace sorvane {
namespace {

class AvahiServiceDiscovery : public ServiceDiscovery {
 public:
  RunLoop& runLoop() override { return runLoop_; }

  std::shared_ptr<NetService> makeService(const std::string& domain, const std::string& type,
                                          const std::string& name, int port) override {
    return std::make_shared<AvahiPublishedService>(link_, domain, type, name, port);
  }

  std::unique_ptr<NetServiceBrowser> makeBrowser() override {
    return std::make_unique<AvahiBrowser>(link_);
  }

 private:
  AvahiRunLoop runLoop_;
  AvahiLink link_{runLoop_};
};

}  // namespace

ServiceDiscovery& ServiceDiscovery::ofPlatform() {
  // Never destroyed: its thread runs until the process ends.
  static auto* const discovery = new AvahiServiceDiscovery;
  return *discovery;
}

}  // namespace sorvane
