// The registry as clients of the real name server see it on the wire.
#include <gtest/gtest.h>

#include "integration/Daemon.h"

namespace sorvane::test {
namespace {

std::string textsBody(std::initializer_list<std::pair<std::string_view, std::string_view>> texts) {
  return frameOfTexts(texts).substr(8);
}

std::string number(const Daemon& server, int above) {
  return std::to_string(server.basePort() + above);
}

const Message kNewDb1({{"newPort", ""}, {"portName", "db1"}, {"portHost", "h"}, {"portType", "t"}});

TEST(Registry, HandsOutNumbersAboveTheBasePortAndTheOneBelowToALauncher) {
  Daemon server;
  server.start();
  RawConnection client = server.rawConnection();
  const auto asks = [&](std::string_view name) {
    return client
        .ask(Message({{"newPort", ""}, {"portName", name}, {"portHost", "h"}, {"portType", "t"}}))
        ->body;
  };
  EXPECT_EQ(asks("db1"), textsBody({{"portNumber", number(server, 1)}}));
  EXPECT_EQ(asks("SORVEXEC"), textsBody({{"portNumber", number(server, -1)}}));
  EXPECT_EQ(asks("db2"), textsBody({{"portNumber", number(server, 2)}}));
}

TEST(Registry, AnswersFindPortInItsOrderWithTheAskersOwnAddress) {
  Daemon server;
  server.start();
  RawConnection database = server.rawConnection();
  ASSERT_TRUE(database.ask(kNewDb1));
  const std::string accept = entry("acceptPort", std::string("\x01\0\xff", 3)) + entry("z", "");
  ASSERT_TRUE(database.send(frameOfBody(accept)));
  EXPECT_EQ(database.receiveFrame()->body, accept) << "the request's very bytes";
  RawConnection client = server.rawConnection();
  EXPECT_EQ(client.ask(Message({{"findPort", "db1"}, {"portHost", "me"}}))->body,
            textsBody({{"portNumber", number(server, 1)},
                       {"portName", "db1"},
                       {"portHostAddress", "me"},
                       {"portHost", "h"},
                       {"portType", "t"}}));
  EXPECT_EQ(client.ask(Message({{"findPort", "DB1"}, {"portHost", "me"}}))->body,
            textsBody({{"notFound", "notFound"}}));
  database.close();
  EXPECT_TRUE(waitUntil([&] { return !server.finds("db1"); }))
      << "an entry goes with its connection";
}

TEST(Registry, ARequestWithSeveralCommandsBelongsToTheEarliestRule) {
  Daemon server;
  server.start();
  RawConnection client = server.rawConnection();
  const std::string notFound = textsBody({{"notFound", "notFound"}});
  Message all({{"action", "databaseStates"},
               {"findPort", "nobody"},
               {"portHost", "h"},
               {"terminate", ""},
               {"acceptPort", ""},
               {"newPort", ""},
               {"portName", "n"},
               {"portType", "t"}});
  EXPECT_EQ(client.ask(all)->body, notFound) << "find before accept, terminate and all others";
  all.setText("reconnectPort", "moved").setText("portNumber", "7");
  EXPECT_EQ(client.ask(all)->body, all.body()) << "reconnect before find";
  EXPECT_TRUE(server.finds("moved"));
  EXPECT_EQ(client
                .ask(Message({{"newPort", ""},
                              {"portName", "n"},
                              {"portHost", "h"},
                              {"portType", "t"},
                              {"action", "databaseStates"}}))
                ->body,
            textsBody({{"portNumber", number(server, 1)}}))
      << "new port before every action but restart";
  all.setText("ping", "");
  EXPECT_EQ(client.ask(all)->body, "") << "ping before all";
  EXPECT_EQ(client.ask(Message({{"action", "terminate"}}))->body, "") << "no command word";
}

TEST(Registry, ACommandThatRaisesAnswersNilIsReportedAndChangesNothing) {
  Daemon server;
  server.start();
  RawConnection client = server.rawConnection();
  Message bad({{"newPort", ""}, {"portName", "db1"}, {"portHost", "h"}, {"portType", "t"}});
  for (const std::string_view value : {std::string_view(), std::string_view("\xff\0", 2)}) {
    bad.setData("portType", value);
    EXPECT_EQ(client.ask(bad)->kind, 0);
  }
  EXPECT_EQ(client.ask(Message({{"acceptPort", ""}}))->kind, 0) << "no name yet";
  EXPECT_EQ(client.ask(Message({{"findPort", "db1"}}))->kind, 0) << "no portHost";
  EXPECT_EQ(client.ask(Message({{"newPort", ""}, {"portName", "db1"}, {"portHost", "h"}}))->body,
            "")
      << "without a type it is no new-port request";
  EXPECT_EQ(client.ask(kNewDb1)->body, textsBody({{"portNumber", number(server, 1)}}))
      << "no number was spent";
  EXPECT_TRUE(server.logs(
      "Exception detected. Command could not be executed\n{\n    acceptPort = \"\";\n}\n"));
  EXPECT_TRUE(server.complains("Exception detected. Command could not be executed\n"));
}

TEST(Registry, ServesThisMachineAloneWhenToldSo) {
  Daemon server;
  server.setting("LocalAccessOnly", "YES").setting("Address", "");
  server.start();
  ASSERT_TRUE(server.registers("db1"));
  RawConnection client = server.rawConnection();
  const auto kind = [&](std::string_view address) {
    return client
        .ask(Message({{"findPort", "db1"}, {"portHost", "h"}, {"portHostAddress", address}}))
        ->kind;
  };
  EXPECT_EQ(kind("10.0.0.5"), 0);
  EXPECT_EQ(kind("localhost"), 1);
  EXPECT_EQ(kind("127.0.0.1"), 1);
}

TEST(Registry, MarksItsWatchersAndShowsStatesAndAlerts) {
  Daemon server;
  server.start();
  RawConnection tool = server.rawConnection();
  const auto changed = [&] {
    return std::string(
        *tool.ask(Message({{"action", "DIDPORTSCHANGE"}}))->message().text("result"));
  };
  EXPECT_EQ(changed(), "YES");
  EXPECT_EQ(changed(), "NO");
  ASSERT_TRUE(server.registers("db1"));
  EXPECT_EQ(changed(), "YES");
  EXPECT_EQ(tool.ask(Message({{"action", "setDatabaseState"},
                              {"databaseName", "db1"},
                              {"state", "stopping"}}))
                ->body,
            textsBody({{"result", "success"}}));
  EXPECT_EQ(
      tool.ask(Message(
                   {{"action", "setAlertState"}, {"databaseName", "db1"}, {"state", "disk full"}}))
          ->body,
      textsBody({{"result", "success"}}));
  EXPECT_EQ(tool.ask(Message({{"action", "setAlertState"}, {"databaseName", "db1"}}))->body,
            textsBody({{"result", "failed"}}));
  EXPECT_EQ(tool.ask(Message({{"action", "databaseStates"}}))->body,
            textsBody({{"result", "db1:stopping"}, {"alerts", "db1:disk full"}}));
  server.unregisters("db1");
  EXPECT_EQ(tool.ask(Message({{"action", "databaseStates"}}))->body,
            textsBody({{"result", ""}, {"alerts", ""}}));
}

TEST(Registry, EndsWithStatusZeroWhenAskedTo) {
  for (const Message& request : {Message({{"terminate", ""}}), Message({{"action", "Restart"}})}) {
    Daemon server;
    server.start();
    RawConnection client = server.rawConnection();
    ASSERT_TRUE(client.send(frame(request)));
    EXPECT_EQ(server.waitForExit(), 0);
    EXPECT_NE(server.log().find("sorvinfo was asked to "), std::string::npos);
  }
}

}  // namespace
}  // namespace sorvane::test
