// The name server daemon. The first word of the command line selects how it starts.
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "daemon/Arguments.h"
#include "daemon/CommandLine.h"
#include "daemon/ProcessSetup.h"
#include "daemon/ServiceManager.h"
#include "daemon/Succession.h"
#include "daemon/Watch.h"
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/Settings.h"
#include "platform/SharedDescriptors.h"
#include "platform/StandardStreams.h"
#include "platform/VNFileLock.h"

namespace {

using namespace sorvane;

void continueOrStartAnew(sorvkeyController& controller, bool verbose,
                         std::unique_ptr<MappedFile> kept) {
  try {
    controller.continueConnection(verbose, std::move(kept));
  } catch (const std::exception& fault) {
    consoleLine(std::string("the name server starts anew: ") + fault.what());
    startAnew();
  }
}

/// Serves on this thread until the process ends. `lock` is the process lock if it has been taken.
/// `kept` is what the program before has handed over, if there was one.
[[noreturn]] void serve(StartMode mode, std::shared_ptr<VNFileLock> lock,
                        std::unique_ptr<MappedFile> kept) {
  sorvkeyController controller;
  try {
    if (kept == nullptr) {
      controller.setProcessLock(std::move(lock));
      controller.runConnection(mode == StartMode::verbose);
    } else {
      continueOrStartAnew(controller, mode == StartMode::verbose, std::move(kept));
    }
  } catch (const std::exception& failure) {
    const std::string line = std::string("the name server cannot serve: ") + failure.what();
    consoleLine(line);
    sorvkeyController::logMessage(line);
  }
  endProcess();
}

/// Serves in a second process, over which this one keeps watch. Returns only if another process has
/// the process lock, or if nobody can take it.
void serveWatched(StartMode mode) {
  // The watching process takes it, so that it is held while no process serves.
  const auto lock = VNFileLock::fileLockWithSorvaneProcessName("sorvinfo");
  if (!lock->obtainLock()) {
    consoleLine("SurviveCrashes is not available: the process lock cannot be had");
    return;
  }
  raiseResourceLimits();
  watchOver([&](const ServingStart& start) {
    if (start.goesOn) {
      closeDescriptorsExcept(start.ownDescriptors);
    }
    serve(mode, lock, nullptr);
  });
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
  std::unique_ptr<MappedFile> kept = takeKept();
  if (mode == StartMode::detached && kept == nullptr) {
    detach();
  }
  ignoreSignalsOfFailedWrites();
  // A program that goes on with what was kept goes on alone until the next start.
  if (Settings::current().surviveCrashes && kept == nullptr) {
    serveWatched(mode);
  }
  serve(mode, nullptr, std::move(kept));
}
