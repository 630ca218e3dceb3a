#include "platform/NetService.h"

#include <atomic>

namespace sorvane {

void NetServiceDelegate::netServiceWillPublish(NetService&) {}
void NetServiceDelegate::netServiceDidPublish(NetService&) {}
void NetServiceDelegate::netServiceDidNotPublish(NetService&, std::string_view) {}
void NetServiceDelegate::netServiceWillResolve(NetService&) {}
void NetServiceDelegate::netServiceDidResolveAddress(const std::shared_ptr<NetService>&) {}
void NetServiceDelegate::netServiceDidNotResolve(NetService&, std::string_view) {}
void NetServiceDelegate::netServiceDidStop(NetService&) {}

NetService::NetService(std::string domain, std::string type, std::string name)
    : domain_(std::move(domain)), type_(std::move(type)), name_(std::move(name)) {}

bool NetService::isEqual(const NetService& other) const {
  return domain_ == other.domain_ && type_ == other.type_ && name_ == other.name_;
}

void NetServiceBrowserDelegate::netServiceBrowserWillSearch(NetServiceBrowser&) {}
void NetServiceBrowserDelegate::netServiceBrowserDidFindService(NetServiceBrowser&,
                                                                const std::shared_ptr<NetService>&,
                                                                bool) {}
void NetServiceBrowserDelegate::netServiceBrowserDidRemoveService(
    NetServiceBrowser&, const std::shared_ptr<NetService>&, bool) {}
void NetServiceBrowserDelegate::netServiceBrowserDidFindDomain(NetServiceBrowser&, std::string_view,
                                                               bool) {}
void NetServiceBrowserDelegate::netServiceBrowserDidRemoveDomain(NetServiceBrowser&,
                                                                 std::string_view, bool) {}
void NetServiceBrowserDelegate::netServiceBrowserDidStopSearch(NetServiceBrowser&) {}
void NetServiceBrowserDelegate::netServiceBrowserDidNotSearch(NetServiceBrowser&,
                                                              std::string_view) {}

namespace {
std::atomic<ServiceDiscovery*> replacement = nullptr;
}

ServiceDiscovery& ServiceDiscovery::current() {
  ServiceDiscovery* const other = replacement.load();
  return other != nullptr ? *other : ofPlatform();
}

void ServiceDiscovery::replaceForTest(ServiceDiscovery* discovery) { replacement = discovery; }

std::unique_ptr<SocketPort> ServiceDiscovery::makeSocketPort(std::uint16_t port) {
  return SocketPort::listeningOnTcpPort(port);
}

}  // namespace sorvane
