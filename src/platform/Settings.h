// The settings of a program of the product, read once from one text property list.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/IPNetwork.h"

namespace sorvane {

struct SettingsReading;

/// The values of the settings file, with defaults for those that are not set. The file is
/// `<folder of the executable>/../etc/sorvane.conf`, or if that does not exist,
/// `/etc/sorvane/sorvane.conf`. No environment variable is read.
struct Settings {
  int basePort = 20221;               ///< 2 to 65534
  std::string installationDirectory;  ///< default: parent of the executable's folder
  std::string serverConfigDirectory;  ///< default: <installation>/Config
  std::string userPreferenceFile;     ///< default: <installation>/Users/SorvPreferences
  std::string nameServerHostFile;     ///< default: <server config>/SorvNameServerHost
  std::string lockDirectory;          ///< default: /run/lock where writable, else /tmp
  bool localAccessOnly = false;
  bool bonjourDisabled = false;
  std::optional<bool> dynamicAddress;                       ///< nullopt: AUTO, the system decides
  std::optional<std::string> hostName;                      ///< nullopt: that of the system
  std::optional<std::string> address;                       ///< nullopt: that of the system
  std::optional<std::string> ethernetAddress;               ///< nullopt: that of the system
  std::map<std::string, std::string, std::less<>> aliases;  ///< an alias by its address
  std::size_t maxMessageBytes = 1048576;                    ///< largest body of a request, bytes
  int maxConnections = 0;  ///< 0: the soft descriptor limit less 32 and 2 for each serving thread
  /// Memory of the requests that are unfinished or wait, all connections together, bytes.
  std::size_t maxUnfinishedBytes = 268435456;
  /// Memory of the replies that clients have not taken, all connections together, bytes.
  std::size_t maxUnsentBytes = 268435456;
  std::uint64_t maxRegistryBytes = 536870912;  ///< what peers have registered, with its costs
  std::chrono::milliseconds partialMessageTimeout{
      30000};       ///< from a frame's first byte to its last
  int threads = 0;  ///< serving threads; 0: one for each core that this process may use
  std::vector<IPNetwork> allowedNetworks;  ///< who may connect; empty: everyone
  bool remoteControl = true;               ///< other machines may end the process
  bool remoteRegistration = true;         ///< other machines may change what is registered and kept
  std::int64_t maxLogBytes = 1073741824;  ///< largest size of the log; 0: no limit
  bool surviveCrashes = false;            ///< a second process keeps watch over the one that serves

  /// Returns the settings of this process. The first call reads them. If the file cannot be read or
  /// parsed, or if a value makes no sense, that costs one console line with file, line and reason,
  /// and all defaults hold. An unknown key causes one console line. Any thread.
  [[nodiscard]] static const Settings& current();

  /// From now on, a bad file ends the process with status 0 after its console line. For programs
  /// that must not serve, or be used, with settings that were not meant. Call it before `current`.
  static void endProcessOnBadFile();

  /// Reads the settings of this process as `current` does, but raises NSException if the file is
  /// bad.
  [[nodiscard]] static Settings readForThisProcess();

  /// Returns the files that a program in `executableFolder` looks for, in this order. It reads the
  /// first one that exists, and no other.
  [[nodiscard]] static std::vector<std::string> filesFor(const std::string& executableFolder);
  /// Returns true if there is a settings file at `path`, readable or not.
  [[nodiscard]] static bool fileExists(const std::string& path);

  /// Reads `file` (null: no file) for an executable in `executableFolder`. Raises nothing and
  /// writes nothing to the console: the faults are part of the result.
  [[nodiscard]] static SettingsReading look(const char* file, const std::string& executableFolder);

  /// Reads `file` (null: no file) for an executable in `executableFolder`. Raises NSException with
  /// the text "FILE:LINE: REASON". Reports unknown keys to the console.
  [[nodiscard]] static Settings read(const char* file, const std::string& executableFolder);

  /// Makes `current` return these settings from now on. For programs whose command line overrides a
  /// setting. Call it before other threads run.
  static void replace(Settings settings);
  /// The same, for tests.
  static void replaceForTest(Settings settings) { replace(std::move(settings)); }
};

/// What a settings file says, and what is wrong with it.
struct SettingsReading {
  Settings settings;                                ///< the defaults if there is a fault
  std::map<std::string, int, std::less<>> lines;    ///< the line of each setting in the file
  std::map<std::string, int, std::less<>> unknown;  ///< the line of each key that means nothing
  std::optional<std::string> fault;  ///< "FILE:LINE: REASON" if a program would not use the file
};

/// Returns the folder of the running executable, with links resolved and without a slash at its
/// end. Returns "/" if the system does not tell. Implemented in settings/ExecutableFolderLinux.cpp
/// and settings/ExecutableFolderMacos.cpp.
[[nodiscard]] std::string executableFolder();

}  // namespace sorvane
