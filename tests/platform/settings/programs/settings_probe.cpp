// Prints what the settings of its own process are; a test copies it into a tree of its own. With an
// argument, a bad settings file ends it.
#include <cstdio>

#include "platform/Settings.h"
#include "platform/VNGlobalPath.h"

int main(int count, char**) {
  using sorvane::VNGlobalPath;
  if (count > 1) {
    sorvane::Settings::endProcessOnBadFile();
  }
  std::printf("port %d\ninstalled in %s\nconfig in %s\npreferences %s\n",
              sorvane::Settings::current().basePort, VNGlobalPath::sorvanePath().c_str(),
              VNGlobalPath::serverConfigFilePath().c_str(),
              VNGlobalPath::sorvaneUserFilePath().c_str());
}
