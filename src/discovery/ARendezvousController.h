// Publishes one Bonjour service and browses for others of its type.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/NetService.h"

namespace sorvane {

class ARendezvousController;

/// Told that the list of discovered services may have changed, or that publishing has failed.
class ARendezvousDelegate {
 public:
  virtual ~ARendezvousDelegate() = default;
  virtual void discoveredServicesDidChange(ARendezvousController& sender) = 0;
};

/// One address of a service that was found. No two records have both the same `ip` and `port`.
struct DiscoveredService {
  std::string ip;  ///< dotted decimal; what an IPv6 address reads as in place of an IPv4 one
  /// The 16-bit port field of the socket address as it lies in memory, in network byte order, on
  /// purpose: 20221 is recorded as 64846 on a little-endian host. `portFromRaw` turns it round.
  std::int32_t port = 0;
  std::string name;
  std::shared_ptr<NetService> service;
};

/// The controller takes no lock: it is made, used and destroyed on the thread of the discovery's
/// run loop, and tells its delegate there. Failures are told by console lines and booleans, never
/// by exceptions. Domains are not browsed.
class ARendezvousController : private NetServiceDelegate, private NetServiceBrowserDelegate {
 public:
  /// Neither publishes nor browses yet. The empty name stands for the host's own; `type` is a
  /// service type such as "_sorvane._tcp"; `port` is the TCP port to publish, in host byte order.
  ARendezvousController(std::string name, std::string type, std::int32_t port,
                        ServiceDiscovery& discovery = ServiceDiscovery::current());
  /// Ends publishing and browsing.
  ~ARendezvousController() override;
  ARendezvousController(const ARendezvousController&) = delete;
  ARendezvousController& operator=(const ARendezvousController&) = delete;

  /// Not owned; null means that nobody is told, and costs a console line when it is set.
  void setDelegate(ARendezvousDelegate* delegate);
  [[nodiscard]] ARendezvousDelegate* delegate() const { return delegate_; }

  /// The name to publish under, as it was given.
  [[nodiscard]] const std::string& name() const { return serviceName_; }
  /// False, with a console line and the name as it was, while the service is published.
  bool setName(std::string name);

  /// The listening socket; null unless `createSocket` has made it.
  [[nodiscard]] const SocketPort* socket() const { return socketPort_.get(); }
  /// The port to publish.
  [[nodiscard]] std::int32_t portNumber() const { return portNumber_; }

  /// Switches publishing on or off; nothing happens when it is so already. After a publication that
  /// failed, switching it on again marks it published and publishes nothing: the service that
  /// failed is kept, on purpose.
  void activatePublishing(bool flag);
  /// The service is meant to be published.
  [[nodiscard]] bool isPublished() const { return publishing_; }

  /// Switches browsing on or off; nothing happens when it is so already. Off empties the list and
  /// tells the delegate.
  void activateBrowsing(bool flag);
  /// Switches browsing on; when it is on already there is only a console line.
  void startBrowsing();
  /// Stops browsing, which empties the list, and starts again on the run loop's next pass. Nothing
  /// happens while browsing is off.
  void refreshBrowsing();
  /// Stays true after a search that failed.
  [[nodiscard]] bool isBrowsing() const { return browsing_; }

  /// The records now, in the order in which they were found; the list is the caller's, the records
  /// are shared.
  [[nodiscard]] std::vector<std::shared_ptr<DiscoveredService>> discoveredServicesWithInfo() const {
    return discoveredServicesWithInfo_;
  }
  /// Of the first record with that service name; nothing when there is none.
  [[nodiscard]] std::optional<std::string> ipForName(const std::string& name) const;
  /// As recorded, in network byte order, of the first record with that service name; 0 when there
  /// is none.
  [[nodiscard]] std::int32_t portForName(const std::string& name) const;

  /// Makes the listening socket on the first free TCP port from the port number upward, without a
  /// last one, and makes that the port number. Nothing happens when there is a socket.
  void createSocket();

 private:
  void createService();
  void createBrowser();
  void search();
  void tellDelegate();
  bool addInfoService(const std::shared_ptr<NetService>& service, const std::string& name,
                      const std::string& ip, std::int32_t port);
  void removeInfoService(const NetService& service);
  [[nodiscard]] const DiscoveredService* firstRecordOf(const std::string& name) const;

  void netServiceDidNotPublish(NetService& service, std::string_view reason) override;
  void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service) override;
  void netServiceBrowserDidFindService(NetServiceBrowser& browser,
                                       const std::shared_ptr<NetService>& service,
                                       bool moreComing) override;
  void netServiceBrowserDidRemoveService(NetServiceBrowser& browser,
                                         const std::shared_ptr<NetService>& service,
                                         bool moreComing) override;
  void netServiceBrowserDidStopSearch(NetServiceBrowser& browser) override;
  void netServiceBrowserDidNotSearch(NetServiceBrowser& browser, std::string_view reason) override;

  ServiceDiscovery& discovery_;
  std::shared_ptr<NetService> service_;  // null while not publishing
  // Services that were published once are kept until the controller goes, on purpose.
  std::vector<std::shared_ptr<NetService>> stoppedServices_;
  std::string serviceName_;
  const std::string serviceType_;
  bool browsing_ = false;
  bool publishing_ = false;
  std::unique_ptr<NetServiceBrowser> serviceBrowser_;
  std::unique_ptr<SocketPort> socketPort_;
  std::int32_t portNumber_;
  std::vector<std::shared_ptr<DiscoveredService>> discoveredServicesWithInfo_;
  ARendezvousDelegate* delegate_ = nullptr;
  CancellableCalls laterCalls_;
};

}  // namespace sorvane
