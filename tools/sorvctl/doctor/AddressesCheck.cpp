#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

#include "platform/Settings.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

using sorvane::IPAddress;
using sorvane::TcpListener;

namespace {

using Listeners = std::vector<TcpListener>;

/// The listeners on the base port if they are those of a name server.
Listeners listenersOfServer(const Environment& environment) {
  const bool ofServer =
      environment.listener ? isNameServer(*environment.listener) : environment.answer.answered;
  return ofServer && environment.portUse ? environment.portUse->listeners : Listeners{};
}

std::string addressesOf(const Listeners& listeners) {
  std::vector<std::string> addresses;
  for (const TcpListener& each : listeners) {
    addresses.push_back(each.address);
  }
  return joined(addresses);
}

bool isIPv6BeyondTheLink(const IPAddress& address) {
  const auto& bytes = address.bytes();
  const bool isOfTheLink = bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80;
  return !address.isIPv4() && !address.isLoopback() && !isOfTheLink;
}

bool isOfANetwork(const IPAddress& address) {
  return (address.isIPv4() && !address.isLoopback()) || isIPv6BeyondTheLink(address);
}

std::string textOf(const IPAddress& address) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(AF_INET6, address.bytes().data(), text, sizeof text);
  return text;
}

/// Compares where the name server listens with what the settings and the network ask for.
std::optional<Finding> lookAtListeners(const Listeners& listeners, bool localOnly,
                                       const std::vector<IPAddress>& own) {
  const auto isLoopback = [](const TcpListener& each) { return each.isLoopback; };
  const auto isIPv6 = [](const TcpListener& each) {
    return each.address.find(':') != std::string::npos;
  };
  if (listeners.empty()) {
    return std::nullopt;
  }
  const bool onlyLoopback = std::ranges::all_of(listeners, isLoopback);
  if (onlyLoopback != localOnly) {
    return finding(localOnly ? kinds::listensOnAll : kinds::listensOnLoopback,
                   {{"addresses", addressesOf(listeners)}});
  }
  const auto beyond = std::ranges::find_if(own, isIPv6BeyondTheLink);
  if (!localOnly && std::ranges::none_of(listeners, isIPv6) && beyond != own.end()) {
    return finding(kinds::listensWithoutIPv6,
                   {{"addresses", addressesOf(listeners)}, {"address", textOf(*beyond)}});
  }
  return std::nullopt;
}

}  // namespace

Report checkAddresses(const Environment& environment) {
  const sorvane::Settings& settings = environment.settings.reading.settings;
  const Listeners listeners = listenersOfServer(environment);
  const auto& own = environment.ownAddresses;
  Report report{listeners.empty() ? "the name server listens nowhere"
                                  : "the name server listens on " + addressesOf(listeners),
                {},
                {}};
  if (auto found = lookAtListeners(listeners, settings.localAccessOnly,
                                   own.value_or(std::vector<IPAddress>{}))) {
    report.findings.push_back(std::move(*found));
  }
  if (!environment.portUse) {
    report.unseen.push_back(
        {"on which addresses the name server listens", "this system does not tell"});
  }
  if (settings.localAccessOnly) {
    report.findings.push_back(finding(kinds::localOnly));
    return report;
  }
  if (!own) {
    report.unseen.push_back({"the addresses of this host", "the system does not tell them now"});
    return report;
  }
  if (std::ranges::none_of(*own, isOfANetwork)) {
    report.findings.push_back(finding(kinds::networkMissing));
  }
  const auto given = settings.address ? IPAddress::parse(*settings.address) : std::nullopt;
  if (given && std::ranges::count(*own, *given) == 0) {
    report.findings.push_back(finding(kinds::addressElsewhere, {{"address", *settings.address}}));
  }
  return report;
}

}  // namespace sorvctl::doctor
