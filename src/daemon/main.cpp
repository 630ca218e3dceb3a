// The name server daemon: its first word on the command line decides how it starts.
#include "daemon/Arguments.h"
#include "daemon/CommandLine.h"
#include "daemon/ProcessSetup.h"
#include "nameserver/sorvkeyController.h"
#include "platform/EndProcess.h"

int main(int argc, char** argv) {
  using namespace sorvane;
  recordArguments(argc, argv);
  const StartMode mode = startMode(VN_parameter(1));
  if (mode == StartMode::stopAll) {
    stopAllNameServers();
  }
  if (mode == StartMode::detached) {
    detach();
  }
  ignoreSignalsOfFailedWrites();
  sorvkeyController controller;
  controller.runConnection(mode == StartMode::verbose);
  endProcess();
}
