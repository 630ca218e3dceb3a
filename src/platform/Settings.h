// The settings of the framework, read once from one text property list.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace sorvane {

/// What the settings file says, defaults filled in. The file is the first that exists of
/// `<folder of the executable>/../etc/sorvane.conf` and `/etc/sorvane/sorvane.conf`; no environment
/// variable is read.
struct Settings {
  int basePort = 20221;               ///< 2 to 65534
  std::string installationDirectory;  ///< default: parent of the executable's folder
  std::string serverConfigDirectory;  ///< default: <installation>/Config
  std::string userPreferenceFile;     ///< default: <installation>/Users/SorvPreferences
  std::string nameServerHostFile;     ///< default: <server config>/SorvNameServerHost
  std::string lockDirectory;          ///< default: /run/lock where writable, else /tmp
  bool localAccessOnly = false;
  bool bonjourDisabled = false;
  std::optional<bool> dynamicAddress;                       ///< nothing: AUTO, asked of the system
  std::optional<std::string> hostName;                      ///< nothing: asked of the system
  std::optional<std::string> address;                       ///< nothing: asked of the system
  std::optional<std::string> ethernetAddress;               ///< nothing: asked of the system
  std::map<std::string, std::string, std::less<>> aliases;  ///< address to alias
  std::size_t maxMessageBytes = 1048576;  ///< largest body that the server takes, bytes
  int maxConnections = 0;                 ///< 0: the soft descriptor limit less 32
  std::chrono::milliseconds partialMessageTimeout{
      30000};       ///< from a frame's first byte to its last
  int threads = 0;  ///< serving threads; 0: one for each core

  /// The settings of this process, read at the first call. A file that cannot be read or parsed, or
  /// a value that makes no sense, costs one console line with file, line and reason, and ends the
  /// process with status 0. An unknown key costs one console line. Any thread.
  [[nodiscard]] static const Settings& current();

  /// Reads the settings of this process as `current` does, but raises NSException on a bad file.
  [[nodiscard]] static Settings readForThisProcess();

  /// Reads `file` (null: no file) for an executable in `executableFolder`. Raises NSException whose
  /// text is "FILE:LINE: REASON". Unknown keys are reported to the console.
  [[nodiscard]] static Settings read(const char* file, const std::string& executableFolder);

  /// Makes `current` answer these from now on, before other threads run: for programs whose command
  /// line overrides a setting.
  static void replace(Settings settings);
  /// The same, for tests.
  static void replaceForTest(Settings settings) { replace(std::move(settings)); }
};

/// The folder that holds the running executable, links resolved, without a slash at its end.
[[nodiscard]] std::string executableFolder();

}  // namespace sorvane
