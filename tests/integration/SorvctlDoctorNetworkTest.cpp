// What `sorvctl doctor` finds about addresses, names and other hosts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "integration/PatientHost.h"
#include "platform/Descriptor.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

// ---- The addresses

class SorvctlDoctorAddresses : public DoctorTest {};

TEST_F(SorvctlDoctorAddresses, OfLocalAccessAloneAreDoubtful) {
  host->server.setting("LocalAccessOnly", "YES");
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"local-only"});
  EXPECT_EQ(told.seen("addresses"), "the name server listens on 127.0.0.1");
}

TEST_F(SorvctlDoctorAddresses, OfLocalAccessThatTheSettingsDoNotWantAreWrong) {
  host->server.setting("LocalAccessOnly", "YES");
  host->startServer();
  host->changeSettings("LocalAccessOnly = NO;\n");
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"listens-on-loopback"});
  EXPECT_EQ(told.what("listens-on-loopback").find("the name server listens on 127.0.0.1 alone"),
            0U);
}

TEST_F(SorvctlDoctorAddresses, OfAllWhereTheSettingsWantLocalAccessAreDoubtful) {
  host->startServer();
  host->changeSettings("LocalAccessOnly = YES;\n");
  EXPECT_EQ(host->examine().found(), (Ids{"listens-on-all", "local-only"}));
}

TEST_F(SorvctlDoctorAddresses, OfIPv4AloneOnAHostWithIPv6AreDoubtful) {
  host->run("ip", {"-6", "address", "add", "2001:db8::7/64", "dev", "eth0", "nodad"});
  host->startServer({"-noexit"}, [] {
    setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libno_ipv6.so", 1);
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
  });
  const Examination told = host->examine();
  EXPECT_EQ(told.found(), Ids{"listens-without-ipv6"});
  EXPECT_EQ(told.what("listens-without-ipv6"),
            "the name server listens on 0.0.0.0, and this host has the IPv6 address 2001:db8::7");
}

TEST_F(SorvctlDoctorAddresses, OfIPv6WhereTheNameServerListensOnAllAreWell) {
  host->run("ip", {"-6", "address", "add", "2001:db8::7/64", "dev", "eth0", "nodad"});
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids());
}

TEST_F(SorvctlDoctorAddresses, OfAHostWithoutANetworkAreDoubtful) {
  host->run("ip", {"address", "flush", "dev", "eth0"});
  host->namesAre("127.0.1.1 dbhost\n");
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids{"network-missing"});
}

TEST_F(SorvctlDoctorAddresses, ThatTheSettingsNameAndThisHostLacksAreDoubtful) {
  host->server.setting("Address", "198.51.100.9");
  host->startServer();
  EXPECT_EQ(host->examine().found(), Ids{"address-elsewhere"});
}

// ---- The host's name

class SorvctlDoctorHostName : public DoctorTest {};

TEST_F(SorvctlDoctorHostName, ThatNobodyKnowsIsDoubtful) {
  host->namesAre("");
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"host-name-unresolved"});
}

TEST_F(SorvctlDoctorHostName, ThatTheResolverIsSlowToTellIsDoubtful) {
  host->startServer();
  Descriptor silent;  // takes questions and never replies
  onNetworkOf(*network, [&silent] {
    silent = openSocket(AF_INET, SOCK_DGRAM);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(silent.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  });
  host->namesAre("");
  host->askForNames("127.0.0.1");
  const Examination told = host->examine({"--timeout", "5"});
  EXPECT_EQ(told.found(), Ids{"host-name-slow"});
  EXPECT_EQ(told.what("host-name-slow").find("the name of this host, dbhost, was not resolved in "),
            0U);
}

TEST_F(SorvctlDoctorHostName, ThatMeansLoopbackAloneIsDoubtful) {
  host->namesAre("127.0.1.1 dbhost\n");
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"host-name-loopback"});
  EXPECT_EQ(told.what("host-name-loopback"),
            "the name of this host, dbhost, means 127.0.1.1, which only this host can reach");
}

TEST_F(SorvctlDoctorHostName, ThatMeansAnotherHostIsWrong) {
  host->namesAre("198.51.100.9 dbhost\n");
  host->startServer();
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"host-name-elsewhere"});
}

// ---- The name server host file

class SorvctlDoctorHostFile : public DoctorTest {
 protected:
  [[nodiscard]] fs::path file() const { return host->server.tree() / "Config/SorvNameServerHost"; }
  /// Another host, at the other end of a cable.
  void connectOtherHost() {
    network->run("ip", {"link", "delete", "eth0"});
    other = std::make_unique<NetworkNamespace>();
    connectByCable(*network, "192.0.2.7/24", *other, "192.0.2.8/24");
  }

  std::unique_ptr<NetworkNamespace> other;
};

TEST_F(SorvctlDoctorHostFile, ThatNamesThisHostIsWell) {
  host->startServer();
  for (const char* name : {"dbhost", "localhost", "192.0.2.7"}) {
    writeFile(file(), name);
    EXPECT_EQ(host->examine().found(), Ids()) << name;
  }
  host->namesAre("192.0.2.7 dbhost alias\n");
  writeFile(file(), "alias");
  EXPECT_EQ(host->examine().found(), Ids()) << "a name of the resolver's alone";
}

TEST_F(SorvctlDoctorHostFile, ThatCannotBeReadIsWrong) {
  host->startServer();
  fs::create_directory(file());
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"host-file-unreadable"});
}

TEST_F(SorvctlDoctorHostFile, ThatNamesNobodyIsDoubtful) {
  host->startServer();
  writeFile(file(), "# nobody yet\n");
  EXPECT_EQ(host->examine().found(), Ids{"host-file-empty"});
}

TEST_F(SorvctlDoctorHostFile, ThatNamesAHostWithANameServerExplainsWhyNoneRunsHere) {
  host->startServer();
  host->server.kill();
  connectOtherHost();
  std::optional<ScriptedPeer> peer;
  onNetworkOf(*other, [&peer] {
    peer.emplace(
        [](PeerConnection& client) {
          while (client.receiveRequest()) {
            client.send(frameOfBody(""));
          }
        },
        "192.0.2.8");
  });
  host->reservePort(peer->port());
  writeFile(file(), "192.0.2.8\n");
  const Examination told = host->examine({"--port", std::to_string(peer->port())});
  EXPECT_EQ(told.status, 1);
  EXPECT_EQ(told.found(), Ids{"host-file-elsewhere"}) << "and not that it must be started";
}

TEST_F(SorvctlDoctorHostFile, ThatNamesAHostWithoutANameServerIsDoubtful) {
  host->startServer();
  connectOtherHost();
  writeFile(file(), "192.0.2.8\n");
  const Examination told = host->examine();
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.found(), Ids{"host-file-silent"});
  EXPECT_NE(told.what("host-file-silent").find("names 192.0.2.8"), std::string::npos);
}

}  // namespace
}  // namespace sorvane::test
