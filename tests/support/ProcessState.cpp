#include "support/ProcessState.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/Console.h"
#include "platform/NetService.h"
#include "platform/Settings.h"
#include "platform/TimeSource.h"
#include "platform/VNHost.h"

namespace sorvane::test {
namespace {

std::vector<void (*)()>& registered() {
  static std::vector<void (*)()> functions;  // here, since registering begins before main
  return functions;
}

/// What the program was started with.
struct Start {
  Start() : mask(umask(0)), folder(std::filesystem::current_path()) {
    umask(mask);
    if (const char* const zone = getenv("TZ")) {
      timeZone = zone;
    }
  }
  mode_t mask;
  std::filesystem::path folder;
  std::optional<std::string> timeZone;
};
const Start start;

}  // namespace

void resetProcessState() {
  for (void (*const reset)() : registered()) {
    reset();
  }
  ServiceDiscovery::replaceForTest(nullptr);
  setConsoleSink(nullptr);
  setTimeSource(nullptr);
  Settings::replaceForTest(Settings());
  VNHost::resetForTest();
  umask(start.mask);
  std::filesystem::current_path(start.folder);
  if (start.timeZone) {
    setenv("TZ", start.timeZone->c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

ResetWithProcessState::ResetWithProcessState(void (*reset)()) { registered().push_back(reset); }

void moveToTimeZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

}  // namespace sorvane::test
