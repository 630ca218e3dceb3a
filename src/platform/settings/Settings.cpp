#include "platform/Settings.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/ProgramFile.h"
#include "platform/PropertyList.h"
#include "platform/settings/SettingsFile.h"
#include "platform/settings/SettingsTable.h"

namespace sorvane {
namespace {

constexpr const char* kSystemFile = "/etc/sorvane/sorvane.conf";

std::string inFolder(const std::string& folder, const char* name) {
  return (std::filesystem::path(folder) / name).string();
}

std::string parentFolder(const std::string& folder) {
  return std::filesystem::path(folder).parent_path().string();
}

void setDefault(std::string& setting, const std::string& value) {
  if (setting.empty()) {
    setting = value;
  }
}

void fillInDefaults(Settings& settings, const std::string& folderOfExecutable) {
  setDefault(settings.installationDirectory, parentFolder(folderOfExecutable));
  setDefault(settings.serverConfigDirectory, inFolder(settings.installationDirectory, "Config"));
  setDefault(settings.userPreferenceFile,
             inFolder(settings.installationDirectory, "Users/SorvPreferences"));
  setDefault(settings.nameServerHostFile,
             inFolder(settings.serverConfigDirectory, "SorvNameServerHost"));
  setDefault(settings.lockDirectory, defaultLockDirectory());
}

std::string placeIn(const char* file, int line) {
  return file + (":" + std::to_string(line) + ": ");
}

/// Reads one file. Raises NSException for the first fault, with its place in the file.
class FileReading {
 public:
  FileReading(const char* file, SettingsReading& reading) : file_(file), reading_(reading) {}

  void run() {
    const std::string text = content();
    const PropertyList list = parse(text);
    if (list.dictionary() == nullptr) {
      fail(1, "the settings are no dictionary");
    }
    const auto lines = topLevelKeyLines(text);
    for (const auto& [key, value] : *list.dictionary()) {
      apply(key, value, lines.at(key));
    }
  }

 private:
  [[nodiscard]] std::string content() const {
    try {
      return readSettingsFile(file_);
    } catch (const NSException& reason) {
      fail(1, reason.what());
    }
  }

  [[nodiscard]] PropertyList parse(const std::string& text) const {
    try {
      return PropertyList::parse(text);
    } catch (const PropertyListError& error) {
      fail(error.line, error.reason + " (column " + std::to_string(error.column) + ")");
    }
  }

  void apply(const std::string& key, const PropertyList& value, int line) {
    try {
      const bool known = applySetting(reading_.settings, key, value);
      (known ? reading_.lines : reading_.unknown).emplace(key, line);
    } catch (const NSException& reason) {
      fail(line, key + ": " + reason.what());
    }
  }

  [[noreturn]] void fail(int line, const std::string& reason) const {
    throw NSException(placeIn(file_, line) + reason);
  }

  const char* const file_;
  SettingsReading& reading_;
};

/// The settings that `current` returns. Settings that were replaced are kept, because somebody may
/// still refer to them.
class CurrentSettings {
 public:
  const Settings& get() {
    if (const Settings* settings = current_.load(std::memory_order_acquire)) {
      return *settings;
    }
    const std::lock_guard<std::mutex> hold(mutex_);
    if (current_.load(std::memory_order_relaxed) == nullptr) {
      keepLocked(readOrDefaults());
    }
    return *current_.load(std::memory_order_relaxed);
  }

  void endProcessOnBadFile() { endsProcess_.store(true, std::memory_order_relaxed); }

  void replace(Settings settings) {
    const std::lock_guard<std::mutex> hold(mutex_);
    keepLocked(std::move(settings));
  }

 private:
  [[nodiscard]] Settings readOrDefaults() const {
    try {
      return Settings::readForThisProcess();
    } catch (const NSException& error) {
      consoleLine(error.what());
      if (endsProcess_.load(std::memory_order_relaxed)) {
        endProcess();
      }
      return Settings::read(nullptr, executableFolder());
    }
  }

  void keepLocked(Settings settings) {
    kept_.push_back(std::make_unique<Settings>(std::move(settings)));
    current_.store(kept_.back().get(), std::memory_order_release);
  }

  std::atomic<bool> endsProcess_{false};
  std::atomic<const Settings*> current_{nullptr};
  std::mutex mutex_;
  std::vector<std::unique_ptr<const Settings>> kept_;  // guarded by mutex_
};

// Never destroyed: a thread may read settings while the process ends.
CurrentSettings& currentSettings() {
  static auto* settings = new CurrentSettings;
  return *settings;
}

}  // namespace

std::string executableFolder() {
  const std::string& file = programFile();
  return file.empty() ? "/" : file.substr(0, std::max<std::size_t>(file.rfind('/'), 1));
}

const Settings& Settings::current() { return currentSettings().get(); }

void Settings::endProcessOnBadFile() { currentSettings().endProcessOnBadFile(); }

std::vector<std::string> Settings::filesFor(const std::string& executableFolder) {
  return {inFolder(parentFolder(executableFolder), "etc/sorvane.conf"), kSystemFile};
}

bool Settings::fileExists(const std::string& path) { return settingsFileExists(path.c_str()); }

Settings Settings::readForThisProcess() {
  const std::string folder = executableFolder();
  for (const std::string& file : filesFor(folder)) {
    if (fileExists(file)) {
      return read(file.c_str(), folder);
    }
  }
  return read(nullptr, folder);
}

SettingsReading Settings::look(const char* file, const std::string& executableFolder) {
  SettingsReading reading;
  if (file != nullptr) {
    try {
      FileReading(file, reading).run();
    } catch (const NSException& fault) {
      reading.settings = {};
      reading.fault = fault.what();
    }
  }
  fillInDefaults(reading.settings, executableFolder);
  return reading;
}

Settings Settings::read(const char* file, const std::string& executableFolder) {
  SettingsReading reading = look(file, executableFolder);
  for (const auto& [key, line] : reading.unknown) {
    consoleLine(placeIn(file, line) + "the unknown setting " + describeString(key) + " is ignored");
  }
  if (reading.fault) {
    throw NSException(*reading.fault);
  }
  return std::move(reading.settings);
}

void Settings::replace(Settings settings) { currentSettings().replace(std::move(settings)); }

}  // namespace sorvane
