// A name server that plays the part of one that is upgraded in place, and sorvctl beside it.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "integration/Daemon.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// A folder with sorvctl, and with settings that name a lock and a port of the test's own.
class UpgradeHost {
 public:
  UpgradeHost();

  /// Starts a server that does this at the signal, as programs/upgradable_server.py describes, and
  /// waits until it serves.
  void starts(const std::string& does);
  /// Starts another one, with another lock and port.
  [[nodiscard]] static std::unique_ptr<Program> startsAt(const std::filesystem::path& lock,
                                                         int port, const std::string& does);
  /// Writes settings of sorvctl in which the lock stands in this folder.
  void looksForLockIn(const std::filesystem::path& folder) const;

  [[nodiscard]] Outcome tool(std::vector<std::string> arguments) const;
  [[nodiscard]] std::filesystem::path toolPath() const { return folder_ / "bin/sorvctl"; }
  [[nodiscard]] std::filesystem::path folder() const { return folder_.path(); }
  [[nodiscard]] std::filesystem::path lock() const { return folder_ / "lock/sorvinfo.lock"; }
  [[nodiscard]] Program& server() const { return *server_; }

 private:
  FreePorts ports_;
  TemporaryFolder folder_;
  std::unique_ptr<Program> server_;
};

}  // namespace sorvane::test
