// "sorvctl net": the databases of many name servers.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "integration/Client.h"
#include "integration/Daemon.h"
#include "support/Program.h"
#include "support/ScriptedPeer.h"

namespace sorvane::test {
namespace {

std::string placeOf(const Daemon& server) {
  return "127.0.0.1:" + std::to_string(server.basePort());
}

Outcome net(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "net");
  return run(builtProgram("sorvctl"), std::move(arguments));
}

class SorvctlNet : public testing::Test {
 protected:
  SorvctlNet() {
    one.start();
    two.start();
  }

  Daemon one;
  Daemon two;
};

TEST_F(SorvctlNet, ShowsTheDatabasesOfAllHostsInOneTable) {
  ASSERT_TRUE(one.registers("db1"));
  ASSERT_TRUE(one.registers("line\nbreak"));
  const std::string away = "127.0.0.1:" + std::to_string(closedPort());
  const Outcome outcome =
      net({"--hosts", placeOf(one) + "," + placeOf(two) + "," + away, "--timeout", "30"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  const std::string& table = outcome.output;
  EXPECT_EQ(table.find("SERVER           NAME"), 0U) << table;
  const std::string first = std::to_string(one.basePort() + 1);
  EXPECT_NE(table.find("\n" + placeOf(one) + "  db1          " + first +
                       "   dbhost  database  running\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("  line\\nbreak  "), std::string::npos) << table;
  EXPECT_NE(table.find("\n" + placeOf(two) +
                       "  -            -       -       -         answers    no databases\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("\n" + away +
                       "  -            -       -       -         no answer  cannot connect to "),
            std::string::npos)
      << table;
}

TEST_F(SorvctlNet, ShowsThemAsJsonAnObjectForEachHost) {
  ASSERT_TRUE(one.registers("db1"));
  const int away = closedPort();
  const Outcome outcome =
      net({"--json", "--hosts", placeOf(one) + ",127.0.0.1:" + std::to_string(away)});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  nlohmann::json json = nlohmann::json::parse(outcome.output);
  ASSERT_EQ(json.size(), 2U);
  EXPECT_EQ(json[0], (nlohmann::json{{"server", placeOf(one)},
                                     {"port", one.basePort()},
                                     {"answered", true},
                                     {"databases",
                                      {{{"name", "db1"},
                                        {"number", std::to_string(one.basePort() + 1)},
                                        {"host", "dbhost"},
                                        {"type", "database"},
                                        {"state", "running"},
                                        {"alert", ""},
                                        {"left", false}}}}}));
  EXPECT_EQ(json[1]["answered"], false);
  EXPECT_NE(json[1]["failure"].get<std::string>().find("Connection refused"), std::string::npos);
  EXPECT_FALSE(json[1].contains("databases"));
}

TEST_F(SorvctlNet, AsksAHostWithoutAPortAtTheBasePort) {
  const Outcome outcome =
      net({"--port", std::to_string(one.basePort()), "--hosts", "127.0.0.1", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(nlohmann::json::parse(outcome.output)[0]["port"], one.basePort());
}

TEST_F(SorvctlNet, WatchTellsWhatChangesAtEachHost) {
  ASSERT_TRUE(one.registers("db1"));
  Program watching(builtProgram("sorvctl"), {"net", "--hosts", placeOf(one) + "," + placeOf(two),
                                             "--watch", "--interval", "0.05"});
  EXPECT_TRUE(watching.prints(placeOf(one) + ": answers\n")) << watching.errors();
  EXPECT_TRUE(watching.prints(placeOf(one) + ": came db1 number="));
  EXPECT_TRUE(watching.prints(placeOf(two) + ": answers\n"));
  ASSERT_TRUE(two.registers("db2"));
  EXPECT_TRUE(watching.prints(placeOf(two) + ": came db2 number="));
  Client(one).acts("setDatabaseState", {{"databaseName", "db1"}, {"state", "stopping"}});
  EXPECT_TRUE(watching.prints(placeOf(one) + ": changed db1 state=stopping\n"));
  two.unregisters("db2");
  EXPECT_TRUE(watching.prints(placeOf(two) + ": went db2\n"));
  two.kill();
  EXPECT_TRUE(watching.prints(placeOf(two) + ": noAnswer: "));
  two.start();
  EXPECT_TRUE(watching.prints(placeOf(two) + ": answers\n", 2)) << watching.output();
  watching.signal(SIGTERM);
  EXPECT_EQ(watching.wait(), 0);
  EXPECT_EQ(watching.errors(), "");
}

TEST_F(SorvctlNet, WatchFollowsMoreHostsThanTheSoftLimitOfDescriptorsAllows) {
  std::string hosts;
  constexpr int kHosts = 8;
  for (int host = 1; host <= kHosts; ++host) {
    hosts += (hosts.empty() ? "127.0.0." : ",127.0.0.") + std::to_string(host) + ":" +
             std::to_string(one.basePort());
  }
  Program watching(builtProgram("sorvctl"), {"net", "--hosts", hosts, "--watch"},
                   {"", [] {
                      rlimit limit{};
                      getrlimit(RLIMIT_NOFILE, &limit);
                      limit.rlim_cur = 32;
                      setrlimit(RLIMIT_NOFILE, &limit);
                    }});
  EXPECT_TRUE(watching.prints(": answers\n", kHosts)) << watching.output();
  watching.signal(SIGTERM);
  EXPECT_EQ(watching.wait(), 0);
}

TEST_F(SorvctlNet, WatchAsJsonPrintsAnObjectALine) {
  ASSERT_TRUE(one.registers("db1"));
  Program watching(builtProgram("sorvctl"),
                   {"net", "--hosts", placeOf(one), "--watch", "--interval", "0.05", "--json"});
  ASSERT_TRUE(watching.prints("\n", 2));
  watching.signal(SIGINT);
  EXPECT_EQ(watching.wait(), 0);
  const std::string output = watching.output();
  const auto first = nlohmann::json::parse(output.substr(0, output.find('\n')));
  EXPECT_EQ(first, (nlohmann::json{{"server", placeOf(one)}, {"change", "answers"}}));
  const auto second = nlohmann::json::parse(output.substr(output.find('\n')));
  EXPECT_EQ(second["server"], placeOf(one));
  EXPECT_EQ(second["change"], "came");
  EXPECT_EQ(second["name"], "db1");
}

TEST(SorvctlNetOfHosts, ThatDoNotAnswerIsStatusThree) {
  const Outcome outcome = net({"--hosts", "127.0.0.1:" + std::to_string(closedPort())});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_NE(outcome.output.find("no answer"), std::string::npos) << "the table is printed";
  EXPECT_EQ(outcome.errors, "sorvctl: none of the name servers answers\n");
}

TEST(SorvctlNetOfHosts, ThatAreSilentEndsAtTheTimeout) {
  ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  const std::string place = "127.0.0.1:" + std::to_string(silent.port());
  const Outcome outcome = net({"--hosts", place, "--timeout", "0.2"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_NE(outcome.output.find("no answer in time"), std::string::npos) << outcome.output;
  Program watching(builtProgram("sorvctl"), {"net", "--hosts", place, "--watch"});
  ASSERT_TRUE(silent.accepts(2));
  watching.signal(SIGTERM);
  EXPECT_EQ(watching.wait(), 0);
}

TEST(SorvctlNetOfHosts, ThatAreNoneIsWrongUsage) {
  EXPECT_EQ(net({"--hosts", "a,,b"}).status, 2);
  const Outcome outcome = run(builtProgram("sorvctl"), {"--host", "hostA", "net"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.errors.find("--hosts"), std::string::npos) << outcome.errors;
}

}  // namespace
}  // namespace sorvane::test
