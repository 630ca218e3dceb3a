#include "registry/HostCommands.h"

#include <string>

#include "platform/Utf8.h"
#include "registry/RequestKeys.h"

namespace sorvane {
namespace {

constexpr std::string_view kHostName = "hostName";
constexpr std::string_view kEthernetAddress = "ethernetAddress";

// The requester's own address; the empty text when the request does not carry it.
std::string_view hostAddress(const Message& request) {
  return request.optionalText("hostAddress").value_or("");
}

std::string otherMachineLine(const Message& request, const HostFacts& host) {
  return "ERROR CONNECTING sorvexec, ethernet address does not match (" +
         escapeControls(request.requiredText(kEthernetAddress)) + " != " + host.ethernetAddress +
         ")\n";
}

}  // namespace

Outcome terminate(CommandContext& /*context*/) {
  return Outcome::endProcess("sorvinfo was asked to terminate.");
}

Outcome restart(CommandContext& /*context*/) {
  return Outcome::endProcess("sorvinfo was asked to restart.");
}

Outcome sorvexecConnectHost(CommandContext& context) {
  const Message& request = context.request;
  if (!request.contains(kHostName) || !request.contains(key::portHostAddress)) {
    return Reply::none();
  }
  if (!request.contains(kEthernetAddress)) {
    context.notes.warning = Warning::ethernetAddressMissing;
    return context.result("failed");
  }
  (void)request.requiredText(kHostName);
  (void)request.requiredText(key::portHostAddress);
  if (request.requiredText(kEthernetAddress) == context.host.ethernetAddress) {
    // Deliberately the loopback names: what the launcher says about itself is read and dropped.
    context.registry.with([](RegistryState& state) {
      state.changeHosts([](HostLists& hosts) { hosts.connect("localhost", "127.0.0.1"); });
    });
    return context.result("connected");
  }
  if (context.verbose) {
    context.notes.logLine = otherMachineLine;
  }
  return context.result("failed");
}

Outcome hostInfo(CommandContext& context) {
  const std::string_view address = hostAddress(context.request);
  context.registry.with([](RegistryState& state) {
    state.changeHosts([](HostLists& hosts) { hosts.createHostList(); });
  });
  const HostFacts& host = context.host;
  if (host.hasOnlyLoopbackAddress && !isLoopbackName(address)) {
    return context.result("local only");
  }
  return context.result(host.name + "|" + host.ethernetAddress + "|" + host.address + "|" +
                        context.services.sorvaneVersion() + "|" + context.services.platformName());
}

Outcome hostList(CommandContext& context) {
  const bool hasAlias = context.host.aliasOf(hostAddress(context.request)).has_value();
  return context.result(context.registry.with([&](RegistryState& state) {
    state.changeHosts([](HostLists& hosts) { hosts.createBoth(); });
    return state.hosts.joined(hasAlias);
  }));
}

}  // namespace sorvane
