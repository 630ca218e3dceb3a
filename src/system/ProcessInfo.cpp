#include "system/ProcessInfo.h"

#include <limits.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace sorvane {
namespace {

std::atomic<const ProcessInfo*> replacement{nullptr};

}  // namespace

const ProcessInfo& ProcessInfo::processInfo() {
  static const auto* const system = new ProcessInfo;  // never destroyed: threads may outlive main
  const ProcessInfo* fake = replacement.load();
  return fake != nullptr ? *fake : *system;
}

OperatingSystem ProcessInfo::operatingSystem() const { return OperatingSystem::NSMach; }

std::string ProcessInfo::hostName() const {
  char name[_POSIX_HOST_NAME_MAX + 1] = "";
  if (gethostname(name, sizeof name - 1) != 0) {
    return {};
  }
  return name;
}

std::string ProcessInfo::globallyUniqueString(const std::string& hostName) const {
  static std::atomic<unsigned> calls{0};
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return hostName + "_" + std::to_string(getpid()) + "_" + std::to_string(now.tv_sec) + "." +
         std::to_string(now.tv_nsec) + "_" + std::to_string(calls++);
}

void ProcessInfo::replaceForTest(const ProcessInfo* fake) { replacement = fake; }

}  // namespace sorvane
