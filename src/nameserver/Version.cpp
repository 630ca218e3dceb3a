// The version texts of the product and of the system.
#include "nameserver/Version.h"

#include <string>

#include "nameserver/sorvkeyController.h"
#include "platform/ProductVersion.h"
#include "system/ProcessInfo.h"

namespace sorvane {

std::string platformNameOf(const ProcessInfo& system) {
  return system.operatingSystemVersionString().value_or("MacOS X 10.?");
}

const std::string& sorvkeyController::sorvaneVersion() { return productVersion(); }

const std::string& sorvkeyController::platformName() {
  // Never destroyed: the process may end while another thread reads it.
  static const auto* const text = new std::string(platformNameOf(ProcessInfo::processInfo()));
  return *text;
}

}  // namespace sorvane
