#include <algorithm>

#include "platform/HostAddresses.h"
#include "platform/IPNetwork.h"
#include "platform/VNHost.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

using sorvane::HostAddresses;
using sorvane::VNHost;

namespace {

bool isLoopback(const std::string& text) {
  const auto address = sorvane::IPAddress::parse(text.substr(0, text.find('%')));
  return address && address->isLoopback();
}

/// Compares what the name of this host means with what this host is.
std::optional<Finding> lookAtAddresses(const VNHost& host,
                                       const std::vector<std::string>& addresses) {
  const auto isThisHost = [&host](const std::string& each) { return host.isThisHost(each); };
  if (std::ranges::none_of(addresses, isThisHost)) {
    return finding(kinds::hostNameElsewhere,
                   {{"name", host.name()}, {"addresses", joined(addresses)}});
  }
  // A host without a network has nothing better.
  if (std::ranges::all_of(addresses, isLoopback) && !isLoopback(host.address())) {
    return finding(
        kinds::hostNameLoopback,
        {{"name", host.name()}, {"addresses", joined(addresses)}, {"address", host.address()}});
  }
  return std::nullopt;
}

}  // namespace

Report checkHostName(const Environment& environment) {
  const VNHost& host = VNHost::currentHost();
  const auto begin = Environment::Clock::now();
  const HostAddresses found = sorvane::addressesOfHost(host.name(), environment.lastMoment);
  if (found.outOfTime) {
    const auto seconds =
        std::chrono::round<std::chrono::seconds>(Environment::Clock::now() - begin).count();
    return {host.name(),
            {finding(kinds::hostNameSlow,
                     {{"name", host.name()}, {"seconds", std::to_string(seconds)}})},
            {}};
  }
  if (found.addresses.empty()) {
    return {
        host.name(),
        {finding(kinds::hostNameUnresolved, {{"name", host.name()}, {"reason", found.failure}})},
        {}};
  }
  Report report{host.name() + " means " + joined(found.addresses), {}, {}};
  if (auto wrong = lookAtAddresses(host, found.addresses)) {
    report.findings.push_back(std::move(*wrong));
  }
  return report;
}

}  // namespace sorvctl::doctor
