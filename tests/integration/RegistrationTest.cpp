// How databases come into the registry of the real name server, and how they go.
#include <gtest/gtest.h>

#include "integration/Client.h"
#include "platform/Settings.h"
#include "support/ScriptedPeer.h"

namespace sorvane::test {
namespace {

class Registration : public Served {
 protected:
  [[nodiscard]] std::string number(int above) const {
    return std::to_string(server_.basePort() + above);
  }
  [[nodiscard]] bool goes(std::string_view name) {
    return waitUntil([&] { return !tool().knows(name); });
  }
};

TEST_F(Registration, OfALauncherInAnyLetterCaseLeavesTheCounterAlone) {
  Client launcher(server_);
  for (const char* name : {"sorvexec", "SORVEXEC", "SorvExec"}) {
    EXPECT_EQ(launcher.asksForPort(name), number(-1)) << name;
  }
  EXPECT_EQ(launcher.asksForPort("sorvexec2"), number(1));
  EXPECT_EQ(launcher.asksForPort("sorvexec"), number(-1));
  EXPECT_EQ(Client(server_).asksForPort("db"), number(2)) << "one counter for all connections";
}

TEST_F(Registration, IsNotFoundBeforeItIsAccepted) {
  Client database(server_);
  EXPECT_EQ(database.asksForPort("db1"), number(1));
  EXPECT_FALSE(tool().knows("db1"));
  ASSERT_TRUE(database.accepts());
  EXPECT_EQ(tool().numberOf("db1"), number(1));
}

TEST_F(Registration, WithoutATypeAHostOrANameIsNoneAndSpendsNoNumber) {
  const Texts whole = {{"newPort", ""}, {"portName", "n"}, {"portHost", "h"}, {"portType", "t"}};
  for (const auto& [missing, text] : whole) {
    Texts request;
    for (const auto& each : whole) {
      if (each.first != missing) {
        request.push_back(each);
      }
    }
    EXPECT_EQ(tool().asks(request), kEmptyDictionary) << "without " << missing;
  }
  EXPECT_EQ(tool().asksForPort("n"), number(1));
}

TEST_F(Registration, IsFoundFromAnyHostAndAnswersTheAskersOwnAddress) {
  Client database(server_);
  database.registers("db1");
  struct {
    Texts asker;
    std::string address;
  } const askers[] = {
      {{{"portHost", "client7"}}, "client7"},
      {{{"portHost", ""}}, ""},
      {{{"portHost", "client7"}, {"portHostAddress", "10.0.0.5"}}, "10.0.0.5"},
      {{{"portHostAddress", ""}, {"portHost", "client7"}}, ""},
      {{{"portHost", "dbhost"}, {"portHostAddress", "::1"}, {"portNumber", "1"}}, "::1"},
  };
  for (const auto& [asker, address] : askers) {
    Message find = textsMessage(asker);
    find.setText("findPort", "db1");
    EXPECT_EQ(tool().connection().ask(find)->body, textsBody({{"portNumber", number(1)},
                                                              {"portName", "db1"},
                                                              {"portHostAddress", address},
                                                              {"portHost", "dbhost"},
                                                              {"portType", "database"}}));
  }
}

TEST_F(Registration, OfTheServersOwnTwoNamesIsThereFromTheStartAndHasNoType) {
  for (const char* name : {"VN_nameserver", "VN_infoserver"}) {
    EXPECT_EQ(tool().finds(name), (Texts{{"portNumber", number(0)},
                                         {"portName", name},
                                         {"portHostAddress", "localhost"},
                                         {"portHost", "testhost"}}));
  }
}

TEST_F(Registration, KeepsNamesApartByteForByte) {
  const std::string names[] = {
      "", "db1", "DB1", "db1 ", "db", "d\xC3\xA4tenbank", "a|b:c\n", std::string(60000, 'n')};
  for (const std::string& name : names) {
    EXPECT_FALSE(tool().knows(name)) << "registered so far: others";
    ASSERT_TRUE(server_.registers(name, "h" + std::to_string(name.size())));
    const auto found = tool().finds(name);
    ASSERT_EQ(found->size(), 5U) << name;
    EXPECT_EQ((*found)[1].second, name);
    EXPECT_EQ((*found)[3].second, "h" + std::to_string(name.size()));
  }
}

TEST_F(Registration, ReadsATextUpToItsFirstNul) {
  Message request({{"newPort", ""}, {"portHost", "h"}, {"portType", "t"}});
  request.setData("portName", std::string_view("db1\0db2\xFF", 8));
  Client database(server_);
  ASSERT_TRUE(database.asks(request));
  ASSERT_TRUE(database.accepts());
  EXPECT_TRUE(tool().knows("db1"));
  Message find({{"portHost", "h"}});
  find.setData("findPort", "db1");  // no NUL at all
  EXPECT_EQ(tool().asks(find)->front().second, number(1));
}

TEST_F(Registration, OfANameByASecondConnectionReplacesTheFirst) {
  Client first(server_);
  Client second(server_);
  first.registers("db1");
  second.registers("db1");
  EXPECT_EQ(tool().numberOf("db1"), number(2));
  ASSERT_TRUE(first.accepts()) << "the first may take it back";
  EXPECT_EQ(tool().numberOf("db1"), number(1));
}

TEST_F(Registration, ForASecondTimeOnAConnectionFirstRemovesThePreviousName) {
  Client database(server_);
  database.registers("db1");
  EXPECT_EQ(database.asksForPort("db2"), number(2));
  EXPECT_FALSE(tool().knows("db1"));
  EXPECT_FALSE(tool().knows("db2")) << "not accepted yet";
  ASSERT_TRUE(database.accepts());
  EXPECT_EQ(tool().numberOf("db2"), number(2));
}

TEST_F(Registration, ForASecondTimeRemovesWhoeverHoldsThePreviousName) {
  Client early(server_);
  Client late(server_);
  early.asksForPort("db1");
  late.registers("db1");
  early.asksForPort("db2");
  EXPECT_FALSE(tool().knows("db1"));
}

TEST_F(Registration, GoesWithItsConnection) {
  Client database(server_);
  Client other(server_);
  database.registers("db1");
  other.registers("db2");
  database.closes();
  EXPECT_TRUE(goes("db1"));
  EXPECT_TRUE(tool().knows("db2"));
}

TEST_F(Registration, GoesWithAnEarlierConnectionOfThatNameToo) {
  Client first(server_);
  Client second(server_);
  first.registers("db1");
  second.registers("db1");
  first.closes();
  EXPECT_TRUE(goes("db1")) << "what is forgotten is the name, whoever holds it now";
  EXPECT_TRUE(second.accepts());
  EXPECT_EQ(tool().numberOf("db1"), number(2));
}

TEST_F(Registration, GoesWithAConnectionThatOnlyAskedForANumberUnderThatName) {
  Client asked(server_);
  Client database(server_);
  asked.asksForPort("db1");
  database.registers("db1");
  asked.closes();
  EXPECT_TRUE(goes("db1"));
}

TEST_F(Registration, StaysWhenAConnectionWithoutANameCloses) {
  Client database(server_);
  database.registers("db1");
  Client visitor(server_);
  EXPECT_TRUE(visitor.knows("db1"));
  EXPECT_EQ(tool().didPortsChange(), "YES");
  EXPECT_EQ(tool().didPortsChange(), "NO");
  visitor.closes();
  EXPECT_TRUE(waitUntil([&] { return tool().didPortsChange() == "YES"; }));
  EXPECT_TRUE(tool().knows("db1"));
}

TEST_F(Registration, ByReconnectingKeepsTheNumberThatItNamesAndAnswersTheVeryRequest) {
  const std::string request = entry("z", "\xFF") + entry("portNumber", std::string("4711\0", 5)) +
                              entry("portType", std::string("\0junk", 5)) +
                              entry("reconnectPort", "db1") + entry("portHost", "h");
  Client database(server_);
  ASSERT_TRUE(database.connection().send(frameOfBody(request)));
  EXPECT_EQ(database.connection().receiveFrame()->body, request);
  EXPECT_EQ(tool().finds("db1"), (Texts{{"portNumber", "4711"},
                                        {"portName", "db1"},
                                        {"portHostAddress", "localhost"},
                                        {"portHost", "h"},
                                        {"portType", ""}}));
  ASSERT_TRUE(database.reconnects("db1", "no number"));
  EXPECT_EQ(tool().numberOf("db1"), "no number") << "a text like any other";
  EXPECT_EQ(Client(server_).asksForPort("db2"), number(1)) << "the counter is left alone";
}

TEST_F(Registration, ByReconnectingUnderAnotherNameLeavesBothNames) {
  Client database(server_);
  ASSERT_TRUE(database.reconnects("old", "7001"));
  ASSERT_TRUE(database.reconnects("new", "7002"));
  const auto found = tool().finds("new");
  EXPECT_EQ(found->front(), std::pair(std::string("portNumber"), std::string("7002")));
  EXPECT_EQ(tool().finds("old"), found) << "one record, as it is now";
  database.closes();
  EXPECT_TRUE(goes("new"));
  EXPECT_EQ(tool().finds("old"), found) << "only the present name goes with the connection";
  Client next(server_);
  next.registers("old");
  EXPECT_EQ(tool().numberOf("old"), number(1));
}

TEST_F(Registration, AfterAReconnectionRemovesTheNameThatThisGave) {
  Client database(server_);
  ASSERT_TRUE(database.reconnects("db1"));
  database.asksForPort("db2");
  EXPECT_FALSE(tool().knows("db1"));
}

TEST(LocalOnlyServer, AnswersAskersOfItsOwnMachineAlone) {
  Daemon server;
  server.setting("LocalAccessOnly", "YES").setting("Address", "");
  server.start();
  Client database(server);
  database.registers("db1");
  Client tool(server);
  const auto isAnswered = [&tool](const Texts& asker, const char* name) {
    Message find = textsMessage(asker);
    find.setText("findPort", name);
    return tool.asks(find).has_value();
  };
  EXPECT_TRUE(isAnswered({{"portHost", "localhost"}}, "db1"));
  EXPECT_TRUE(isAnswered({{"portHost", "127.0.0.1"}}, "nobody"));
  EXPECT_TRUE(isAnswered({{"portHost", "far"}, {"portHostAddress", "localhost"}}, "db1"));
  EXPECT_FALSE(isAnswered({{"portHost", "LOCALHOST"}}, "db1")) << "compared exactly";
  EXPECT_FALSE(isAnswered({{"portHost", "far"}}, "nobody")) << "not even that it is unknown";
  EXPECT_FALSE(isAnswered({{"portHost", "localhost"}, {"portHostAddress", "10.0.0.5"}}, "db1"));
  EXPECT_TRUE(
      server.complains("Remote user failed because server is configured for non-network access\n"));
}

TEST(LocalOnlyServer, IsAskedByItsOwnMachineAtWhateverAddress) {
  const ScriptedPeer database([](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(frameOfTexts({{"here", "db1"}}));
    }
  });
  Daemon server;
  server.setting("Address", "127.0.0.1");
  server.start();
  Client registered(server);
  ASSERT_TRUE(registered.asks(Message({{"reconnectPort", "db1"},
                                       {"portNumber", std::to_string(database.port())},
                                       {"portHost", "localhost"},
                                       {"portType", "database"}})));
  Settings settings;
  settings.basePort = server.basePort();
  Settings::replaceForTest(settings);
  for (const char* host : {"::1", "127.0.1.1", "localhost", ""}) {
    NetConnection connection;
    connection.setTimeLimits(kPatience, kPatience);
    EXPECT_TRUE(connection.connectToServer("db1", host)) << host << ": " << connection.lastError();
    EXPECT_TRUE(connection.sendDictionary({{"who", ""}})) << host << ": " << connection.lastError();
  }
}

TEST(LocalOnlyServer, WithAnAddressThatMayChangeAnswersEveryone) {
  Daemon server;
  server.setting("LocalAccessOnly", "YES").setting("Address", "").setting("DynamicAddress", "YES");
  server.start();
  Client tool(server);
  EXPECT_EQ(tool.asks(Message({{"findPort", "db1"}, {"portHost", "far"}})),
            (Texts{{"notFound", "notFound"}}));
  EXPECT_NE(tool.resultOf("hostInfo"), "local only");
}

}  // namespace
}  // namespace sorvane::test
