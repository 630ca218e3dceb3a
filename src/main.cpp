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
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/Settings.h"
#include "platform/StandardStreams.h"

namespace {

void continueOrStartAnew(sorvane::sorvkeyController& controller, bool verbose,
                         std::unique_ptr<sorvane::MappedFile> kept) {
  try {
    controller.continueConnection(verbose, std::move(kept));
  } catch (const std::exception& fault) {
    sorvane::consoleLine(std::string("the name server starts anew: ") + fault.what());
    sorvane::startAnew();
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace sorvane;
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
  sorvkeyController controller;
  try {
    if (kept == nullptr) {
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
