// What becomes of the log and of everyone else while somebody works on the log's file, and on disks
// that are full or read-only.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "faults/Session.h"
#include "integration/Daemon.h"
#include "support/OwnNamespaces.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

class LogOfAServer : public ::testing::Test {
 protected:
  /// A request that is logged; its text must be one that none had before.
  static void raises(const Daemon& server, const std::string& text) {
    RawConnection client = server.rawConnection();
    const auto reply = client.ask(Message({{"findPort", text}}));
    ASSERT_TRUE(reply) << "who raises is not served";
    EXPECT_EQ(reply->kind, 0);
  }
  static void expectService(Daemon& server) {
    ASSERT_TRUE(server.registers("db1"));
    EXPECT_TRUE(server.finds("db1"));
    server.unregisters("db1");
  }
  [[nodiscard]] static bool has(const fs::path& file, const std::string& text) {
    return readFile(file).find(text) != std::string::npos;
  }
  [[nodiscard]] static fs::path logOf(const Daemon& server) {
    return server.tree() / "Logs/infoserver_log";
  }
};

TEST_F(LogOfAServer, ThatIsRemovedOrReplacedGoesOnInTheFileThatIsThere) {
  Daemon server;
  server.start();
  raises(server, "in the first file");
  fs::rename(logOf(server), server.tree() / "Logs/moved");
  raises(server, "in a new file");
  EXPECT_TRUE(has(server.tree() / "Logs/moved", "in the first file"));
  EXPECT_TRUE(has(logOf(server), "in a new file"));
  fs::remove(logOf(server));
  writeFile(logOf(server), "somebody else's line\n");
  raises(server, "in the replaced file");
  EXPECT_TRUE(has(logOf(server), "somebody else's line\n"));
  EXPECT_TRUE(has(logOf(server), "in the replaced file"));
  expectService(server);
}

TEST_F(LogOfAServer, WhereAFolderIsMadeStaysInItsFileUntilTheFolderIsGone) {
  Daemon server;
  server.start();
  const fs::path moved = server.tree() / "Logs/moved";
  raises(server, "before the folder");
  fs::rename(logOf(server), moved);
  fs::create_directory(logOf(server));
  raises(server, "beside the folder");
  EXPECT_TRUE(has(moved, "beside the folder"));
  expectService(server);
  fs::remove(logOf(server));
  raises(server, "after the folder");
  EXPECT_TRUE(has(logOf(server), "after the folder"));
}

TEST_F(LogOfAServer, WhoseFolderIsGoneOrAFileCostsNobodyAnything) {
  Daemon server;
  server.start();
  raises(server, "with a folder");
  fs::remove_all(server.tree() / "Logs");
  raises(server, "without a folder");
  expectService(server);
  writeFile(server.tree() / "Logs", "");
  raises(server, "with a file for a folder");
  expectService(server);
  fs::remove(server.tree() / "Logs");
  fs::create_directory(server.tree() / "Logs");
  raises(server, "with a folder again");
  EXPECT_TRUE(has(logOf(server), "with a folder again"));
}

TEST_F(LogOfAServer, OnAFullDiskCostsItsEntriesAloneAndGoesOnWhenThereIsRoom) {
  inOwnMounts([] {
    Daemon server;
    const fs::path folder = server.tree() / "Logs";
    mountSmallDisk(folder, 64);
    server.start();
    raises(server, "with room");
    fillDisk(folder);
    for (int i = 0; i < 100; ++i) {
      raises(server, "without room " + std::to_string(i) + std::string(1000, '.'));
    }
    expectService(server);
    fs::remove(folder / "filler");
    raises(server, "with room again");
    EXPECT_TRUE(has(logOf(server), "with room\""));
    EXPECT_TRUE(has(logOf(server), "with room again"));
    EXPECT_FALSE(has(logOf(server), "without room 99.")) << "the disk was not full";
  });
}

TEST_F(LogOfAServer, OnAReadOnlyDiskIsNoneAndCostsNobodyAnything) {
  inOwnMounts([] {
    Daemon server;
    mountSmallDisk(server.tree() / "Logs", 64);
    setReadOnly(server.tree() / "Logs", true);
    server.start();
    EXPECT_TRUE(server.complains("Could not open nameserver log file"));
    raises(server, "without a log");
    expectService(server);
  });
}

}  // namespace
}  // namespace sorvane::test
