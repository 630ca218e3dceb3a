// Where the product's files are.
#pragma once

#include <string>

namespace sorvane {

/// The paths come from the settings and live as long as the process. Any thread.
class VNGlobalPath {
 public:
  /// The installation directory; the log is in its folder "Logs".
  [[nodiscard]] static const std::string& sorvanePath();
  /// The server configuration directory; it holds "SorvDefaults".
  [[nodiscard]] static const std::string& serverConfigFilePath();
  /// The user preference file of the info server.
  [[nodiscard]] static const std::string& sorvaneUserFilePath();
};

}  // namespace sorvane
