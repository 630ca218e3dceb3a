#include "platform/VNGlobalPath.h"

#include "platform/Settings.h"

namespace sorvane {

const std::string& VNGlobalPath::sorvanePath() { return Settings::current().installationDirectory; }

const std::string& VNGlobalPath::serverConfigFilePath() {
  return Settings::current().serverConfigDirectory;
}

const std::string& VNGlobalPath::sorvaneUserFilePath() {
  return Settings::current().userPreferenceFile;
}

}  // namespace sorvane
