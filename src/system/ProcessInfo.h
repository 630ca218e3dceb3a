// Facts that the running system reports about itself and about this process.
#pragma once

#include <optional>
#include <string>

namespace sorvane {

/// The kinds of system whose paths differ. The values are the platform's own numbers.
enum class OperatingSystem { NSWindowsNT = 1, NSMach = 5 };

/// The path functions, VN_hostName and VN_processID get their facts here. A test can replace the
/// object.
class ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;

  /// Returns the object in use. Any thread.
  [[nodiscard]] static const ProcessInfo& processInfo();
  /// Makes `processInfo` return `fake` from now on; null restores the system's object. The caller
  /// keeps `fake` alive. For tests.
  static void replaceForTest(const ProcessInfo* fake);

  // ---- System, host and process (ProcessInfo.cpp)

  [[nodiscard]] virtual OperatingSystem operatingSystem() const;

  /// Returns the name that the system gives this host, or an empty text when there is none. The
  /// settings are not read.
  [[nodiscard]] virtual std::string hostName() const;

  /// Returns a text that no other process ever has: `hostName`, "_", the process number, "_", and a
  /// part that differs from call to call. `hostName` is the caller's name for this host.
  [[nodiscard]] virtual std::string globallyUniqueString(const std::string& hostName) const;

  // ---- The version text (OperatingSystemVersion.cpp)

  /// Returns the version of the operating system as text, or nothing when the system reports none.
  [[nodiscard]] virtual std::optional<std::string> operatingSystemVersionString() const;
};

}  // namespace sorvane
