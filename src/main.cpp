// The name server daemon. The first word of the command line selects how it starts.
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "daemon/Arguments.h"
#include "daemon/CommandLine.h"
#include "daemon/ProcessSetup.h"
#include "daemon/ServiceManager.h"
#include "daemon/Succession.h"
#include "daemon/Watch.h"
#include "nameserver/SingleInstance.h"
#include "nameserver/Survival.h"
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/HandOver.h"
#include "platform/Settings.h"
#include "platform/SharedDescriptors.h"
#include "platform/StandardStreams.h"
#include "platform/SurvivingSockets.h"
#include "platform/VNFileLock.h"

namespace {

using namespace sorvane;

/// Goes on with what an earlier program or process has left. Starts anew if that cannot be.
[[noreturn]] void goOn(sorvkeyController& controller, bool verbose, const ServingStart& start,
                       const SurvivingSockets& sockets) {
  try {
    if (start.handedOver >= 0) {
      auto kept = std::make_unique<MappedFile>(start.handedOver);
      if (start.lastWish == nullptr) {
        const Descriptor file(start.handedOver);  // closed: no other process would go on with it
      }
      controller.continueConnection(verbose, std::move(kept), start.whyHandedBack);
    } else {
      controller.goOnAfterDeath(verbose, sockets);
    }
  } catch (const std::exception& fault) {
    consoleLine(std::string("the name server starts anew: ") + fault.what());
  }
  if (start.lastWish != nullptr) {
    start.lastWish->startAnew();
  }
  startAnew();
}

/// Closes what a process had opened that has died before it could go on with what was handed over.
void closeAllButHandedOver(const ServingStart& start) {
  std::vector<int> kept = internetSockets(openDescriptors());
  kept.insert(kept.end(), start.ownDescriptors.begin(), start.ownDescriptors.end());
  kept.push_back(start.handedOver);
  closeDescriptorsExcept(kept);
}

/// Serves on this thread until the process ends. `survival` is null if no other process goes on
/// when this one dies.
[[noreturn]] void serve(StartMode mode, const ServingStart& start, Survival* survival) {
  SurvivingSockets sockets;
  if (start.goesOn && start.handedOver >= 0) {
    closeAllButHandedOver(start);
  } else if (start.goesOn) {
    sockets = survival->takeSockets(start.ownDescriptors);
  }
  sorvkeyController controller;
  const bool verbose = mode == StartMode::verbose;
  try {
    if (survival != nullptr) {
      controller.surviveCrashes(*survival, *start.lastWish);
    }
    if (start.handedOver >= 0 || start.goesOn) {
      goOn(controller, verbose, start, sockets);
    }
    controller.runConnection(verbose);
  } catch (const std::exception& failure) {
    const std::string line = std::string("the name server cannot serve: ") + failure.what();
    consoleLine(line);
    sorvkeyController::logMessage(line);
  }
  endProcess();
}

/// Returns by which descriptor the program before has held the process lock; negative: by none that
/// is known.
int handedOverLock() {
  try {
    return VNFileLock::descriptorOfHeldLock(kProcessLockName, openDescriptors());
  } catch (const std::system_error&) {
    return -1;  // nobody will keep watch then either
  }
}

/// Serves in a second process, over which this one keeps watch. Returns only if another process has
/// the process lock, or if nobody can take it.
void serveWatched(StartMode mode, int handedOver) {
  raiseResourceLimits();
  auto survival = std::make_unique<Survival>();
  // The watching process takes it, so that it is held while no process serves.
  const auto lock = VNFileLock::fileLockWithSorvaneProcessName(kProcessLockName);
  if (handedOver >= 0) {
    survival->noteLock(handedOverLock());
  } else if (lock->obtainLock()) {
    survival->noteLock(lock->descriptor());
  } else {
    consoleLine("SurviveCrashes is not available: the process lock cannot be had");
    return;
  }
  watchOver({.serve =
                 [&](const ServingStart& start) {
                   serve(mode, start, start.lastWish == nullptr ? nullptr : survival.get());
                 },
             .handOver = handOverFile,
             .afterDeath = [&] { survival->noteDeath(); },
             .beforeNewStart = [&] { survival = survival->anew(); },
             .handedOver = handedOver});
}

}  // namespace

int main(int argc, char** argv) {
  openClosedStandardStreams();
  keepFilesFromOthers();
  recordArguments(argc, argv);
  holdUpgradeSignalBack();
  takeServiceManager();
  Settings::endProcessOnBadFile();
  const StartMode mode = startMode(VN_parameter(1));
  if (mode == StartMode::stopAll) {
    stopAllNameServers();
  }
  if (mode == StartMode::answers) {
    answerWhetherUnderstood(VN_parameter(2));
  }
  ServingStart alone;
  alone.handedOver = takeKept();
  if (mode == StartMode::detached && alone.handedOver < 0) {
    detach();
  }
  ignoreSignalsOfFailedWrites();
  if (Settings::current().surviveCrashes) {
    serveWatched(mode, alone.handedOver);
  }
  serve(mode, alone, nullptr);
}
