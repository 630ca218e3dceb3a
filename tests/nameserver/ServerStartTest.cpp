#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nameserver/NameServer.h"
#include "nameserver/ShellWord.h"
#include "platform/bonjour/scripted/ScriptedServiceDiscovery.h"
#include "support/ScriptedPeer.h"

namespace sorvane::test {
namespace {

class ServerStart : public NameServerTest {
 protected:
  ServerStart() { ServiceDiscovery::replaceForTest(&discovery_); }

  std::size_t servicesPublished() {
    server_.publish();
    discovery_.runLoop().turn();
    return discovery_.services.size();
  }
  mode_t modeOf(const std::filesystem::path& file) {
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    return status.st_mode & 0777;
  }

  // A publisher is nobody's and lives as long as the process: so must what it publishes through.
  static ScriptedServiceDiscovery& everlastingDiscovery() {
    static auto* const all = new std::vector<std::unique_ptr<ScriptedServiceDiscovery>>;
    return *all->emplace_back(std::make_unique<ScriptedServiceDiscovery>());
  }

  ScriptedServiceDiscovery& discovery_ = everlastingDiscovery();
  NameServer server_;
};

TEST_F(ServerStart, PublishesOneServiceUnderTheHostsOwnName) {
  ASSERT_EQ(servicesPublished(), 1U);
  const ScriptedNetService& service = *discovery_.services.front();
  EXPECT_EQ(service.name(), "");
  EXPECT_EQ(service.type(), "_sorvane._tcp");
  EXPECT_EQ(service.port, 20221);
  EXPECT_EQ(service.timesPublished, 1);
}

TEST_F(ServerStart, PublishesNothingForThisMachineOnly) {
  settings_.localAccessOnly = true;
  settingsChanged();
  EXPECT_EQ(servicesPublished(), 0U);
}

TEST_F(ServerStart, PublishesNothingWithBonjourDisabled) {
  settings_.bonjourDisabled = true;
  settingsChanged();
  EXPECT_EQ(servicesPublished(), 0U);
}

TEST_F(ServerStart, MakesTheInfoServerOnce) {
  server_.startInfoserver(false);
  InfoserverController* const first = server_.infoserver();
  ASSERT_NE(first, nullptr);
  server_.startInfoserver(true);
  EXPECT_EQ(server_.infoserver(), first);
}

TEST_F(ServerStart, MakesAHostFileReadableByAll) {
  writeFile(settings_.nameServerHostFile, "localhost\n");
  ASSERT_EQ(chmod(settings_.nameServerHostFile.c_str(), 0600), 0);
  server_.giveWayToOtherHost();
  EXPECT_EQ(modeOf(settings_.nameServerHostFile), 0644U);
}

TEST_F(ServerStart, MakesAHostFileWithAnAwkwardPathReadableByAll) {
  settings_.nameServerHostFile = folder_ / "it's a; host $(file)";
  settingsChanged();
  writeFile(settings_.nameServerHostFile, "localhost\n");
  ASSERT_EQ(chmod(settings_.nameServerHostFile.c_str(), 0600), 0);
  server_.giveWayToOtherHost();
  EXPECT_EQ(modeOf(settings_.nameServerHostFile), 0644U);
}

TEST_F(ServerStart, GoesOnWithoutAHostFile) {
  server_.giveWayToOtherHost();
  EXPECT_FALSE(std::filesystem::exists(settings_.nameServerHostFile));
  EXPECT_EQ(log(), "");
}

TEST_F(ServerStart, EndsWithStatusZeroWhenThePortIsTaken) {
  ScriptedPeer taken([](PeerConnection& connection) { connection.waitForClose(); });
  settings_.basePort = taken.port();
  settings_.localAccessOnly = true;
  settingsChanged();
  EXPECT_EXIT(
      {
        setConsoleSink(nullptr);
        (void)server_.openServerSocket();
      },
      testing::ExitedWithCode(0), "nameserver could not connect to socket");
  EXPECT_EQ(log(), "nameserver could not connect to socket\n");
}

TEST_F(ServerStart, OpensTheServerSocketOnTheBasePort) {
  settings_.basePort = closedPort();
  settings_.localAccessOnly = true;
  settingsChanged();
  const int socket = server_.openServerSocket();
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  ASSERT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
  const auto* const inet = reinterpret_cast<const sockaddr_in*>(&address);
  EXPECT_EQ(ntohs(inet->sin_port), settings_.basePort);
  close(socket);
}

struct WordCase {
  const char* text;
  const char* word;
};

TEST(ShellWord, QuotesOnlyWhereItMust) {
  const WordCase cases[] = {
      {"/etc/sorvane/Host_1.txt", "/etc/sorvane/Host_1.txt"},
      {"", "''"},
      {"a b", "'a b'"},
      {"it's", R"('it'\''s')"},
      {"$(rm x)", "'$(rm x)'"},
      {"a\nb", "'a\nb'"},
      {"~", "'~'"},
      {"\xc3\xa4", "'\xc3\xa4'"},
  };
  for (const WordCase& each : cases) {
    EXPECT_EQ(shellWord(each.text), each.word);
  }
}

}  // namespace
}  // namespace sorvane::test
