// The name server daemon. The first word of the command line selects how it starts.
#include <exception>
#include <string>

#include "daemon/Arguments.h"
#include "daemon/CommandLine.h"
#include "daemon/ProcessSetup.h"
#include "daemon/ServiceManager.h"
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/Settings.h"
#include "platform/StandardStreams.h"

int main(int argc, char** argv) {
  using namespace sorvane;
  openClosedStandardStreams();
  keepFilesFromOthers();
  recordArguments(argc, argv);
  takeServiceManager();
  Settings::endProcessOnBadFile();
  const StartMode mode = startMode(VN_parameter(1));
  if (mode == StartMode::stopAll) {
    stopAllNameServers();
  }
  if (mode == StartMode::detached) {
    detach();
  }
  ignoreSignalsOfFailedWrites();
  sorvkeyController controller;
  try {
    controller.runConnection(mode == StartMode::verbose);
  } catch (const std::exception& failure) {
    const std::string line = std::string("the name server cannot serve: ") + failure.what();
    consoleLine(line);
    sorvkeyController::logMessage(line);
  }
  endProcess();
}
