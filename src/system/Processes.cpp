#include "system/Processes.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>

#include "platform/VNHost.h"
#include "system/ProcessInfo.h"
#include "system/SystemLock.h"

namespace sorvane {
namespace {

constexpr int kLongestHostName = 100;

std::mutex globalStringMutex;
/// The text of VN_processID, guarded by the mutex; null before the first call. Never destroyed at
/// exit: threads may outlive main.
const std::string* globalString = nullptr;

std::string nameOfHost() {
  for (const std::string& name :
       {VNHost::currentHost().name(), ProcessInfo::processInfo().hostName()}) {
    if (!name.empty()) {
      return name;
    }
  }
  return "localhost";
}

std::string makeProcessID() {
  char name[kLongestHostName + 1] = "";
  VN_hostName(name, kLongestHostName);
  const std::string unique = ProcessInfo::processInfo().globallyUniqueString(name);
  // The host name may hold "_" itself, so the search for the "_" that ends the process number
  // begins behind the name and its "_".
  return unique.substr(0, unique.find('_', strlen(name) + 1));
}

}  // namespace

void VN_hostName(char* buffer, int length) {
  const std::string name = nameOfHost();
  const auto room = static_cast<std::size_t>(std::max(length, 0));
  const std::size_t copied = name.copy(buffer, room);
  if (copied < room) {
    buffer[copied] = '\0';
  }
}

const char* VN_processID() {
  const std::lock_guard lock(globalStringMutex);
  if (globalString == nullptr) {
    globalString = new std::string(makeProcessID());
  }
  return globalString->c_str();
}

void resetProcessIDForTest() {
  const std::lock_guard lock(globalStringMutex);
  delete globalString;
  globalString = nullptr;
}

void VN_sleep(int seconds) {
  std::this_thread::sleep_until(std::chrono::steady_clock::now() + std::chrono::seconds(seconds));
}

std::shared_ptr<LaunchedTask> QB_launch(const char* path) { return LaunchedTask::launch(path); }

int QB_system(const char* command) {
  const SystemLock lock;
  [[maybe_unused]] const int status = system(command);
  return 0;
}

}  // namespace sorvane
