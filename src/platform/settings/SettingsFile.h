// What the settings ask of the file system.
#pragma once

#include <string>

namespace sorvane {

/// The content of a settings file. Raises NSException with the reason when it cannot be read, is
/// no plain file, or is longer than a property list may be.
[[nodiscard]] std::string readSettingsFile(const char* path);

/// True when a settings file is there, readable or not.
[[nodiscard]] bool settingsFileExists(const char* path);

/// The folder of the process lock when the settings name none.
[[nodiscard]] std::string defaultLockDirectory();

}  // namespace sorvane
