#include "platform/Settings.h"

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/Console.h"
#include "platform/EndProcess.h"
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

/// Reads one file into the settings. Each fault is reported with its place in the file.
class FileReading {
 public:
  FileReading(const char* file, Settings& settings) : file_(file), settings_(settings) {}

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
      if (!applySetting(settings_, key, value)) {
        consoleLine(place(line) + "the unknown setting " + describeString(key) + " is ignored");
      }
    } catch (const NSException& reason) {
      fail(line, key + ": " + reason.what());
    }
  }

  [[nodiscard]] std::string place(int line) const {
    return file_ + (":" + std::to_string(line) + ": ");
  }

  [[noreturn]] void fail(int line, const std::string& reason) const {
    throw NSException(place(line) + reason);
  }

  const char* const file_;
  Settings& settings_;
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

const Settings& Settings::current() { return currentSettings().get(); }

void Settings::endProcessOnBadFile() { currentSettings().endProcessOnBadFile(); }

Settings Settings::readForThisProcess() {
  const std::string folder = executableFolder();
  const std::string ownFile = inFolder(parentFolder(folder), "etc/sorvane.conf");
  for (const char* file : {ownFile.c_str(), kSystemFile}) {
    if (settingsFileExists(file)) {
      return read(file, folder);
    }
  }
  return read(nullptr, folder);
}

Settings Settings::read(const char* file, const std::string& executableFolder) {
  Settings settings;
  if (file != nullptr) {
    FileReading(file, settings).run();
  }
  fillInDefaults(settings, executableFolder);
  return settings;
}

void Settings::replace(Settings settings) { currentSettings().replace(std::move(settings)); }

}  // namespace sorvane
