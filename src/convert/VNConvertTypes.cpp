// The settings: loaded once, by whoever needs them first.
#include "convert/VNConvertTypes.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>

#include "convert/Calendar.h"
#include "defaults/SSDefaults.h"

namespace sorvane {
namespace {

// Set after the settings are complete. A thread that sees it set may read them without the lock.
std::atomic<bool> preferencesSet = false;
DisplaySettings displaySettings;

std::mutex loading;  // guards the two variables below, and all writing of the two above
bool directLoadFlag = false;
char VNserverHostName[200] = "";

DisplaySettings storedSettings() {
  const std::shared_ptr<SSDefaults> store =
      directLoadFlag ? SSDefaults::newDirectLoad() : SSDefaults::newForHost(VNserverHostName);
  return readDisplaySettings(*store);
}

void loadLocked() {
  initDateTime();
  displaySettings = storedSettings();
  preferencesSet.store(true, std::memory_order_release);
}

}  // namespace

void VNConvertTypes::initDefaults() {
  const std::lock_guard<std::mutex> hold(loading);
  loadLocked();
}

const DisplaySettings& VNConvertTypes::settings() {
  if (!preferencesSet.load(std::memory_order_acquire)) {
    const std::lock_guard<std::mutex> hold(loading);
    if (!preferencesSet.load(std::memory_order_relaxed)) {
      loadLocked();
    }
  }
  return displaySettings;
}

void VNConvertTypes::setDefaultHost(const char* name) {
  const std::lock_guard<std::mutex> hold(loading);
  if (std::strcmp(name, VNserverHostName) == 0) {
    return;
  }
  const std::size_t length = std::string_view(name).substr(0, sizeof(VNserverHostName) - 1).size();
  std::memmove(VNserverHostName, name, length);
  VNserverHostName[length] = '\0';
  directLoadFlag = false;
  preferencesSet.store(false, std::memory_order_relaxed);
}

void VNConvertTypes::setDirectLoad() {
  const std::lock_guard<std::mutex> hold(loading);
  directLoadFlag = true;
}

void VNConvertTypes::useSettingsForTest(const DisplaySettings& settings) {
  const std::lock_guard<std::mutex> hold(loading);
  displaySettings = settings;
  preferencesSet.store(true, std::memory_order_release);
}

void VNConvertTypes::resetForTest() {
  const std::lock_guard<std::mutex> hold(loading);
  displaySettings = DisplaySettings{};
  directLoadFlag = false;
  VNserverHostName[0] = '\0';
  preferencesSet.store(false, std::memory_order_relaxed);
}

}  // namespace sorvane
