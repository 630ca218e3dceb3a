#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "platform/NameServerHostFile.h"
#include "platform/NetConnection.h"
#include "platform/Settings.h"
#include "platform/VNHost.h"
#include "platform/client/FakeResolver.h"
#include "support/ConsoleLines.h"
#include "support/ForkedPart.h"
#include "support/Program.h"
#include "support/ScriptedPeer.h"
#include "support/TestFiles.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

/// A host file of its own, and a name server on this host that answers pings: it must never be
/// taken for one on another computer.
class NameServerHostFile : public testing::Test {
 protected:
  NameServerHostFile() {
    Settings settings;
    settings.basePort = nameServer_.port();
    settings.nameServerHostFile = file().string();
    settings.hostName = "hosta.example.test";
    settings.aliases = {{"10.0.0.5", "outside"}};
    Settings::replaceForTest(settings);
    VNHost::resetForTest();
  }

  [[nodiscard]] std::filesystem::path file() const { return folder_ / "SorvNameServerHost"; }

  bool search() {
    NetConnection connection;
    found_ = false;
    return NetConnection::hostFileSearchForNameServer(connection, &found_);
  }

  [[nodiscard]] int connections() const { return nameServer_.connections(); }

  bool found_ = false;

  ScriptedPeer nameServer_{[](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(frameOfBody(""));
    }
  }};

 private:
  TemporaryFolder folder_;
};

TEST_F(NameServerHostFile, PathIsThatOfTheSettings) {
  EXPECT_EQ(NetConnection::nameserverHostFilePath(), file().string());
}

TEST_F(NameServerHostFile, ThatIsMissingNamesNobody) {
  EXPECT_FALSE(search());
  EXPECT_FALSE(found_);
}

TEST_F(NameServerHostFile, WithoutAHostNamesNobody) {
  for (const char* text : {"", "\n\n", "# hostb\n", "  \t\n   # hostb\n#\n", "\r\n"}) {
    writeFile(file(), text);
    EXPECT_FALSE(search()) << text;
    EXPECT_TRUE(found_) << text;
  }
  EXPECT_EQ(connections(), 0);
}

TEST_F(NameServerHostFile, ThatNamesThisHostIsNotAsked) {
  for (const char* text :
       {"hosta.example.test", "hosta", "localhost", "127.0.0.1", "127.0.0.2", "::1",
        "# the server\n\n  127.0.0.1   # this one\nhostb\n", "127.0.0.1\r\n"}) {
    writeFile(file(), text);
    EXPECT_FALSE(search()) << text;
    EXPECT_TRUE(found_) << text;
  }
  EXPECT_EQ(connections(), 0);
}

TEST_F(NameServerHostFile, ThatNamesThisHostUnderANameOfTheResolversAloneNamesThisHost) {
  resolveAs("alias.test", {"127.0.0.1"});
  writeFile(file(), "alias.test\n");
  EXPECT_FALSE(search());
}

TEST_F(NameServerHostFile, UsesTheFirstWordOfTheFirstLineThatHasOne) {
  resolveAs("first.test", {"127.0.0.1"});
  writeFile(file(), "# comment\n\n \tfirst.test second.test\nthird.test\n");
  EXPECT_FALSE(search());
  EXPECT_TRUE(nameServer_.accepts(1)) << "first.test was not tried";
  EXPECT_EQ(connections(), 1);
}

TEST_F(NameServerHostFile, ThatNamesAnUnknownHostNamesNobody) {
  resolveAs("nowhere.test", {});
  writeFile(file(), "nowhere.test\n");
  EXPECT_FALSE(search());
  EXPECT_TRUE(found_);
}

TEST_F(NameServerHostFile, ThatCannotBeReadNamesNobodyAndCostsAConsoleLine) {
  const auto searchOnce = [this](const char* what) {
    const PartEnd part = outputOfPart([this] {
      EXPECT_FALSE(search());
      EXPECT_TRUE(found_);
    });
    EXPECT_EQ(part.status, 0) << what << " " << part.output;
    EXPECT_EQ(withoutProgramName(part.errors),
              "name server host file " + file().string() + " cannot be read\n")
        << what;
    std::filesystem::remove(file());
  };
  std::filesystem::create_directory(file());
  searchOnce("a folder");
  ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
  searchOnce("a pipe without a writer");
  writeFile(file(), "hostb\n" + std::string(16 << 20, '#'));
  searchOnce("more than 16 MiB");
}

TEST_F(NameServerHostFile, IsReadWithoutAskingItsHost) {
  const auto read = [this] { return readNameServerHostFile(file().string()); };
  EXPECT_FALSE(read().exists);
  EXPECT_EQ(read().failure, "");
  writeFile(file(), "# the server\n\n hostb # here\n");
  EXPECT_TRUE(read().exists);
  EXPECT_EQ(read().host, "hostb");
  EXPECT_EQ(read().failure, "");
  std::filesystem::remove(file());
  std::filesystem::create_directory(file());
  EXPECT_TRUE(read().exists);
  EXPECT_EQ(read().host, "");
  EXPECT_EQ(read().failure, "it is no plain file");
  EXPECT_EQ(connections(), 0);
}

TEST_F(NameServerHostFile, InAFolderThatThisUserMayNotEnterTellsTheReason) {
  const TemporaryFolder closed;
  const std::string path = (closed / "SorvNameServerHost").string();
  writeFile(path, "hostb\n");
  std::filesystem::permissions(closed.path(), std::filesystem::perms::none);
  inOwnProcess([&] {
    ASSERT_TRUE(geteuid() != 0 || setuid(65001) == 0);
    const auto file = readNameServerHostFile(path);
    EXPECT_FALSE(file.exists);
    EXPECT_EQ(file.host, "");
    EXPECT_EQ(file.failure, "Permission denied");
  });
  std::filesystem::permissions(closed.path(), std::filesystem::perms::owner_all);
}

TEST_F(NameServerHostFile, MayBeSearchedWithoutAskingWhetherItIsThere) {
  NetConnection connection;
  EXPECT_FALSE(NetConnection::hostFileSearchForNameServer(connection, nullptr));
}

TEST_F(NameServerHostFile, AliasesAreThoseOfTheSettings) {
  EXPECT_EQ(NetConnection::aliasForAdress("10.0.0.5"), "outside");
  EXPECT_EQ(NetConnection::aliasForAdress("10.0.0.50"), std::nullopt);
  EXPECT_EQ(NetConnection::aliasForAdress(""), std::nullopt);
}

}  // namespace
}  // namespace sorvane::test
