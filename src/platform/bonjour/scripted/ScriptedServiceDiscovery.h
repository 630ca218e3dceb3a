// Bonjour for tests. Nothing uses a network; the test decides what is found and what fails.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/NetService.h"

namespace sorvane {

/// A run loop that makes calls only inside `turn`, on the thread of the test.
class ScriptedRunLoop : public RunLoop {
 public:
  void performAfterDelay(std::chrono::milliseconds delay, Call call) override;
  /// One pass: makes the calls that are due. Calls that are added meanwhile wait for the next pass.
  void turn();
  /// Moves the loop's clock forward. Makes no calls.
  void advance(std::chrono::milliseconds time) { now_ += time; }

 private:
  Clock::time_point now_{};
  DelayedCalls calls_;
};

/// A service that counts the calls of its operations. The test calls its delegate.
class ScriptedNetService : public NetService {
 public:
  ScriptedNetService(std::string domain, std::string type, std::string name, int tcpPort)
      : NetService(std::move(domain), std::move(type), std::move(name)), port(tcpPort) {}

  void publish() override { ++timesPublished; }
  void resolve() override { ++timesResolved; }
  void stop() override { ++timesStopped; }
  [[nodiscard]] std::vector<std::string> addresses() const override { return knownAddresses; }

  const int port;
  int timesPublished = 0;
  int timesResolved = 0;
  int timesStopped = 0;
  std::vector<std::string> knownAddresses;  ///< the bytes of socket addresses
};

/// A browser that records its searches. The test calls its delegate.
class ScriptedNetServiceBrowser : public NetServiceBrowser {
 public:
  void searchForServicesOfType(const std::string& type, const std::string& domain) override {
    searches.push_back({type, domain});
  }
  void stop() override { ++timesStopped; }

  /// Tells the delegate that a service of that name was found. Returns the service.
  std::shared_ptr<ScriptedNetService> find(const std::string& name);

  struct Search {
    std::string type;
    std::string domain;
    bool operator==(const Search&) const = default;
  };
  std::vector<Search> searches;
  int timesStopped = 0;
};

class ScriptedServiceDiscovery : public ServiceDiscovery {
 public:
  [[nodiscard]] ScriptedRunLoop& runLoop() override { return runLoop_; }
  [[nodiscard]] std::shared_ptr<NetService> makeService(const std::string& domain,
                                                        const std::string& type,
                                                        const std::string& name, int port) override;
  /// The caller owns the browser. `browser` below is valid only as long as it lives.
  [[nodiscard]] std::unique_ptr<NetServiceBrowser> makeBrowser() override;
  /// Returns an object without a socket, or null if the port is in `takenPorts`.
  [[nodiscard]] std::unique_ptr<SocketPort> makeSocketPort(std::uint16_t port) override;

  std::vector<std::shared_ptr<ScriptedNetService>> services;  ///< all that were made, in order
  ScriptedNetServiceBrowser* browser = nullptr;               ///< the last that was made
  std::set<std::uint16_t> takenPorts;
  std::vector<std::uint16_t> triedPorts;

 private:
  ScriptedRunLoop runLoop_;
};

}  // namespace sorvane
