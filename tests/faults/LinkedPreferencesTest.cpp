// Preferences whose file is a symbolic link, for instance to a disk that is backed up.
#include <errno.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "faults/FailingDaemon.h"
#include "integration/Preferences.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

TEST(LinkedPreferences, StayBehindTheirLinkWhenItCannotBeLookedAt) {
  FailingDaemon daemon;
  Daemon& server = daemon.server();
  const fs::path link = preferenceFile(server);
  const fs::path behind = server.tree() / "behind";
  fs::create_directories(link.parent_path());
  writeFile(behind, "{ }");
  fs::create_symlink(behind, link);
  daemon.start();
  PreferenceClient client(server);
  daemon.countCallsAndFail({Call::linkStatus, 1, EIO});
  client.sets("anna", {{"databases", "db1"}});
  EXPECT_TRUE(daemon.hasFailed());
  daemon.stopCounting();
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_TRUE(server.complains("The preferences could not be written"));
  client.sets("bert", {});
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(preferencesOnDisk(server),
            PropertyList::parse("{ anna = { databases = db1; }; bert = { }; }"));
}

}  // namespace
}  // namespace sorvane::test
