// Bonjour: services that are published on the local network or found there.
//
// Everything here belongs to one thread, that of the run loop which the ServiceDiscovery answers:
// objects are made, used and destroyed there, and delegates are called there. Another thread asks
// the run loop to do it. Nothing reports back from inside the call that caused it: a delegate is
// always called on a later pass of the loop. Delegates are not owned; null means that nobody is
// told. What cannot be reached now (no Bonjour daemon yet, or one that was restarted) is tried
// again without a word to the delegate.
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

/// Told what becomes of a service. Each operation may be left as it is: it then does nothing.
class NetServiceDelegate {
 public:
  virtual ~NetServiceDelegate() = default;

  virtual void netServiceWillPublish(NetService& service);
  /// The service is on the network, under `name()`. Comes again whenever that is so again: after
  /// the Bonjour daemon was restarted, or under another name.
  virtual void netServiceDidPublish(NetService& service);
  /// The service is not published, and nothing more is tried.
  virtual void netServiceDidNotPublish(NetService& service, std::string_view reason);
  virtual void netServiceWillResolve(NetService& service);
  /// `addresses()` has become known, or has changed.
  virtual void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service);
  virtual void netServiceDidNotResolve(NetService& service, std::string_view reason);
  virtual void netServiceDidStop(NetService& service);
};

/// One service: made with ServiceDiscovery::makeService to be published, or found by a browser to
/// be resolved.
class NetService {
 public:
  virtual ~NetService() = default;
  NetService(const NetService&) = delete;
  NetService& operator=(const NetService&) = delete;

  void setDelegate(NetServiceDelegate* delegate) { delegate_ = delegate; }
  [[nodiscard]] NetServiceDelegate* delegate() const { return delegate_; }

  [[nodiscard]] const std::string& domain() const { return domain_; }
  [[nodiscard]] const std::string& type() const { return type_; }
  /// While published, the name under which the network knows the service: another one than it was
  /// made with when that was empty or taken.
  [[nodiscard]] const std::string& name() const { return name_; }

  /// Publishes the service in its domain (empty: the default ones) and keeps it published until
  /// `stop`. A name that is taken becomes "name (2)" and so on; the empty name stands for the
  /// host's own.
  virtual void publish() = 0;
  /// Looks for the addresses, without a time limit, and goes on doing so until `stop`, or until the
  /// browser that found the service loses it, stops or goes.
  virtual void resolve() = 0;
  /// Ends publishing or resolving.
  virtual void stop() = 0;

  /// The socket addresses found so far, each with the port, as the bytes of a `sockaddr_in` or
  /// `sockaddr_in6`; IPv4 first.
  [[nodiscard]] virtual std::vector<std::string> addresses() const = 0;

  /// True when both are the same service: same domain, type and name.
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

/// Told what a browser finds. Each operation may be left as it is: it then does nothing.
class NetServiceBrowserDelegate {
 public:
  virtual ~NetServiceBrowserDelegate() = default;

  virtual void netServiceBrowserWillSearch(NetServiceBrowser& browser);
  /// A service was found; it may be resolved. `moreComing` tells that another one follows at once.
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

  /// Searches for services of a type, such as "_http._tcp", until `stop`. An empty domain stands
  /// for the default ones. One search at a time: a second one replaces the first.
  virtual void searchForServicesOfType(const std::string& type, const std::string& domain) = 0;
  /// Ends the search; nothing happens when there is none.
  virtual void stop() = 0;

 private:
  NetServiceBrowserDelegate* delegate_ = nullptr;
};

/// A TCP socket that listens on all addresses of this host for as long as the object lives.
class SocketPort {
 public:
  SocketPort() = default;
  virtual ~SocketPort() = default;
  SocketPort(const SocketPort&) = delete;
  SocketPort& operator=(const SocketPort&) = delete;

  /// Null when the port cannot be listened on.
  [[nodiscard]] static std::unique_ptr<SocketPort> listeningOnTcpPort(std::uint16_t port);
};

/// What makes the objects above. Its own operations may be called on any thread.
class ServiceDiscovery {
 public:
  virtual ~ServiceDiscovery() = default;

  /// The one of this process: that of the platform, or what a test has put in its place. Its thread
  /// is started at the first call, so a process forks before it, not after.
  [[nodiscard]] static ServiceDiscovery& current();
  /// Makes `current` answer this one, or the platform's again with null. For tests.
  static void replaceForTest(ServiceDiscovery* discovery);
  /// That of the platform, chosen when the program is linked. Lives as long as the process.
  [[nodiscard]] static ServiceDiscovery& ofPlatform();

  /// The run loop on which everything that is made here lives.
  [[nodiscard]] virtual RunLoop& runLoop() = 0;
  /// A service to be published.
  [[nodiscard]] virtual std::shared_ptr<NetService> makeService(const std::string& domain,
                                                                const std::string& type,
                                                                const std::string& name,
                                                                int port) = 0;
  [[nodiscard]] virtual std::unique_ptr<NetServiceBrowser> makeBrowser() = 0;
  /// Null when the port cannot be listened on.
  [[nodiscard]] virtual std::unique_ptr<SocketPort> makeSocketPort(std::uint16_t port);
};

}  // namespace sorvane
