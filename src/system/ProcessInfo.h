// What the running system says about itself and this process.
#pragma once

#include <optional>
#include <string>

namespace sorvane {

/// The kinds of system whose paths differ. The values are the platform's own numbers.
enum class OperatingSystem { NSWindowsNT = 1, NSMach = 5 };

/// Asked by the path functions and by VN_hostName and VN_processID; a test puts its own in place.
class ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;

  /// The object in force. Any thread.
  [[nodiscard]] static const ProcessInfo& processInfo();
  /// Answers `fake` from `processInfo` from now on; null puts the system's back. The caller keeps
  /// `fake` alive. For tests.
  static void replaceForTest(const ProcessInfo* fake);

  // ---- System, host and process (ProcessInfo.cpp)

  [[nodiscard]] virtual OperatingSystem operatingSystem() const;

  /// The system's own name of this host, settings left out; empty when it has none.
  [[nodiscard]] virtual std::string hostName() const;

  /// A text that no other process ever has: `hostName` as the caller names this host, "_", the
  /// process number, "_", and what sets this call apart.
  [[nodiscard]] virtual std::string globallyUniqueString(const std::string& hostName) const;

  // ---- The version text (OperatingSystemVersion.cpp)

  /// The version of the operating system as text; nothing when it does not tell one.
  [[nodiscard]] virtual std::optional<std::string> operatingSystemVersionString() const;
};

}  // namespace sorvane
