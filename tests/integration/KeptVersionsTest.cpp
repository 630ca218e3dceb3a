// What earlier versions have handed on: descriptions of each version of the format lie in kept/.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "integration/DaemonProcess.h"
#include "integration/Upgrading.h"
#include "platform/Descriptor.h"
#include "platform/KeptForm.h"
#include "platform/NetConnection.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

const fs::path kFolder = SORVANE_SOURCE_DIR "/tests/integration/kept";

class KeptVersion : public testing::TestWithParam<unsigned> {
 protected:
  /// Starts a name server that takes the description for what it was left. The other ends of its
  /// connections are in `peers_`. One of them may be missing there.
  void starts(const std::string& missing = "") {
    const fs::path description = file(".bin");
    const auto told = nlohmann::json::parse(readFile(file(".json")));
    const Descriptor listener(NetConnection::createServerSocketForPort(server_.basePort()));
    std::map<int, int> sources{{listener.number(), told["listener"]}};
    std::vector<Descriptor> accepted;
    for (const auto& [name, number] : told["connections"].items()) {
      peers_.emplace(name, server_.rawConnection());
      accepted.emplace_back(accept(listener.number(), nullptr, nullptr));
      if (name != missing) {
        sources[accepted.back().number()] = number;
      }
    }
    const int lock = told["lock"];
    server_.launch({"-noexit"}, [=, this] {
      for (const auto& [source, number] : sources) {
        dup2(source, number);
      }
      dup2(open((server_.tree() / "lock/sorvinfo.lock").c_str(), O_RDWR | O_CREAT, 0644), lock);
      const int kept = fcntl(open(description.c_str(), O_RDONLY), F_DUPFD, lock + 100);
      setenv("SORVINFO_KEPT", std::to_string(kept).c_str(), 1);
    });
  }
  static fs::path file(const std::string& ending) {
    return kFolder / ("version-" + std::to_string(GetParam()) + ending);
  }
  /// The text of a reply, or why there is none.
  std::string reply(const std::string& peer, const std::string& key) {
    const auto frame = peers_.at(peer).receiveFrame();
    return frame ? std::string(frame->message().text(key).value_or("(none)")) : "(closed)";
  }

  Daemon server_;
  std::map<std::string, RawConnection> peers_;
};

TEST_P(KeptVersion, IsReadAndServedOn) {
  starts();
  Client tool(server_);
  ASSERT_EQ(tool.numberOf("db2"), "7001") << server_.console();
  EXPECT_EQ(tool.numberOf("left"), "7002") << "a name that was left behind";
  EXPECT_FALSE(tool.knows("leaver"));
  EXPECT_EQ(tool.states(), "leaver:running|db1:running|db2:backup") << "in the same order";
  EXPECT_EQ(tool.acts("get_userpreferences", {{"key", "anna"}}), (Texts{{"databases", "db2"}}));
  EXPECT_THAT(tool.acts("changeTimestamp"),
              testing::Optional(testing::Contains(testing::Pair("force_refresh", "1"))));
  // The rest of a request, a watcher's mark, a wait.
  const std::string request = frame({{"findPort", "db1"}, {"portHost", "h"}});
  peers_.at("cut").send(request.substr(request.size() - 5));
  EXPECT_EQ(reply("cut", "portName"), "db1");
  EXPECT_TRUE(peers_.at("waiting").staysSilent(std::chrono::milliseconds(0)));
  peers_.at("watcher").send(frame(test::request("didPortsChange", {})));
  EXPECT_EQ(reply("watcher", "result"), "NO");
  peers_.at("db1").close();
  EXPECT_EQ(reply("waiting", "result"), "YES");
  EXPECT_TRUE(waitUntil([&] { return !tool.knows("db1"); }));
  EXPECT_TRUE(tool.knows("db2"));
  EXPECT_EQ(Upgrading(server_).told("upgrades"), "1");
  for (const int each : {SIGHUP, SIGINT}) {
    EXPECT_TRUE(DaemonProcess(server_.process()).ignores(each)) << each;
  }
}

TEST_P(KeptVersion, IsGivenUpAsAWholeWhenAConnectionIsMissing) {
  starts("cut");
  ASSERT_TRUE(server_.complains("the name server starts anew"));
  ASSERT_TRUE(server_.answers()) << server_.console();
  EXPECT_TRUE(peers_.at("db1").isClosedByPeer());
  EXPECT_FALSE(server_.finds("db2"));
  EXPECT_TRUE(server_.registers("db2"));
  EXPECT_TRUE(server_.hasTakenLock());
}

INSTANTIATE_TEST_SUITE_P(Each, KeptVersion, testing::Range(1U, kKeptVersion + 1));

}  // namespace
}  // namespace sorvane::test
