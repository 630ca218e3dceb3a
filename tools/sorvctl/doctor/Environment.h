// What all checks of the doctor look at: this host, as far as one look shows it.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/IPNetwork.h"
#include "platform/Settings.h"
#include "platform/SystemProcess.h"
#include "platform/TcpPort.h"
#include "platform/VNFileLock.h"
#include "sorvctl/Continuity.h"

namespace sorvctl::doctor {

/// The settings file of this command.
struct SettingsLook {
  std::vector<std::string> candidates;  ///< where a file may be, in the order of reading
  std::string file;                     ///< the one that is read; empty: there is none
  sorvane::SettingsReading reading;

  /// Such as "/etc/sorvane/sorvane.conf", or "no file".
  [[nodiscard]] std::string fileOrNone() const { return file.empty() ? "no file" : file; }
};

/// What came of asking the name server at the base port.
struct ServerAnswer {
  bool connected = false;
  bool answered = false;                   ///< it replied to a ping as a name server does
  std::string failure;                     ///< why it did not, in words
  std::string version;                     ///< empty if it does not tell it
  std::optional<Continuity> continuity{};  ///< nothing if it does not tell it
};

/// Tests make one of their own. Constant while checks run.
struct Environment {
  using Clock = std::chrono::steady_clock;

  SettingsLook settings;
  int basePort = 0;
  std::string version;                        ///< of this command
  std::chrono::system_clock::time_point now;  ///< what the system's clock says
  Clock::time_point deadline;                 ///< when the last check must have ended
  Clock::time_point lastMoment;               ///< when a check that waits must stop waiting

  sorvane::FileLockLook lock;
  std::optional<sorvane::SystemProcess> lockHolder;
  std::optional<sorvane::TcpPortUse> portUse;      ///< nothing: the system does not tell
  std::optional<sorvane::SystemProcess> listener;  ///< on the base port, if it may be known
  ServerAnswer answer;
  /// Those of this host. Nothing: the system does not tell them now.
  std::optional<std::vector<sorvane::IPAddress>> ownAddresses;

  /// The process of the name server: what listens if that is one, otherwise the holder of the lock
  /// if that is one. Null if none is known.
  [[nodiscard]] const sorvane::SystemProcess* server() const;
};

/// Looks at this host. `givenPort` replaces the base port of the settings. All settings of this
/// process are those that were read, from now on. Of the time until `deadline`, two fifths may be
/// spent on an answer of the name server, and the last fifth is for checks that have waited. Takes
/// no lock, registers nothing.
[[nodiscard]] Environment lookAtThisHost(std::optional<int> givenPort,
                                         Environment::Clock::time_point deadline);

/// Looks for the settings file of a program in `executableFolder`, which is the name server's own
/// folder or that of this command.
[[nodiscard]] std::string settingsFileFor(const std::string& executableFolder);

/// True if a process is a name server, as its name or its program tells. On systems that tell
/// neither, true.
[[nodiscard]] bool isNameServer(const sorvane::SystemProcess& process);

/// Such as "python3 (process 4711)".
[[nodiscard]] std::string nameOf(const sorvane::SystemProcess& process);

}  // namespace sorvctl::doctor
