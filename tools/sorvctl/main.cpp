// sorvctl: the command-line client of the name server.
#include "platform/StandardStreams.h"
#include "sorvctl/CommandLine.h"

int main(int count, char** arguments) {
  sorvane::openClosedStandardStreams();
  return sorvctl::runCommandLine(count, arguments);
}
