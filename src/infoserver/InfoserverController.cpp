#include "infoserver/InfoserverController.h"

#include <memory>
#include <mutex>
#include <utility>

#include "infoserver/PreferenceCommands.h"
#include "platform/NSException.h"
#include "platform/Settings.h"
#include "platform/VNGlobalPath.h"
#include "registry/PortDescriptor.h"

namespace sorvane {
namespace {

std::atomic<InfoserverController*> instance = nullptr;

}  // namespace

InfoserverController* InfoserverController::globalObject() { return instance; }

InfoserverController::InfoserverController()
    : InfoserverController(VNGlobalPath::sorvaneUserFilePath()) {}

InfoserverController::InfoserverController(std::string preferenceFile)
    : remoteRegistration_(Settings::current().remoteRegistration) {
  instance = this;
  userPreferences_.emplace(std::move(preferenceFile));
}

InfoserverController::InfoserverController(KeptReader& kept)
    : remoteRegistration_(Settings::current().remoteRegistration) {
  instance = this;
  userPreferences_.emplace(VNGlobalPath::sorvaneUserFilePath(), kept);
}

void InfoserverController::keep(KeptWriter& writer) const {
  const auto& [remoteRegistration, commLock, raisedRequests, verboseMode, userPreferences] = *this;
  userPreferences->keep(writer);
}

InfoserverController::~InfoserverController() {
  InfoserverController* self = this;
  instance.compare_exchange_strong(self, nullptr);
}

void InfoserverController::runConnection(bool verbose) { verboseMode_ = verbose; }

Reply InfoserverController::deliverCommunication(const Message& request, NetConnection& sender) {
  const std::lock_guard hold(commLock_);
  try {
    return deliverLockedCommunication(request, sender);
  } catch (const NSException&) {
    if (verboseMode_) {
      raisedRequests_.line("An exception was detected.\n");
    }
    return Reply::written();
  }
}

Reply InfoserverController::deliverLockedCommunication(const Message& request,
                                                       NetConnection& sender) {
  if (PortDescriptor* record = sender.context<PortDescriptor>()) {
    record->createInfo();
  }
  PreferenceRequest preferenceRequest{*userPreferences_, request, sender.replyWriter(),
                                      remoteRegistration_ || sender.isFromThisMachine()};
  return handlePreferenceRequest(preferenceRequest);
}

void InfoserverController::endCommunication(NetConnection& connection) {
  if (const PortDescriptor* const record = connection.context<PortDescriptor>()) {
    (void)record->info();  // looked up and left alone: nothing in it outlives its connection
  }
  // The record is not kept until then: a disk that hangs must not keep what has ended in memory.
  NetConnection::performWaiting(Disk::preferences,
                                [this] { const std::lock_guard hold(commLock_); });
}

}  // namespace sorvane
