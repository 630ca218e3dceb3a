#include "nameserver/sorvkeyController.h"

#include <atomic>

#include "daemon/Log.h"
#include "platform/Settings.h"
#include "platform/VNHost.h"

namespace sorvane {
namespace {

std::atomic<sorvkeyController*> instance = nullptr;

HostFacts factsOf(const VNHost& host) {
  return {.name = host.name(),
          .address = host.address(),
          .ethernetAddress = host.ethernetAddress(),
          .hasOnlyLoopbackAddress = host.address() == "127.0.0.1" && !host.isDynamic(),
          .basePort = NetConnection::basePortNumber(),
          .takesRemoteControl = Settings::current().remoteControl,
          .takesRemoteRegistration = Settings::current().remoteRegistration,
          .aliasOf = NetConnection::aliasForAdress};
}

}  // namespace

int sorvkey_verbose = 0;

sorvkeyController::sorvkeyController()
    : host_(factsOf(VNHost::currentHost())),
      registry_({.all = Settings::current().maxRegistryBytes}) {
  instance = this;
  openLog();
}

sorvkeyController::~sorvkeyController() {
  sorvkeyController* self = this;
  instance.compare_exchange_strong(self, nullptr);
}

sorvkeyController* sorvkeyController::globalObject() { return instance; }

void sorvkeyController::logMessage(std::optional<std::string_view> text) {
  if (text) {
    printToLog(std::string(*text).c_str());
  }
}

const HostLists::List* sorvkeyController::hostList() {
  return registry_.with([](const RegistryState& state) {
    return state.hosts.hostList ? &*state.hosts.hostList : nullptr;
  });
}

std::int32_t sorvkeyController::sorvexecConnectHost(std::string_view hostName,
                                                    std::string_view ipAddress) {
  registry_.with([&](RegistryState& state) {
    state.changeHosts([&](HostLists& hosts) { hosts.connect(hostName, ipAddress); });
  });
  return 1;
}

}  // namespace sorvane
