// What `sorvctl doctor` finds about the process of the name server: its lock, its port, its
// connections.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "integration/PatientHost.h"
#include "platform/ProductVersion.h"
#include "support/RawConnection.h"
#include "support/ScriptedPeer.h"
#include "support/Terminal.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

// ---- The lock

class SorvctlDoctorLock : public DoctorTest {
 protected:
  [[nodiscard]] fs::path lock() const { return host->server.tree() / "lock/sorvinfo.lock"; }
};

TEST_F(SorvctlDoctorLock, ThatCannotBeOpenedKeepsEveryNameServerFromRunning) {
  host->startServer();
  fs::remove(lock());
  fs::create_directory(lock());
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"lock-unusable"});
  EXPECT_EQ(
      told.what("lock-unusable"),
      lock().string() + ", the lock of the name server, cannot be opened: it is no plain file");
}

TEST_F(SorvctlDoctorLock, ThatAStrangerHoldsIsToldWithItsName) {
  host->startServer();
  host->server.kill();
  const ForkedPart stranger([this](const ForkedPart& self) {
    const int file = open(lock().c_str(), O_RDWR);
    self.tell(flock(file, LOCK_EX | LOCK_NB) == 0 ? 1 : 0);
    pause();
  });
  ASSERT_EQ(stranger.hear(), 1);
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), (Ids{"lock-stranger", "server-not-running"}));
  EXPECT_NE(told.what("lock-stranger")
                .find("integration_tes (process " + std::to_string(stranger.process()) + ")"),
            std::string::npos)
      << told.what("lock-stranger");
}

TEST_F(SorvctlDoctorLock, ThatTheNameServerDoesNotHoldIsDoubtful) {
  host->startServer();
  fs::remove(lock());
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"lock-not-held"});
}

TEST_F(SorvctlDoctorLock, OfAnotherNameServerIsNotThatOfThisOne) {
  Daemon other;
  other.launch({"-noexit"}, [this] { network->enter(); });
  ASSERT_TRUE(comesToHold(other.tree() / "lock/sorvinfo.lock", "\n"));
  host->startServer();
  host->changeSettings("LockDirectory = \"" + (other.tree() / "lock").string() + "\";\n");
  EXPECT_EQ(host->examine().found(), Ids{"lock-not-held"});
}

// ---- The port

class SorvctlDoctorPort : public DoctorTest {
 protected:
  /// A program that is no sorvinfo, on a port of the host.
  void startStranger(const ScriptedPeer::Script& script) {
    onNetworkOf(*network, [&] { stranger.emplace(script); });
    host->reservePort(stranger->port());
  }
  [[nodiscard]] Ids strangerPort() const { return {"--port", std::to_string(stranger->port())}; }

  std::optional<ScriptedPeer> stranger;
};

TEST_F(SorvctlDoctorPort, WithoutANameServerIsWrong) {
  host->startServer();
  host->server.kill();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"server-not-running"});
}

TEST_F(SorvctlDoctorPort, OnWhichTheNameServerDoesNotListenIsWrong) {
  host->startServer();
  const Examination told = host->examine({"--port", std::to_string(host->server.basePort() - 1)});
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"server-other-port"});
}

TEST_F(SorvctlDoctorPort, ThatAnotherProgramHasTakenIsToldWithItsName) {
  host->startServer();
  host->server.kill();
  startStranger([](PeerConnection& client) {
    static_cast<void>(client.receiveRequest());
    client.send("HTTP/1.1 400 Bad Request\r\n\r\n");
  });
  const Examination told = host->examine(strangerPort());
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"port-taken"});
  EXPECT_NE(told.what("port-taken").find("integration_tes (process " + std::to_string(getpid())),
            std::string::npos)
      << told.what("port-taken");
}

TEST_F(SorvctlDoctorPort, ThatAProgramOfAnotherUserHasTakenIsToldWithTheUser) {
  host->startServer();
  host->server.kill();
  startStranger([](PeerConnection& client) { client.send("?"); });
  const Examination told = host->examine(strangerPort(), asUser(65002));
  EXPECT_EQ(told.found(), Ids{"port-taken"});
  EXPECT_NE(told.what("port-taken").find("a program of the user root"), std::string::npos)
      << told.what("port-taken");
  EXPECT_EQ(told.notLookedAt().front(),
            "port: which process listens on port " + std::to_string(stranger->port()));
}

TEST_F(SorvctlDoctorPort, AtWhichAStrangerAnswersAsANameServerIsDoubtful) {
  host->startServer();
  host->server.kill();
  startStranger([](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(frameOfBody(""));
    }
  });
  const Examination told = host->examine(strangerPort());
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"port-foreign"});
}

TEST_F(SorvctlDoctorPort, AtWhichAStrangerTellsAVeryLongVersionIsDoubtfulWithoutIt) {
  host->startServer();
  host->server.kill();
  startStranger([](PeerConnection& client) {
    static_cast<void>(client.receiveRequest());
    client.send(frameOfBody(""));
    static_cast<void>(client.receiveRequest());
    client.send(frameOfTexts({{"result", "n|e|a|" + std::string(100000, 'v') + "|p"}}));
  });
  const Examination told = host->examine(strangerPort());
  EXPECT_EQ(told.found(), Ids{"port-foreign"});
  EXPECT_EQ(told.seen("version"), "this command is " + productVersion());
}

TEST_F(SorvctlDoctorPort, AtWhichNobodySaysAnythingIsWaitedForWithALineOnTheTerminal) {
  startStranger([](PeerConnection& client) { client.waitForClose(); });
  Terminal terminal;
  Ids words = strangerPort();
  words.insert(words.end(), {"doctor", "--timeout", "10"});
  const Outcome outcome = host->sorvctl(words, [&terminal] {
    setenv("TERM", "xterm", 1);
    terminal.use({STDERR_FILENO});
  });
  EXPECT_EQ(outcome.status, 1) << outcome.output;
  EXPECT_TRUE(terminal.shows("looking at this host (1 s)")) << terminal.text();
}

TEST_F(SorvctlDoctorPort, AtWhichTheNameServerStaysSilentIsWrong) {
  host->startServer();
  ::kill(host->server.process(), SIGSTOP);
  const Examination told = host->examine({"--timeout", "5"});
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"server-silent"});
}

TEST_F(SorvctlDoctorPort, AmongThoseThatAnyConnectionMayGetIsDoubtfulUnlessReserved) {
  host->startServer();
  host->run("sh", {"-c", "echo 20000 40000 > /proc/sys/net/ipv4/ip_local_port_range"});
  EXPECT_EQ(host->examine().found(), Ids{"port-ephemeral"});
  host->reservePort(host->server.basePort());
  EXPECT_EQ(host->examine().found(), Ids());
}

// ---- The connections

class SorvctlDoctorConnections : public DoctorTest {
 protected:
  /// Connects to the name server that often, and keeps the connections.
  void connect(int times) {
    onNetworkOf(*network, [&] {
      for (int connection = 0; connection < times; ++connection) {
        connections.emplace_back(host->server.basePort());
        ASSERT_TRUE(connections.back().ask({{"ping", "ping"}}));
      }
    });
  }

  /// Waits until the name server has noticed that earlier connections have ended.
  void comeToBe(const std::string& count) const {
    EXPECT_TRUE(waitUntil([&] { return host->examine().seen("connections").starts_with(count); }));
  }

  std::vector<RawConnection> connections;
};

TEST_F(SorvctlDoctorConnections, ThatAreAllTakenAreWrong) {
  host->server.setting("MaxConnections", "4");
  host->startServer();
  connect(4);
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"connections-used-up"});
  EXPECT_EQ(told.what("connections-used-up").find("4 of 4 connections"), 0U);
}

TEST_F(SorvctlDoctorConnections, ThatAreNearlyAllTakenAreDoubtful) {
  host->server.setting("MaxConnections", "10");
  host->startServer();
  connect(9);
  comeToBe("9 of 10");
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"connections-scarce"});
}

TEST_F(SorvctlDoctorConnections, ThatLeaveRoomAreWell) {
  host->server.setting("MaxConnections", "10");
  host->startServer();
  connect(8);
  comeToBe("8 of 10");
  EXPECT_EQ(host->examine().found(), Ids());
}

TEST_F(SorvctlDoctorConnections, ThatTheLimitOfOpenFilesDoesNotAllowAreDoubtful) {
  host->server.setting("MaxConnections", "1000").setting("Threads", "2");
  host->startServer({"-noexit"}, [] {
    const rlimit limit{136, 136};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  const Examination told = host->examine();
  EXPECT_EQ(told.found(), Ids{"connections-unreachable"});
  EXPECT_EQ(told.what("connections-unreachable"),
            "MaxConnections = 1000, but the limit of 136 open files allows 100");
}

}  // namespace
}  // namespace sorvane::test
