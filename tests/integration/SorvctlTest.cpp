#include <signal.h>

#include <string>

#include "integration/Sorvctl.h"

namespace sorvane::test {
namespace {

std::string lineOf(const std::string& text, const std::string& begin) {
  const std::size_t at = ("\n" + text).find("\n" + begin);
  return at == std::string::npos ? "" : text.substr(at, text.find('\n', at) - at);
}

TEST_F(Sorvctl, PingTellsThatTheServerAnswers) {
  const Outcome outcome = tool({"ping"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.output.find("answers"), std::string::npos);
  EXPECT_EQ(json({"ping"})["port"], server.basePort());
}

TEST_F(Sorvctl, FindPrintsWhatTheServerKnows) {
  ASSERT_TRUE(server.registers("db1", "dbhost", "sql"));
  const std::string number = std::to_string(server.basePort() + 1);
  const Outcome outcome = tool({"find", "db1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(lineOf(outcome.output, "number"), "number   " + number);
  EXPECT_EQ(lineOf(outcome.output, "host"), "host     dbhost");
  EXPECT_EQ(json({"find", "db1"}), (nlohmann::json{{"name", "db1"},
                                                   {"number", number},
                                                   {"host", "dbhost"},
                                                   {"address", "localhost"},
                                                   {"type", "sql"}}));
}

TEST_F(Sorvctl, FindOfAnUnknownNameFails) {
  expectFailure(tool({"find", "db9"}), 1, "no port is registered as \"db9\"");
}

TEST_F(Sorvctl, FindTakesTheNameOfACommandAsAName) {
  expectFailure(tool({"find", "list"}), 1, "\"list\"");
}

TEST_F(Sorvctl, OptionsStandBeforeOrAfterTheCommand) {
  const std::string port = std::to_string(server.basePort());
  for (const Arguments& arguments :
       {Arguments{"--json", "--host", "127.0.0.1", "--port", port, "ping"},
        Arguments{"ping", "--json", "--host", "127.0.0.1", "--port", port},
        Arguments{"--host", "127.0.0.1", "ping", "--timeout", "3", "--json", "--port", port}}) {
    const Outcome outcome = run(builtProgram("sorvctl"), arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(nlohmann::json::parse(outcome.output)["host"], "127.0.0.1");
  }
}

TEST_F(Sorvctl, RegisterHoldsTheNameUntilItIsEnded) {
  for (const int number : {SIGINT, SIGTERM}) {
    const auto holder = start({"register", "db1", "--type", "sql", "--host", "dbhost"});
    ASSERT_TRUE(holder->prints("\n")) << holder->errors();
    EXPECT_EQ(json({"find", "db1"})["number"].get<std::string>() + "\n", holder->output());
    EXPECT_EQ(json({"find", "db1"})["host"], "dbhost");
    EXPECT_EQ(json({"find", "db1"})["type"], "sql");
    holder->signal(number);
    EXPECT_EQ(holder->wait(), 0);
    EXPECT_TRUE(waitUntil([this] { return !server.finds("db1"); }));
  }
}

TEST_F(Sorvctl, RegisterRunsTheProgramWithThePortAndGivesItsStatus) {
  const Outcome outcome =
      tool({"register", "db1", "--", "sh", "-c", "echo at {port}/{port}; exit 7", "--json"});
  const std::string number = std::to_string(server.basePort() + 1);
  EXPECT_EQ(outcome.status, 7);
  EXPECT_EQ(outcome.output, number + "\nat " + number + "/" + number + "\n");
}

TEST_F(Sorvctl, RegisterTellsHowTheProgramEnded) {
  EXPECT_EQ(tool({"register", "db1", "--", "sh", "-c", "kill -9 $$"}).status, 128 + SIGKILL);
  const Outcome missing = tool({"register", "db1", "--", "/nonexistent/program"});
  EXPECT_EQ(missing.status, 127);
  EXPECT_NE(missing.errors.find("/nonexistent/program"), std::string::npos);
}

TEST_F(Sorvctl, RegisterHandsASignalToTheProgram) {
  const auto holder = start({"register", "db1", "--", "sh", "-c",
                             "trap 'exit 9' TERM; echo ready; while :; do sleep 0.02; done"});
  ASSERT_TRUE(holder->prints("ready"));
  EXPECT_TRUE(server.finds("db1"));
  holder->signal(SIGTERM);
  EXPECT_EQ(holder->wait(), 9);
}

TEST_F(Sorvctl, RegisterFailsWhenTheServerGoesAway) {
  const auto holder = start({"register", "db1"});
  const auto running = start({"register", "db2", "--", "sleep", "600"});
  ASSERT_TRUE(holder->prints("\n") && running->prints("\n"));
  server.kill();
  for (const auto& each : {holder.get(), running.get()}) {
    EXPECT_EQ(each->wait(), 3);
    EXPECT_NE(each->errors().find("sorvctl: "), std::string::npos);
  }
}

TEST_F(Sorvctl, SendPrintsTheReply) {
  EXPECT_EQ(tool({"send", "action=didPortsChange"}).output, "result  YES\n");
  EXPECT_EQ(json({"send", "action=didPortsChange"}), (nlohmann::json{{"result", "YES"}}));
  EXPECT_EQ(tool({"send", "ping="}).output, "(an empty dictionary)\n");
  EXPECT_EQ(tool({"send"}).output, "(an empty dictionary)\n");
}

TEST_F(Sorvctl, SendWithoutAReplyDictionaryFails) {
  expectFailure(tool({"send", "action=sorvexecConnectHost"}), 1, "no reply");
}

TEST_F(Sorvctl, SendRefusesWhatIsNoDictionary) {
  expectFailure(tool({"send", "ping"}), 2, "\"ping\" is not KEY=VALUE");
  expectFailure(tool({"send", "a=1", "a=2"}), 2, "comes twice");
  expectFailure(tool({"send", "\xFF=1"}), 2, "UTF-8");
}

TEST_F(Sorvctl, ListShowsEveryDatabaseAligned) {
  EXPECT_EQ(tool({"list"}).output, "NAME  NUMBER  HOST  ADDRESS  TYPE  STATE  ALERT\n");
  ASSERT_TRUE(server.registers("db1"));
  ASSERT_TRUE(server.registers("a-longer-name", "h2", "t"));
  ASSERT_EQ(tool({"set-state", "db1", "stopping"}).status, 0);
  ASSERT_EQ(tool({"set-alert", "db1", "disk full"}).status, 0);
  const std::string first = std::to_string(server.basePort() + 1);
  const std::string second = std::to_string(server.basePort() + 2);
  const std::string text = tool({"list"}).output;
  EXPECT_EQ(lineOf(text, "NAME"),
            "NAME           NUMBER  HOST    ADDRESS    TYPE      STATE     ALERT");
  EXPECT_EQ(lineOf(text, "db1"),
            "db1            " + first + "   dbhost  localhost  database  stopping  disk full");
  EXPECT_EQ(lineOf(text, "a-longer-name"),
            "a-longer-name  " + second + "   h2      localhost  t         running");
}

TEST_F(Sorvctl, ListKeepsItsShapeWhateverNamesAndStatesHold) {
  const std::vector<std::string> names{
      "a|b", "c:d", "e|f|g:h", "line\nbreak", "\x1b[31mred", "back\\slash", "\xe2\x80\xaeright"};
  for (const std::string& name : names) {
    ASSERT_TRUE(server.registers(name));
    ASSERT_EQ(tool({"set-state", name, "x:y|z"}).status, 0);
    ASSERT_EQ(tool({"set-alert", name, "p:q|r"}).status, 0);
  }
  const nlohmann::json list = json({"list"});
  ASSERT_EQ(list.size(), names.size()) << list;
  for (const auto& each : list) {
    const auto name = each["name"].get<std::string>();
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
    EXPECT_NE(each["number"], "") << name;
    EXPECT_EQ(each["alert"], "p:q|r") << name;
    EXPECT_EQ(each["state"], "x:y|z") << name;
  }
  const std::string text = tool({"list"}).output;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), static_cast<long>(names.size()) + 1);
  for (const char forbidden : {'\x1b', '\t', '\r'}) {
    EXPECT_EQ(text.find(forbidden), std::string::npos);
  }
  EXPECT_NE(text.find("line\\nbreak"), std::string::npos);
  EXPECT_NE(text.find("\\x1b[31mred"), std::string::npos);
  EXPECT_NE(text.find("\\u202eright"), std::string::npos);
}

TEST_F(Sorvctl, ListsTellNamesApartThatLookLikeSeveral) {
  ASSERT_TRUE(server.registers("e:f|g:h"));
  ASSERT_TRUE(server.registers("e"));
  const nlohmann::json list = json({"list"});
  ASSERT_EQ(list.size(), 2U) << list;
  EXPECT_EQ(list[0]["name"], "e");
  EXPECT_EQ(list[1]["name"], "e:f|g:h");
  EXPECT_EQ(tool({"states"}).output, "e        running\ne:f|g:h  running\n");
}

TEST_F(Sorvctl, StatesAndAlertsAreListed) {
  ASSERT_TRUE(server.registers("db1"));
  ASSERT_TRUE(server.registers("db2"));
  ASSERT_EQ(tool({"set-alert", "db2", "disk full"}).status, 0);
  const std::string states = tool({"states"}).output;
  EXPECT_EQ(lineOf(states, "db1"), "db1  running");
  EXPECT_EQ(lineOf(states, "db2"), "db2  running");
  EXPECT_EQ(tool({"alerts"}).output, "db2  disk full\n");
  EXPECT_EQ(json({"alerts"}), (nlohmann::json{{{"name", "db2"}, {"alert", "disk full"}}}));
}

TEST_F(Sorvctl, SettingAStateOfAnUnknownNameFails) {
  expectFailure(tool({"set-state", "db9", "stopping"}), 1, "nothing was stored");
  expectFailure(tool({"set-alert", "db9", "full"}), 1, "nothing was stored");
}

TEST_F(Sorvctl, WatchPrintsALineForEachChange) {
  ASSERT_TRUE(server.registers("db0"));
  const auto watcher = start({"watch", "--interval", "0.01"});
  ASSERT_TRUE(watcher->prints("came db0 "));
  ASSERT_TRUE(server.registers("db1"));
  ASSERT_TRUE(watcher->prints("came db1 "));
  ASSERT_EQ(tool({"set-state", "db1", "stopping"}).status, 0);
  ASSERT_TRUE(watcher->prints("changed db1 state=stopping\n"));
  ASSERT_EQ(tool({"set-alert", "db1", "disk full"}).status, 0);
  ASSERT_TRUE(watcher->prints("changed db1 alert=disk full\n"));
  server.unregisters("db1");
  ASSERT_TRUE(watcher->prints("went db1\n"));
  watcher->signal(SIGINT);
  EXPECT_EQ(watcher->wait(), 0);
  EXPECT_EQ(watcher->errors(), "");
}

TEST_F(Sorvctl, WatchPrintsAChangeAtOnceWhateverTheInterval) {
  const auto watcher = start({"watch", "--interval", "3600"});
  for (const std::string name : {"a|b", "c:d", "e f"}) {
    ASSERT_TRUE(server.registers(name));
    ASSERT_TRUE(watcher->prints("came " + name + " number="));
  }
  EXPECT_TRUE(watcher->isRunning());
}

TEST_F(Sorvctl, WatchAsJsonPrintsAnObjectALine) {
  ASSERT_TRUE(server.registers("db0"));
  const auto watcher = start({"watch", "--interval", "0.01", "--json"});
  ASSERT_TRUE(watcher->prints("\n"));
  watcher->signal(SIGTERM);
  EXPECT_EQ(watcher->wait(), 0);
  const auto line = nlohmann::json::parse(watcher->output());
  EXPECT_EQ(line["change"], "came");
  EXPECT_EQ(line["name"], "db0");
}

TEST_F(Sorvctl, WatchFailsWhenTheServerGoesAway) {
  ASSERT_TRUE(server.registers("db0"));
  const auto watcher = start({"watch", "--interval", "0.01"});
  ASSERT_TRUE(watcher->prints("came"));
  server.kill();
  EXPECT_EQ(watcher->wait(), 3);
}

TEST_F(Sorvctl, RefreshMarksAndForces) {
  EXPECT_EQ(tool({"refresh"}).status, 0);
  EXPECT_FALSE(server.ask({{"action", "changeTimestamp"}})->contains("force_refresh"));
  EXPECT_EQ(tool({"refresh", "--force"}).status, 0);
  EXPECT_EQ(server.ask({{"action", "changeTimestamp"}})->text("force_refresh"), "1");
}

TEST_F(Sorvctl, HostInfoTellsTheFiveFields) {
  nlohmann::json info = json({"host-info"});
  for (const char* field : {"version", "platform"}) {
    EXPECT_EQ(info.count(field), 1U) << field;
    info.erase(field);
  }
  EXPECT_EQ(info, (nlohmann::json{{"name", "testhost"},
                                  {"ethernetAddress", "02:00:00:00:00:01"},
                                  {"address", "192.0.2.10"}}));
  EXPECT_EQ(lineOf(tool({"host-info"}).output, "name"), "name             testhost");
}

TEST_F(Sorvctl, HostsOfAFreshServerAreNone) { EXPECT_EQ(json({"hosts"}), nlohmann::json::array()); }

TEST_F(Sorvctl, TerminateAndRestartSucceedWhenTheServerEnds) {
  for (const char* command : {"terminate", "restart"}) {
    const Outcome outcome = tool({command});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(server.waitForExit(), 0) << command;
    server.start();
  }
}

TEST_F(Sorvctl, PreferencesAreKept) {
  expectFailure(tool({"prefs", "get", "mary"}), 1, "no preferences are kept under \"mary\"");
  EXPECT_EQ(tool({"prefs", "set", "mary", "loginDisplay=list", "databases=db1=x"}).status, 0);
  EXPECT_EQ(tool({"prefs", "get", "mary"}).output, "loginDisplay  list\ndatabases     db1=x\n");
  EXPECT_EQ(json({"prefs", "get", "ann", "--fallback", "mary"})["databases"], "db1=x");
  EXPECT_EQ(tool({"prefs", "set", "mary"}).status, 0);
  EXPECT_EQ(tool({"prefs", "get", "mary"}).output, "") << "an empty entry is no missing one";
  EXPECT_EQ(tool({"prefs", "get", "mary"}).status, 0);
  expectFailure(tool({"prefs", "set", "mary", "color=red"}), 2, "color=red");
}

TEST_F(Sorvctl, ThePreferenceKeyIsToldUntilItIsSet) {
  EXPECT_EQ(tool({"prefs", "key"}).output, "group:application\n");
  EXPECT_EQ(tool({"prefs", "key", "set", "user:application"}).status, 0);
  expectFailure(tool({"prefs", "key"}), 1, "does not tell");
}

}  // namespace
}  // namespace sorvane::test
