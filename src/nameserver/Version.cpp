// The version texts of the product and of the system.
#include "nameserver/Version.h"

#include <string>

#include "nameserver/sorvkeyController.h"
#include "system/ProcessInfo.h"

namespace sorvane {
namespace {

constexpr const char* kRelease = SORVANE_VERSION_RELEASE;
constexpr const char* kRest = "." SORVANE_VERSION_PATCH " (build #" SORVANE_BUILD_NUMBER ")";
constexpr const char* kDate = SORVANE_BUILD_DATE;

}  // namespace

std::string platformNameOf(const ProcessInfo& system) {
  return system.operatingSystemVersionString().value_or("MacOS X 10.?");
}

// The texts are never destroyed: the process may end while another thread reads them.

const std::string& sorvkeyController::sorvaneVersion() {
  static const auto* const text = new std::string(std::string(kRelease) + kRest + " " + kDate);
  return *text;
}

const std::string& sorvkeyController::platformName() {
  static const auto* const text = new std::string(platformNameOf(ProcessInfo::processInfo()));
  return *text;
}

}  // namespace sorvane
