#include "platform/ProductVersion.h"

#include <sstream>

namespace sorvane {
namespace {

constexpr const char* kRelease = SORVANE_VERSION_RELEASE;
constexpr const char* kRest = "." SORVANE_VERSION_PATCH " (build #" SORVANE_BUILD_NUMBER ")";
constexpr const char* kDate = SORVANE_BUILD_DATE;

}  // namespace

const std::string& productVersion() {
  // Never destroyed: the process may end while another thread reads it.
  static const auto* const text = new std::string(std::string(kRelease) + kRest + " " + kDate);
  return *text;
}

BuildDate productBuildDate() {
  BuildDate date;
  char point = 0;
  std::istringstream(kDate) >> date.month >> point >> date.day >> point >> date.year;
  return date;
}

}  // namespace sorvane
