#include "platform/bonjour/scripted/ScriptedServiceDiscovery.h"

namespace sorvane {

void ScriptedRunLoop::performAfterDelay(std::chrono::milliseconds delay, Call call) {
  calls_.add(now_ + delay, std::move(call));
}

void ScriptedRunLoop::turn() { calls_.makeDue(now_); }

std::shared_ptr<ScriptedNetService> ScriptedNetServiceBrowser::find(const std::string& name) {
  auto service = std::make_shared<ScriptedNetService>("local.", searches.back().type, name, 0);
  delegate()->netServiceBrowserDidFindService(*this, service, false);
  return service;
}

std::shared_ptr<NetService> ScriptedServiceDiscovery::makeService(const std::string& domain,
                                                                  const std::string& type,
                                                                  const std::string& name,
                                                                  int port) {
  services.push_back(std::make_shared<ScriptedNetService>(domain, type, name, port));
  return services.back();
}

std::unique_ptr<NetServiceBrowser> ScriptedServiceDiscovery::makeBrowser() {
  auto made = std::make_unique<ScriptedNetServiceBrowser>();
  browser = made.get();
  return made;
}

std::unique_ptr<SocketPort> ScriptedServiceDiscovery::makeSocketPort(std::uint16_t port) {
  triedPorts.push_back(port);
  return takenPorts.contains(port) ? nullptr : std::make_unique<SocketPort>();
}

}  // namespace sorvane
