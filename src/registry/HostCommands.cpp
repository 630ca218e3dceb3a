#include "registry/HostCommands.h"

#include <string>

#include "platform/Console.h"
#include "platform/VNHost.h"
#include "registry/LocalOnly.h"

namespace sorvane {

Outcome terminate(CommandContext& /*context*/) {
  return Outcome::endProcess("sorvinfo was asked to terminate.");
}

Outcome restart(CommandContext& /*context*/) {
  return Outcome::endProcess("sorvinfo was asked to restart.");
}

Outcome sorvexecConnectHost(CommandContext& context) {
  const RequestKeys& request = context.request;
  if (!request.holds(keySet(Key::hostName, Key::portHostAddress))) {
    return Outcome::noReply();
  }
  if (!request.holds(Key::ethernetAddress)) {
    consoleLine("ethernetAddress missing from sorvexec communication");
    return context.result("failed");
  }
  (void)request.requiredText(Key::hostName);
  (void)request.requiredText(Key::portHostAddress);
  const std::string_view theirs = request.requiredText(Key::ethernetAddress);
  const std::string& ours = VNHost::currentHost().ethernetAddress();
  if (theirs == ours) {
    // Deliberately the loopback names: what the launcher says about itself is read and dropped.
    context.registry.with(
        [](RegistryState& state) { state.hosts.connect("localhost", "127.0.0.1"); });
    return context.result("connected");
  }
  if (context.verbose) {
    context.services.log("ERROR CONNECTING sorvexec, ethernet address does not match (" +
                         std::string(theirs) + " != " + ours + ")\n");
  }
  return context.result("failed");
}

Outcome hostInfo(CommandContext& context) {
  const std::string_view address = context.request.optionalText(Key::hostAddress).value_or("");
  context.registry.with([](RegistryState& state) { state.hosts.createHostList(); });
  const VNHost& host = VNHost::currentHost();
  if (isLocalOnlyHost(host) && !isLoopbackName(address)) {
    return context.result("local only");
  }
  return context.result(host.name() + "|" + host.ethernetAddress() + "|" + host.address() + "|" +
                        context.services.sorvaneVersion() + "|" + context.services.platformName());
}

Outcome hostList(CommandContext& context) {
  const std::string_view address = context.request.optionalText(Key::hostAddress).value_or("");
  const bool alternate = NetConnection::aliasForAdress(address).has_value();
  return context.result(context.registry.with([&](RegistryState& state) {
    state.hosts.createBoth();
    return state.hosts.joined(alternate);
  }));
}

}  // namespace sorvane
