// The client's view of the network.
#include <gtest/gtest.h>
#include <signal.h>

#include "integration/AvahiHost.h"
#include "integration/Daemon.h"
#include "integration/JsonDocument.h"

namespace sorvane::test {
namespace {

class BonjourBrowse : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    alpha = std::make_unique<AvahiHost>("alpha");
    beta = std::make_unique<AvahiHost>("beta");
    connectByCable(alpha->network(), "198.51.100.1/24", beta->network(), "198.51.100.2/24");
    alpha->startDaemons();
    beta->startDaemons();
    server.setting("BonjourDisabled", "");
  }

  [[nodiscard]] std::unique_ptr<Program> sorvctl(std::vector<std::string> words) const {
    return beta->start(builtProgram("sorvctl"), std::move(words));
  }
  void startServer() { server.launch({"-noexit"}, alpha->inside()); }

  std::unique_ptr<AvahiHost> alpha;
  std::unique_ptr<AvahiHost> beta;
  Daemon server;
};

TEST_F(BonjourBrowse, WatchTellsWhenANameServerComesAndGoes) {
  const auto watching = sorvctl({"browse", "--watch"});
  startServer();
  EXPECT_TRUE(watching->prints("came alpha 198.51.100.1 20221\n")) << watching->errors();
  server.kill();
  EXPECT_TRUE(watching->prints("went alpha 198.51.100.1 20221\n")) << watching->errors();
  watching->signal(SIGTERM);
  EXPECT_EQ(watching->wait(), 0);
}

TEST_F(BonjourBrowse, WatchTellsInJsonALineForEach) {
  const auto watching = sorvctl({"browse", "--watch", "--json"});
  startServer();
  EXPECT_TRUE(watching->prints(R"("alpha")")) << watching->errors();
  EXPECT_NE(watching->output().find(R"("came")"), std::string::npos) << watching->output();
  expectAsDocumented({{"browse", printedLines(watching->output())}});
}

TEST_F(BonjourBrowse, ListsTheNameServersThatAreThere) {
  startServer();
  const auto watching = sorvctl({"browse", "--watch"});
  ASSERT_TRUE(watching->prints("came alpha ")) << watching->errors();
  const auto table = sorvctl({"browse"});
  EXPECT_EQ(table->wait(), 0) << table->errors();
  EXPECT_EQ(table->output(), "NAME   ADDRESS       PORT\nalpha  198.51.100.1  20221\n");
  const auto json = sorvctl({"browse", "--json"});
  EXPECT_EQ(json->wait(), 0) << json->errors();
  EXPECT_NE(json->output().find(R"("198.51.100.1")"), std::string::npos) << json->output();
  expectAsDocumented({{"browse", printedLines(json->output())}});
}

TEST_F(BonjourBrowse, NetAsksTheNameServersThatAreThere) {
  const std::string port = std::to_string(server.basePort());
  startServer();
  const auto watching = sorvctl({"--port", port, "net", "--watch"});
  ASSERT_TRUE(watching->prints("alpha: answers\n")) << watching->errors();
  const auto table = sorvctl({"--port", port, "net", "--timeout", "30"});
  EXPECT_EQ(table->wait(), 0) << table->errors();
  EXPECT_EQ(table->output(),
            "SERVER  NAME  NUMBER  HOST  TYPE  STATE    ALERT\n"
            "alpha   -     -       -     -     answers  no databases\n");
}

TEST_F(BonjourBrowse, NetWatchesNameServersThatComeAndGo) {
  const auto watching = sorvctl(
      {"--port", std::to_string(server.basePort()), "net", "--watch", "--interval", "0.05"});
  startServer();
  EXPECT_TRUE(watching->prints("alpha: answers\n")) << watching->errors();
  server.kill();
  EXPECT_TRUE(watching->prints("alpha: left\n")) << watching->output();
  watching->signal(SIGTERM);
  EXPECT_EQ(watching->wait(), 0);
}

TEST_F(BonjourBrowse, NetFindsNobodyWhenThereIsNobody) {
  const auto table = sorvctl({"net", "--browse", "0.1"});
  EXPECT_EQ(table->wait(), 3);
  EXPECT_EQ(table->output(), "SERVER  NAME  NUMBER  HOST  TYPE  STATE  ALERT\n");
  EXPECT_TRUE(table->complains("no name server was found on the network"));
}

TEST_F(BonjourBrowse, EndsAfterItsTimeWhenThereIsNobody) {
  const auto table = sorvctl({"browse", "--timeout", "0.1"});
  EXPECT_EQ(table->wait(), 0) << table->errors();
  EXPECT_EQ(table->output(), "NAME  ADDRESS  PORT\n");
}

TEST_F(BonjourBrowse, WithoutAvahiCostsOneConsoleLine) {
  beta->stopAvahi();
  const auto table = sorvctl({"browse", "--timeout", "2"});
  EXPECT_EQ(table->wait(), 0);
  EXPECT_TRUE(table->complains("Bonjour: Avahi cannot be reached"));
}

}  // namespace
}  // namespace sorvane::test
