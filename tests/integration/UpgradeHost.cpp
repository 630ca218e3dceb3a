#include "integration/UpgradeHost.h"

#include <gtest/gtest.h>

#include <system_error>
#include <utility>

#include "integration/NetworkNamespace.h"

namespace sorvane::test {

namespace fs = std::filesystem;

UpgradeHost::UpgradeHost() {
  for (const char* each : {"bin", "etc", "lock"}) {
    fs::create_directory(folder_ / each);
  }
  fs::permissions(folder_.path(), fs::perms::all);
  // A symbolic link would lead it to the settings of the place where it was built.
  std::error_code error;
  fs::create_hard_link(builtProgram("sorvctl"), toolPath(), error);
  if (error) {
    fs::copy_file(builtProgram("sorvctl"), toolPath());
  }
  looksForLockIn(lock().parent_path());
}

void UpgradeHost::looksForLockIn(const fs::path& folder) const {
  writeFile(folder_ / "etc/sorvane.conf", "{ BasePort = " + std::to_string(ports_.base()) +
                                              "; LockDirectory = \"" + folder.string() + "\"; }\n");
}

std::unique_ptr<Program> UpgradeHost::startsAt(const fs::path& lock, int port,
                                               const std::string& does) {
  const std::vector<std::string> arguments{SORVANE_SOURCE_DIR
                                           "/tests/integration/programs/upgradable_server.py",
                                           lock, std::to_string(port), does};
  auto server = std::make_unique<Program>(systemProgram("python3"), arguments);
  EXPECT_TRUE(server->prints("serves\n")) << server->errors();
  return server;
}

void UpgradeHost::starts(const std::string& does) {
  server_ = startsAt(lock(), ports_.base(), does);
}

Outcome UpgradeHost::tool(std::vector<std::string> arguments) const {
  return run(toolPath(), std::move(arguments));
}

}  // namespace sorvane::test
