// What the unit of the name server keeps from it, as far as the kernel can be asked for that
// without a service manager.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "service/UnitFile.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// A host for the confined name server: a root folder with the system's own programs, and with the
/// user and the folders that the package's files for sysusers.d and tmpfiles.d make.
class ConfinedHost {
 public:
  ConfinedHost();

  /// The path outside of a file of this host, such as "/etc/passwd".
  [[nodiscard]] std::filesystem::path operator[](const std::string& path) const {
    return root_.path() / path.substr(1);
  }
  [[nodiscard]] uid_t user() const { return user_; }
  [[nodiscard]] gid_t group() const { return group_; }

  /// Confines the calling process, which has one thread and is root's, to this host as the unit
  /// says. It is the unit's user then. A system call that the unit refuses ends the process. Ends
  /// the process with status 125 if that is not possible. A socket of D-Bus that the environment
  /// names is this host's system bus.
  void confine() const;

  /// The directives of [Service] that are neither carried out here nor the service manager's own
  /// affair.
  [[nodiscard]] static std::vector<std::string> unknownDirectives();

 private:
  void makeMounts() const;

  TemporaryFolder root_;
  std::set<std::string> systemCalls_;
  uid_t user_ = 0;
  gid_t group_ = 0;
};

}  // namespace sorvane::test
