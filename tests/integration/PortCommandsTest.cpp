// Who holds a name, and until when, as clients of the real name server see it.
#include <gtest/gtest.h>

#include <ostream>

#include "integration/Daemon.h"
#include "support/Texts.h"

namespace sorvane::test {
namespace {

class Port : public testing::Test {
 protected:
  void SetUp() override { server_.start(); }

  static Message newPort(std::string_view name, std::string_view host = "h") {
    return {{"newPort", ""}, {"portName", name}, {"portHost", host}, {"portType", "t"}};
  }
  static void accepts(NetConnection& database) {
    ASSERT_TRUE(database.sendDictionary({{"acceptPort", ""}}));
  }
  static void registers(NetConnection& database, std::string_view name,
                        std::string_view host = "h") {
    ASSERT_TRUE(database.sendDictionary(newPort(name, host)));
    accepts(database);
  }
  /// The host under which a name is found; empty when it is not.
  [[nodiscard]] std::string hostOf(std::string_view name) const {
    const auto reply = server_.ask({{"findPort", name}, {"portHost", "me"}});
    return std::string(reply->text("portHost").value_or(""));
  }

  Daemon server_;
};

TEST_F(Port, IsFoundFromItsAcceptanceOnAndNotBefore) {
  const auto database = server_.connection();
  ASSERT_TRUE(database->sendDictionary(newPort("db1")));
  EXPECT_FALSE(server_.finds("db1"));
  accepts(*database);
  EXPECT_TRUE(server_.finds("db1"));
}

TEST_F(Port, RegisteredAgainByAnotherConnectionReplacesTheFirst) {
  const auto first = server_.connection();
  const auto second = server_.connection();
  registers(*first, "db1", "one");
  registers(*second, "db1", "two");
  EXPECT_EQ(hostOf("db1"), "two");
}

// Only the name is compared at the end of a connection.
TEST_F(Port, GoesWithWhoeverRegisteredItsNameFirst) {
  auto first = server_.connection();
  const auto second = server_.connection();
  registers(*first, "db1", "one");
  registers(*second, "db1", "two");
  first.reset();
  EXPECT_TRUE(waitUntil([this] { return !server_.finds("db1"); }));
}

TEST_F(Port, LosesItsNameToASecondNewPortOfItsConnectionAtOnce) {
  const auto database = server_.connection();
  registers(*database, "db1");
  ASSERT_TRUE(database->sendDictionary(newPort("db2")));
  EXPECT_FALSE(server_.finds("db1"));
  EXPECT_FALSE(server_.finds("db2")) << "not accepted yet";
  accepts(*database);
  EXPECT_TRUE(server_.finds("db2"));
}

TEST_F(Port, KeepsItsEarlierNameAtAReconnectionUntilOneOfThatNameEnds) {
  auto database = server_.connection();
  registers(*database, "db1");
  ASSERT_TRUE(database->sendDictionary(
      {{"reconnectPort", "db2"}, {"portNumber", "9"}, {"portHost", "h"}, {"portType", "t"}}));
  EXPECT_TRUE(server_.finds("db1"));
  EXPECT_TRUE(server_.finds("db2"));
  database.reset();
  EXPECT_TRUE(waitUntil([this] { return !server_.finds("db2"); }));
  EXPECT_TRUE(server_.finds("db1")) << "kept on purpose: the record's present name alone goes";
}

TEST_F(Port, OfAConnectionThatRegisteredNothingIsNobodysAndItsEndIsToldToWatchers) {
  const auto watcher = server_.connection();
  ASSERT_TRUE(watcher->sendDictionary({{"action", "watchPortChanges"}}));
  const auto changed = [&] {
    return watcher->sendDictionary({{"action", "didPortsChange"}})->text("result") == "YES";
  };
  ASSERT_TRUE(server_.registers("db1"));
  auto passing = server_.connection();
  ASSERT_TRUE(passing->sendDictionary({{"ping", ""}}));
  ASSERT_TRUE(waitUntil([&] { return !changed(); }));
  passing.reset();
  EXPECT_TRUE(waitUntil(changed));
  EXPECT_TRUE(server_.finds("db1"));
}

TEST_F(Port, MayHaveTheEmptyNameAndAnyBytesAfterTheEndOfItsTexts) {
  const auto database = server_.connection();
  Message port = newPort("");
  port.setData("portHost", std::string_view("one\0\xff", 5));
  ASSERT_TRUE(database->sendDictionary(port));
  accepts(*database);
  EXPECT_EQ(hostOf(""), "one");
}

// ---- Values that a command needs

struct BadValue {
  const char* name;
  Message request;
  const char* key;
};

void PrintTo(const BadValue& bad, std::ostream* out) { *out << bad.name; }

class ValueOf : public Port, public testing::WithParamInterface<BadValue> {};

TEST_P(ValueOf, ThatIsMissingEmptyOrNotUtf8RaisesAndChangesNothingAndTheConnectionLivesOn) {
  const auto client = server_.connection();
  registers(*client, "mine", "before");
  Message missing;
  for (const MessageEntry& each : GetParam().request.entries()) {
    if (each.key != GetParam().key) {
      missing.setData(each.key, each.value);
    }
  }
  std::vector<Message> bad;
  for (const std::string_view value : {std::string_view(), std::string_view("\xc3\0", 2)}) {
    bad.push_back(GetParam().request);
    bad.back().setData(GetParam().key, value);
  }
  const bool isCommandKey = GetParam().request.entries().front().key == GetParam().key;
  const bool needsItsKeys = GetParam().request.contains("newPort");
  if (!isCommandKey && !needsItsKeys) {  // else it is another command without it
    bad.push_back(missing);
  }
  for (const Message& each : bad) {
    EXPECT_FALSE(client->sendDictionary(each)) << "an answer to " << each.description();
    ASSERT_EQ(client->lastError(), "") << "not even no reply";
    EXPECT_TRUE(server_.logs("Exception detected. Command could not be executed\n" +
                             each.description() + "\n"));
  }
  EXPECT_FALSE(server_.finds("other"));
  accepts(*client);
  EXPECT_EQ(hostOf("mine"), "before") << "the record was changed";
  EXPECT_EQ(client->sendDictionary(newPort("x"))->text("portNumber"),
            std::to_string(server_.basePort() + 2))
      << "a number was spent";
}

Message newPortRequest() {
  return {{"newPort", ""},
          {"portName", "other"},
          {"portHost", "after"},
          {"portHostAddress", "10.0.0.1"},
          {"portType", "t"}};
}

Message reconnectRequest() {
  return {
      {"reconnectPort", "other"}, {"portNumber", "7"}, {"portHost", "after"}, {"portType", "t"}};
}

Message findRequest() { return {{"findPort", "mine"}, {"portHost", "me"}}; }

INSTANTIATE_TEST_SUITE_P(
    Each, ValueOf,
    testing::Values(BadValue{"NewPort_Name", newPortRequest(), "portName"},
                    BadValue{"NewPort_Host", newPortRequest(), "portHost"},
                    BadValue{"NewPort_HostAddress", newPortRequest(), "portHostAddress"},
                    BadValue{"NewPort_Type", newPortRequest(), "portType"},
                    BadValue{"Reconnect_Name", reconnectRequest(), "reconnectPort"},
                    BadValue{"Reconnect_Number", reconnectRequest(), "portNumber"},
                    BadValue{"Reconnect_Host", reconnectRequest(), "portHost"},
                    BadValue{"Reconnect_Type", reconnectRequest(), "portType"},
                    BadValue{"Find_Name", findRequest(), "findPort"},
                    BadValue{"Find_Host", findRequest(), "portHost"}),
    [](const auto& each) { return each.param.name; });

// ---- The word of a command

TEST_F(Port, CommandsAreChosenByTheirKeyOrByTheirActionInAnyCase) {
  const auto client = server_.connection();
  EXPECT_EQ(textsOf(client->sendDictionary({{"FINDPORT", "db1"}, {"portHost", "h"}})),
            kEmptyDictionary)
      << "keys are exact";
  for (const char* const action : {"hostinfo", "HOSTINFO", "hostInfo"}) {
    EXPECT_TRUE(
        client->sendDictionary({{"action", action}})->text("result")->starts_with("testhost|"))
        << action;
  }
  Message noText{{"x", ""}};
  for (const std::string_view value : {std::string_view(), std::string_view("\xff", 1)}) {
    noText.setData("action", value);
    EXPECT_EQ(textsOf(client->sendDictionary(noText)), kEmptyDictionary);
  }
}

}  // namespace
}  // namespace sorvane::test
