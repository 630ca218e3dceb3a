// Bonjour: services that are published on the local network or found there.
//
// All objects here belong to one thread: that of the run loop which `ServiceDiscovery::runLoop`
// returns. Make, use and destroy them on that thread; delegates are called on it. Other threads use
// `RunLoop::perform` to get there.
//
// A delegate is never called from inside the call that caused the report, but on a later pass of
// the loop. Delegates are not owned. If a delegate is null, nobody is told. If Bonjour cannot be
// reached (there is no Bonjour daemon yet, or it was restarted), the work is tried again, and the
// delegate is not told.
//
// Implemented in bonjour/NetService.cpp and bonjour/SocketPort.cpp. The parts that differ are in
// bonjour/avahi/, in bonjour/absent/ for builds without Bonjour, and in bonjour/scripted/ for
// tests.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/RunLoop.h"

namespace sorvane {

class NetService;
class NetServiceBrowser;

/// Receives reports about a service. An operation that is not overridden does nothing.
class NetServiceDelegate {
 public:
  virtual ~NetServiceDelegate() = default;

  virtual void netServiceWillPublish(NetService& service);
  /// The service is on the network, under `name()`. Called again each time that it has come back:
  /// after a restart of the Bonjour daemon, or under another name.
  virtual void netServiceDidPublish(NetService& service);
  /// The service is not published, and publishing is not tried again.
  virtual void netServiceDidNotPublish(NetService& service, std::string_view reason);
  virtual void netServiceWillResolve(NetService& service);
  /// `addresses()` is known now, or has changed.
  virtual void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service);
  virtual void netServiceDidNotResolve(NetService& service, std::string_view reason);
  virtual void netServiceDidStop(NetService& service);
};

/// One service. ServiceDiscovery::makeService makes one to be published; a browser finds one to be
/// resolved.
class NetService {
 public:
  virtual ~NetService() = default;
  NetService(const NetService&) = delete;
  NetService& operator=(const NetService&) = delete;

  void setDelegate(NetServiceDelegate* delegate) { delegate_ = delegate; }
  [[nodiscard]] NetServiceDelegate* delegate() const { return delegate_; }

  [[nodiscard]] const std::string& domain() const { return domain_; }
  [[nodiscard]] const std::string& type() const { return type_; }
  /// The name with which the object was made. While the service is published, the name that the
  /// network knows; it is another one if the first was empty or taken.
  [[nodiscard]] const std::string& name() const { return name_; }

  /// Publishes the service in its domain and keeps it published until `stop`. An empty domain means
  /// the default ones. An empty name means the name of the host. If the name is taken, "name (2)"
  /// is tried, and so on.
  virtual void publish() = 0;
  /// Looks for the addresses, without a time limit. Ends with `stop`, or when the browser that
  /// found the service loses it, stops or is destroyed.
  virtual void resolve() = 0;
  /// Ends publishing or resolving.
  virtual void stop() = 0;

  /// Returns the socket addresses found so far, each with the port, as the bytes of a `sockaddr_in`
  /// or `sockaddr_in6`. Those of IPv4 come first.
  [[nodiscard]] virtual std::vector<std::string> addresses() const = 0;

  /// Returns true if both are the same service: same domain, type and name.
  [[nodiscard]] bool isEqual(const NetService& other) const;

 protected:
  NetService(std::string domain, std::string type, std::string name);
  void setName(std::string name) { name_ = std::move(name); }

 private:
  const std::string domain_;
  const std::string type_;
  std::string name_;
  NetServiceDelegate* delegate_ = nullptr;
};

/// Receives what a browser finds. An operation that is not overridden does nothing.
class NetServiceBrowserDelegate {
 public:
  virtual ~NetServiceBrowserDelegate() = default;

  virtual void netServiceBrowserWillSearch(NetServiceBrowser& browser);
  /// A service was found and can be resolved. `moreComing` is true if another one follows at once.
  virtual void netServiceBrowserDidFindService(NetServiceBrowser& browser,
                                               const std::shared_ptr<NetService>& service,
                                               bool moreComing);
  /// A service that was found is gone.
  virtual void netServiceBrowserDidRemoveService(NetServiceBrowser& browser,
                                                 const std::shared_ptr<NetService>& service,
                                                 bool moreComing);
  virtual void netServiceBrowserDidFindDomain(NetServiceBrowser& browser, std::string_view domain,
                                              bool moreComing);
  virtual void netServiceBrowserDidRemoveDomain(NetServiceBrowser& browser, std::string_view domain,
                                                bool moreComing);
  virtual void netServiceBrowserDidStopSearch(NetServiceBrowser& browser);
  virtual void netServiceBrowserDidNotSearch(NetServiceBrowser& browser, std::string_view reason);
};

/// Searches the network for services of one type.
class NetServiceBrowser {
 public:
  NetServiceBrowser() = default;
  virtual ~NetServiceBrowser() = default;
  NetServiceBrowser(const NetServiceBrowser&) = delete;
  NetServiceBrowser& operator=(const NetServiceBrowser&) = delete;

  void setDelegate(NetServiceBrowserDelegate* delegate) { delegate_ = delegate; }
  [[nodiscard]] NetServiceBrowserDelegate* delegate() const { return delegate_; }

  /// Searches for services of a type, for instance "_http._tcp", until `stop`. An empty domain
  /// means the default ones. A browser has one search at a time: a second one replaces the first.
  virtual void searchForServicesOfType(const std::string& type, const std::string& domain) = 0;
  /// Ends the search. Does nothing if there is none.
  virtual void stop() = 0;

 private:
  NetServiceBrowserDelegate* delegate_ = nullptr;
};

/// A TCP socket that listens on all IPv4 addresses of this host as long as the object lives.
class SocketPort {
 public:
  SocketPort() = default;
  virtual ~SocketPort() = default;
  SocketPort(const SocketPort&) = delete;
  SocketPort& operator=(const SocketPort&) = delete;

  /// Listens on `port`. Returns null if that fails.
  [[nodiscard]] static std::unique_ptr<SocketPort> listeningOnTcpPort(std::uint16_t port);
};

/// Makes the objects above. Its own operations may be called on any thread.
class ServiceDiscovery {
 public:
  virtual ~ServiceDiscovery() = default;

  /// Returns the object of this process: that of the platform, or the one that a test has put in
  /// its place. The first call starts the thread of the run loop, so a process must not fork after
  /// it.
  [[nodiscard]] static ServiceDiscovery& current();
  /// Makes `current` return this object; null restores that of the platform. For tests.
  static void replaceForTest(ServiceDiscovery* discovery);
  /// Returns the object of the platform, which was chosen when the program was linked. It lives as
  /// long as the process.
  [[nodiscard]] static ServiceDiscovery& ofPlatform();

  /// The run loop whose thread uses everything that is made here.
  [[nodiscard]] virtual RunLoop& runLoop() = 0;
  /// Makes a service that is to be published.
  [[nodiscard]] virtual std::shared_ptr<NetService> makeService(const std::string& domain,
                                                                const std::string& type,
                                                                const std::string& name,
                                                                int port) = 0;
  [[nodiscard]] virtual std::unique_ptr<NetServiceBrowser> makeBrowser() = 0;
  /// Listens on `port`. Returns null if that fails.
  [[nodiscard]] virtual std::unique_ptr<SocketPort> makeSocketPort(std::uint16_t port);
};

}  // namespace sorvane
