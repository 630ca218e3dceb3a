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

/// Receives a call when the list of discovered services may have changed, or when publishing has
/// failed.
class ARendezvousDelegate {
 public:
  virtual ~ARendezvousDelegate() = default;
  virtual void discoveredServicesDidChange(ARendezvousController& sender) = 0;
};

/// One address of a service that was found. No two records have both the same `ip` and `port`.
struct DiscoveredService {
  std::string ip;  ///< dotted decimal; an IPv6 address is read as if it were an IPv4 address
  /// The 16-bit port field of the socket address as it lies in memory. On purpose it stays in
  /// network byte order: port 20221 is recorded as 64846 on a little-endian host. `portFromRaw`
  /// converts it.
  std::int32_t port = 0;
  std::string name;
  std::shared_ptr<NetService> service;
};

/// Make, use and destroy a controller only on the thread of the discovery's run loop, because it
/// takes no lock. It calls its delegate on that thread. It reports failures by console lines and
/// booleans, never by exceptions. It does not browse domains.
class ARendezvousController : private NetServiceDelegate, private NetServiceBrowserDelegate {
 public:
  /// Neither publishes nor browses yet. The empty name means the name of the host. `type` is a
  /// service type such as "_sorvane._tcp". `port` is the TCP port to publish, in host byte order.
  ARendezvousController(std::string name, std::string type, std::int32_t port,
                        ServiceDiscovery& discovery = ServiceDiscovery::current());
  /// Ends publishing and browsing.
  ~ARendezvousController() override;
  ARendezvousController(const ARendezvousController&) = delete;
  ARendezvousController& operator=(const ARendezvousController&) = delete;

  /// Sets the delegate, which is not owned. Null means that no delegate is called; setting null
  /// writes a console line.
  void setDelegate(ARendezvousDelegate* delegate);
  [[nodiscard]] ARendezvousDelegate* delegate() const { return delegate_; }

  /// The name to publish under, as it was given.
  [[nodiscard]] const std::string& name() const { return serviceName_; }
  /// Sets the name to publish under. While the service is published, the name stays as it is: the
  /// function writes a console line and returns false.
  bool setName(std::string name);

  /// Returns the listening socket, or null when `createSocket` has not made it.
  [[nodiscard]] const SocketPort* socket() const { return socketPort_.get(); }
  /// The port to publish.
  [[nodiscard]] std::int32_t portNumber() const { return portNumber_; }

  /// Switches publishing on or off. Does nothing when it is on or off already. After a publication
  /// that failed, switching it on again marks it published but publishes nothing: the service that
  /// failed is kept, on purpose.
  void activatePublishing(bool flag);
  /// True while publishing is switched on. A publication that fails switches it off.
  [[nodiscard]] bool isPublished() const { return publishing_; }

  /// Switches browsing on or off. Does nothing when it is on or off already. Switching it off
  /// empties the list and calls the delegate.
  void activateBrowsing(bool flag);
  /// Switches browsing on. When it is on already, only writes a console line.
  void startBrowsing();
  /// Switches browsing off, which empties the list, and on again on the run loop's next pass. Does
  /// nothing while browsing is off.
  void refreshBrowsing();
  /// True while browsing is switched on, even after a search that failed.
  [[nodiscard]] bool isBrowsing() const { return browsing_; }

  /// Returns the current records in the order in which they were found. The list is the caller's;
  /// the records are shared.
  [[nodiscard]] std::vector<std::shared_ptr<DiscoveredService>> discoveredServicesWithInfo() const {
    return discoveredServicesWithInfo_;
  }
  /// Returns the `ip` of the first record with that service name, or nothing when there is none.
  [[nodiscard]] std::optional<std::string> ipForName(const std::string& name) const;
  /// Returns the `port` of the first record with that service name, in network byte order as
  /// recorded, or 0 when there is none.
  [[nodiscard]] std::int32_t portForName(const std::string& name) const;

  /// Makes the listening socket on the first free TCP port. The search begins at the port number
  /// and goes upward without an end. The port that was found becomes the port number. Does nothing
  /// when there is a socket already.
  void createSocket();

 private:
  void createService();
  void createBrowser();
  void search();
  /// Drops the records, and what was found and may still resolve.
  void forgetServices();
  /// Takes the controller off the found services that `isGone` selects.
  template <typename IsGone>
  void leaveFoundServices(IsGone isGone);
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
  // Services whose publication was switched off. On purpose they are kept until the controller is
  // destroyed.
  std::vector<std::shared_ptr<NetService>> stoppedServices_;
  std::string serviceName_;
  const std::string serviceType_;
  bool browsing_ = false;
  bool publishing_ = false;
  std::unique_ptr<NetServiceBrowser> serviceBrowser_;
  std::unique_ptr<SocketPort> socketPort_;
  std::int32_t portNumber_;
  std::vector<std::shared_ptr<DiscoveredService>> discoveredServicesWithInfo_;
  std::vector<std::shared_ptr<NetService>> foundServices_;  // those whose delegate this object is
  ARendezvousDelegate* delegate_ = nullptr;
  CancellableCalls laterCalls_;
};

}  // namespace sorvane
