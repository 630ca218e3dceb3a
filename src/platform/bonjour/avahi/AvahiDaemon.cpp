#include <avahi-client/client.h>
#include <avahi-common/error.h>

#include <future>
#include <memory>
#include <system_error>
#include <thread>

#include "platform/BonjourDaemon.h"
#include "platform/bonjour/avahi/AvahiWatches.h"

namespace sorvane {
namespace {

using State = BonjourDaemon::State;

std::string textOf(const char* text) { return text != nullptr ? text : ""; }

BonjourDaemon ask() {
  BonjourDaemon daemon;
  const AvahiWatches watches;  // lives longer than the client, and is never run
  int error = 0;
  // The library insists on a function that is told of changes.
  const auto ignore = [](AvahiClient*, AvahiClientState, void*) {};
  const std::unique_ptr<AvahiClient, decltype(&avahi_client_free)> client(
      avahi_client_new(watches.functions(), AVAHI_CLIENT_NO_FAIL, +ignore, nullptr, &error),
      &avahi_client_free);
  // Despite its flag, the library waits only for the daemon, not for D-Bus.
  if (client == nullptr) {
    daemon.state = State::noBus;
    return daemon;
  }
  if (avahi_client_get_state(client.get()) == AVAHI_CLIENT_CONNECTING) {
    daemon.state = State::notRunning;
    return daemon;
  }
  daemon.state = State::running;
  daemon.hostName = textOf(avahi_client_get_host_name(client.get()));
  daemon.version = textOf(avahi_client_get_version_string(client.get()));
  return daemon;
}

}  // namespace

BonjourDaemon askBonjourDaemon(std::chrono::steady_clock::time_point deadline) {
  std::packaged_task<BonjourDaemon()> task(ask);
  std::future<BonjourDaemon> answer = task.get_future();
  try {
    std::thread(std::move(task)).detach();
  } catch (const std::system_error& error) {
    return {State::silent, error.what(), {}, {}};
  }
  if (answer.wait_until(deadline) != std::future_status::ready) {
    return {State::silent, "it does not reply in time", {}, {}};
  }
  return answer.get();
}

}  // namespace sorvane
