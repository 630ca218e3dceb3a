// Publishes a service, or browses, and prints a line for each thing that happens:
//   bonjour_peer publish NAME TYPE PORT    "published NAME", "not published: REASON"
//   bonjour_peer browse TYPE               "found NAME", "NAME ADDRESS PORT", "removed NAME"
// Goes on until it is killed.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "platform/NetService.h"
#include "platform/SocketAddress.h"

namespace {

using namespace sorvane;

void say(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

class Publisher : public NetServiceDelegate {
 public:
  void netServiceDidPublish(NetService& service) override { say("published " + service.name()); }
  void netServiceDidNotPublish(NetService&, std::string_view reason) override {
    say("not published: " + std::string(reason));
  }
};

class Finder : public NetServiceBrowserDelegate, public NetServiceDelegate {
 public:
  void netServiceBrowserDidFindService(NetServiceBrowser&,
                                       const std::shared_ptr<NetService>& service, bool) override {
    say("found " + service->name());
    service->setDelegate(this);
    service->resolve();
  }
  void netServiceBrowserDidRemoveService(NetServiceBrowser&,
                                         const std::shared_ptr<NetService>& service,
                                         bool) override {
    say("removed " + service->name());
  }
  void netServiceBrowserDidNotSearch(NetServiceBrowser&, std::string_view reason) override {
    say("no search: " + std::string(reason));
  }
  void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service) override {
    for (const std::string& bytes : service->addresses()) {
      const Ipv4SocketAddress address = readAsIpv4SocketAddress(bytes);
      say(service->name() + " " + address.dottedAddress + " " +
          std::to_string(portFromRaw(address.rawPort)));
    }
  }
};

}  // namespace

int main(int count, char** words) {
  ServiceDiscovery& discovery = ServiceDiscovery::current();
  Publisher publisher;
  Finder finder;
  std::shared_ptr<NetService> service;
  std::unique_ptr<NetServiceBrowser> browser;
  discovery.runLoop().perform([&] {
    if (count == 5) {
      service = discovery.makeService("", words[3], words[2], std::atoi(words[4]));
      service->setDelegate(&publisher);
      service->publish();
    } else {
      browser = discovery.makeBrowser();
      browser->setDelegate(&finder);
      browser->searchForServicesOfType(words[2], "");
    }
  });
  while (true) {
    pause();
  }
}
