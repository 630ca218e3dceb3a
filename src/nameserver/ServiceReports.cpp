// What the service manager is told of this process.
#include <atomic>
#include <cstddef>
#include <new>
#include <thread>

#include "daemon/ServiceManager.h"
#include "nameserver/sorvkeyController.h"
#include "platform/EndProcess.h"
#include "platform/RunningServer.h"

namespace sorvane {
namespace {

/// Returns how many names clients have registered.
std::size_t namesOfClients(const Registry& registry) {
  std::size_t names = registry.portCount();
  for (const char* const own : {"VN_infoserver", "VN_nameserver"}) {
    names -= registry.port(own) != nullptr && names > 0 ? 1 : 0;
  }
  return names;
}

}  // namespace

void sorvkeyController::servingBegins(RunningServer& server) {
  endContinuation();
  if (survival_ != nullptr) {
    beginSurviving(server);
  }
  std::thread([this, &server] { takeUpgrades(server); }).detach();
  ServiceManager* const manager = serviceManager();
  if (manager == nullptr) {
    return;
  }
  setLastAct([] { serviceManager()->tellStopping(); });
  std::thread([this, &server, manager] { reportTo(*manager, server); }).detach();
}

// Each report is the end of a round through the threads that serve, and through the locks that they
// need. If one of them hangs, there is no report. The requests pay nothing for that: no thread
// keeps a record of its turns.
void sorvkeyController::reportTo(ServiceManager& manager, RunningServer& server) {
  processLockIsTaken_.wait(false);
  ServiceManager::Counts counts;
  std::atomic<bool> isBack{true};
  const RunningServer::Round round{[&] {
                                     waitForServerLock();
                                     counts.names = namesOfClients(registry_);
                                     serverLock_.unlock();
                                   },
                                   [&] {
                                     counts.connections = server.connections();
                                     try {
                                       manager.tellServing(counts, ServiceManager::Clock::now());
                                     } catch (const std::bad_alloc&) {
                                       // There is a next time.
                                     }
                                     isBack = true;
                                   }};
  for (;;) {
    if (isBack.exchange(false)) {
      try {
        server.goRound(round);
      } catch (const std::bad_alloc&) {
        isBack = true;
      }
    }
    std::this_thread::sleep_for(manager.interval());
  }
}

}  // namespace sorvane
