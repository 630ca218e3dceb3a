// A controller on a scripted network, its console lines, and a delegate that counts.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "discovery/ARendezvousController.h"
#include "platform/SocketAddress.h"
#include "platform/bonjour/scripted/ScriptedServiceDiscovery.h"
#include "support/ConsoleLines.h"

namespace sorvane::test {

class CountingDelegate : public ARendezvousDelegate {
 public:
  void discoveredServicesDidChange(ARendezvousController& sender) override {
    ++calls;
    lastSender = &sender;
    recordsAtLastCall = sender.discoveredServicesWithInfo().size();
  }

  int calls = 0;
  ARendezvousController* lastSender = nullptr;
  std::size_t recordsAtLastCall = 0;
};

class ControllerTest : public ::testing::Test {
 protected:
  static constexpr std::uint16_t kPort = 20221;

  ControllerTest() { controller.setDelegate(&delegate); }

  /// The console's lines since the test began.
  [[nodiscard]] std::vector<std::string> lines() const { return console.all(); }

  [[nodiscard]] NetServiceBrowserDelegate& browserDelegate() const {
    return *network.browser->delegate();
  }
  [[nodiscard]] ScriptedNetService& published() const { return *network.services.back(); }

  /// A service is found and its addresses become known, all with the port.
  std::shared_ptr<ScriptedNetService> found(const std::string& name,
                                            const std::vector<std::string>& addresses,
                                            std::uint16_t port = kPort) const {
    auto service = network.browser->find(name);
    resolve(service, addresses, port);
    return service;
  }

  static void resolve(const std::shared_ptr<ScriptedNetService>& service,
                      const std::vector<std::string>& addresses, std::uint16_t port = kPort) {
    service->knownAddresses.clear();
    for (const std::string& address : addresses) {
      service->knownAddresses.push_back(socketAddress(address, port));
    }
    service->delegate()->netServiceDidResolveAddress(service);
  }

  void removed(const std::shared_ptr<NetService>& service) const {
    browserDelegate().netServiceBrowserDidRemoveService(*network.browser, service, false);
  }

  /// "NAME IP PORT" for each record, the port as recorded.
  [[nodiscard]] std::vector<std::string> records() const {
    std::vector<std::string> texts;
    for (const auto& record : controller.discoveredServicesWithInfo()) {
      texts.push_back(record->name + " " + record->ip + " " + std::to_string(record->port));
    }
    return texts;
  }

  using Texts = std::vector<std::string>;

  const ConsoleLines console;
  ScriptedServiceDiscovery network;
  CountingDelegate delegate;
  ARendezvousController controller{"", "_sorvane._tcp", kPort, network};
};

}  // namespace sorvane::test
