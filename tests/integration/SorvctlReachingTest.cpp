// "wait", "url" and "exec".
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "integration/Sorvctl.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

class SorvctlWait : public Sorvctl {};

TEST_F(SorvctlWait, EndsAtOnceForWhatIsThere) {
  ASSERT_TRUE(server.registers("db1"));
  for (const Arguments& arguments :
       {Arguments{"wait", "db1"}, Arguments{"wait", "db1", "--state", "running"},
        Arguments{"wait", "db9", "--gone"}}) {
    const Outcome outcome = tool(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output + outcome.errors, "");
  }
}

TEST_F(SorvctlWait, EndsWhenTheDatabaseComes) {
  const auto waiting = start({"wait", "db1"});
  ASSERT_TRUE(server.registers("db1"));
  EXPECT_EQ(waiting->wait(), 0);
}

TEST_F(SorvctlWait, EndsWhenTheDatabaseHasTheState) {
  ASSERT_TRUE(server.registers("db1"));
  ASSERT_TRUE(server.registers("db2"));
  ASSERT_EQ(tool({"set-state", "db2", "stopping: 1|2"}).status, 0);
  const auto waiting = start({"wait", "db1", "--state", "stopping: 1|2"});
  ASSERT_EQ(tool({"set-state", "db1", "stopping"}).status, 0);
  EXPECT_TRUE(waiting->isRunning());
  ASSERT_EQ(tool({"set-state", "db1", "stopping: 1|2"}).status, 0);
  EXPECT_EQ(waiting->wait(), 0);
}

TEST_F(SorvctlWait, EndsWhenTheDatabaseIsGone) {
  ASSERT_TRUE(server.registers("db1"));
  const auto waiting = start({"wait", "db1", "--gone"});
  ASSERT_EQ(tool({"set-state", "db1", "stopping"}).status, 0);
  EXPECT_TRUE(waiting->isRunning());
  server.unregisters("db1");
  EXPECT_EQ(waiting->wait(), 0);
}

const std::string kNotFound = frameOfTexts({{"notFound", "notFound"}});
const std::string kFound = frameOfTexts({{"portNumber", "20222"}, {"portName", "db1"}});

/// A name server of an earlier version that gives these replies to the questions whether anything
/// has changed, the last of them again and again, and to all others what stands behind "/". It
/// notes the questions.
ScriptedPeer::Script answering(std::vector<std::string> changes, std::vector<std::string> others,
                               std::string& questions) {
  return [=, &questions](PeerConnection& client) {
    std::size_t change = 0;
    std::size_t other = 0;
    while (const auto request = client.receiveRequest()) {
      if (request->find("awaitPortChanges") != std::string::npos) {
        client.send(frameOfTexts({}));
      } else if (request->find("didPortsChange") != std::string::npos) {
        questions += "change ";
        client.send(frameOfTexts({{"result", changes[std::min(change++, changes.size() - 1)]}}));
      } else {
        questions += "find ";
        client.send(others[std::min(other++, others.size() - 1)]);
      }
    }
  };
}

TEST(SorvctlWaitsAtTheServer, LooksAgainOnlyAfterAChange) {
  std::string questions;
  ScriptedPeer peer(answering({"YES", "NO", "NO", "YES"}, {kNotFound, kFound}, questions));
  const Outcome outcome =
      run(builtProgram("sorvctl"), {"--port", std::to_string(peer.port()), "wait", "db1"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  ASSERT_TRUE(peer.finishes(2));
  EXPECT_EQ(questions, "change find change change change find ");
}

TEST(SorvctlWaitsAtTheServer, ComesBackWhenTheConnectionIsLost) {
  std::string questions;
  std::atomic<int> connections = 0;
  ScriptedPeer peer([&](PeerConnection& client) {
    if (connections++ == 0) {
      (void)client.receiveRequest();
    } else {
      answering({"YES"}, {kFound}, questions)(client);
    }
  });
  const Outcome outcome =
      run(builtProgram("sorvctl"), {"--port", std::to_string(peer.port()), "wait", "db1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.errors.find("; trying again\n"), std::string::npos) << outcome.errors;
  ASSERT_TRUE(peer.finishes(3));
  EXPECT_EQ(questions, "change find ");
}

TEST(SorvctlWaitsAtTheServer, EndsWithARefusal) {
  ScriptedPeer refusing([](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(nilFrame());
    }
  });
  expectFailure(
      run(builtProgram("sorvctl"), {"--port", std::to_string(refusing.port()), "wait", "db1"}), 1,
      "no reply");
}

TEST_F(SorvctlWait, IsStatusOneWhenTheTimeIsOver) {
  ASSERT_TRUE(server.registers("db1"));
  expectFailure(tool({"wait", "db9", "--timeout", "2"}), 1, "waiting for \"db9\"");
  expectFailure(tool({"wait", "db1", "--gone", "--timeout", "2"}), 1, "the end of \"db1\"");
  expectFailure(tool({"wait", "db1", "--state", "x", "--timeout", "2"}), 1, "state \"x\"");
}

TEST_F(SorvctlWait, ForAStateAndForTheEndIsWrongUsage) {
  expectFailure(tool({"wait", "db1", "--gone", "--state", "x"}), 2, "");
}

TEST(SorvctlWaitWithoutAServer, WaitsForTheServer) {
  Daemon server;
  Program waiting(builtProgram("sorvctl"),
                  {"--port", std::to_string(server.basePort()), "wait", "db1"});
  ASSERT_TRUE(waiting.complains("Connection refused; trying again\n"));
  server.start();
  ASSERT_TRUE(server.registers("db1"));
  EXPECT_EQ(waiting.wait(), 0);
}

TEST(SorvctlWaitWithoutAServer, IsStatusThreeWhenTheTimeIsOver) {
  const Outcome outcome = run(builtProgram("sorvctl"), {"--port", std::to_string(closedPort()),
                                                        "wait", "db1", "--timeout", "0.2"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_NE(outcome.errors.find("Connection refused"), std::string::npos) << outcome.errors;
}

TEST(SorvctlWaitWithASilentServer, GivesUpWhenTheTimeIsOver) {
  ScriptedPeer silent([](PeerConnection& client) { client.waitForClose(); });
  const Outcome outcome = run(builtProgram("sorvctl"), {"--port", std::to_string(silent.port()),
                                                        "wait", "db1", "--timeout", "0.2"});
  EXPECT_EQ(outcome.status, 3) << outcome.errors;
}

class SorvctlUrl : public Sorvctl {};

TEST_F(SorvctlUrl, NamesTheHostAndThePort) {
  ASSERT_TRUE(server.registers("db1", "dbhost"));
  const std::string number = std::to_string(server.basePort() + 1);
  EXPECT_EQ(tool({"url", "db1"}).output, "tcp://dbhost:" + number + "/\n");
  EXPECT_EQ(tool({"url", "db1", "--format", "{host} {number} {address} {port}"}).output,
            "dbhost " + number + " localhost {port}\n");
  EXPECT_EQ(tool({"url", "db1", "--format", "C:\\{host}\té"}).output, "C:\\dbhost\té\n");
  EXPECT_EQ(json({"url", "db1"}),
            (nlohmann::json{{"name", "db1"}, {"url", "tcp://dbhost:" + number + "/"}}));
  expectFailure(tool({"url", "db9"}), 1, "no port is registered as \"db9\"");
}

TEST_F(SorvctlUrl, TakesTheHostThatWasAskedForALoopbackName) {
  ASSERT_TRUE(server.registers("db1", "localhost"));
  const std::string port = std::to_string(server.basePort());
  EXPECT_EQ(run(builtProgram("sorvctl"),
                {"--host", "127.0.0.1:" + port, "url", "db1", "--format", "{host}"})
                .output,
            "127.0.0.1\n");
}

class SorvctlExec : public Sorvctl {};

TEST_F(SorvctlExec, HandsHostAndPortToTheProgramAndGivesItsStatus) {
  ASSERT_TRUE(server.registers("db1", "dbhost"));
  const Outcome outcome = tool({"exec", "db1", "--", "sh", "-c", "echo \"$@\"; exit 7", "-",
                                "--at={host}:{number}", "{address}", "[{host},{}]", "--", "-5"});
  EXPECT_EQ(outcome.status, 7);
  EXPECT_EQ(outcome.output, "--at=dbhost:" + std::to_string(server.basePort() + 1) +
                                " localhost [dbhost,{}] -- -5\n");
}

TEST_F(SorvctlExec, IsReplacedByTheProgram) {
  ASSERT_TRUE(server.registers("db1"));
  const char* const script = "echo $$; ls /proc/self/fd | wc -l; exec sleep 600";
  const auto program = start({"exec", "db1", "--", "sh", "-c", script});
  // No descriptor is left of what sorvctl has opened.
  const std::string descriptors = run("/bin/sh", {"-c", "ls /proc/self/fd | wc -l"}).output;
  ASSERT_TRUE(program->prints("\n" + descriptors)) << program->output();
  EXPECT_EQ(program->output(), std::to_string(program->process()) + "\n" + descriptors);
  program->signal(SIGTERM);
  EXPECT_EQ(program->wait(), 128 + SIGTERM);
}

TEST_F(SorvctlExec, FailsWithoutTheDatabaseOrTheProgram) {
  expectFailure(tool({"exec", "db9", "--", "true"}), 1, "no port is registered as \"db9\"");
  ASSERT_TRUE(server.registers("db1"));
  expectFailure(tool({"exec", "db1", "--", "/nonexistent/program"}), 127, "/nonexistent/program: ");
  expectFailure(tool({"exec", "db1"}), 2, "COMMAND");
}

// What the name server tells goes into command lines and shells.
TEST(SorvctlUrlAndExec, RefuseAHostThatCannotBeOne) {
  for (const char* host : {"-oProxyCommand=sh", "a b", "$(id)", "a;b", "a\nb", "a/b", "é"}) {
    ScriptedPeer peer([host](PeerConnection& client) {
      while (client.receiveRequest()) {
        client.send(
            frameOfTexts({{"portNumber", "20222"}, {"portName", "db1"}, {"portHost", host}}));
      }
    });
    const std::string port = std::to_string(peer.port());
    expectFailure(run(builtProgram("sorvctl"), {"--port", port, "url", "db1"}), 1, "cannot be one");
    expectFailure(
        run(builtProgram("sorvctl"), {"--port", port, "exec", "db1", "--", "echo", "{host}"}), 1,
        "cannot be one");
  }
}

}  // namespace
}  // namespace sorvane::test
