// A start that meets an obstacle: a port in use, no place for the log, settings that are wrong,
// files that cannot grow.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <string_view>

#include "integration/Daemon.h"
#include "integration/Preferences.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

// ---- The port

TEST(PortInUse, CostsThreeMessagesAndEndsWithStatusZero) {
  Daemon first;
  first.start();
  Daemon second;
  second.setting("BasePort", std::to_string(first.basePort()));
  second.launch();
  EXPECT_EQ(second.waitForExit(), 0);
  const std::string message = "nameserver could not connect to socket";
  EXPECT_EQ(second.standardOutput(), message);
  EXPECT_EQ(second.console(),
            "sorvinfo[" + std::to_string(second.process()) + "]: " + message + "\n");
  EXPECT_EQ(second.log(), message + "\n");
  EXPECT_TRUE(first.registers("db1")) << "the first one serves on";
}

TEST(PortInUse, EndsWithStatusZeroEvenWhenNobodyReadsWhatIsPrinted) {
  Daemon first;
  first.start();
  Daemon second;
  second.setting("BasePort", std::to_string(first.basePort()));
  second.launch({"-noexit"}, [] {
    int unread[2];
    if (pipe(unread) != 0 || dup2(unread[1], STDOUT_FILENO) < 0 ||
        dup2(unread[1], STDERR_FILENO) < 0) {
      _exit(125);
    }
    close(unread[0]);
    close(unread[1]);
  });
  EXPECT_EQ(second.waitForExit(), 0);
  EXPECT_EQ(second.log(), "nameserver could not connect to socket\n");
}

TEST(PortInUse, IsFreeAgainAsSoonAsItsNameServerIsGone) {
  Daemon server;
  server.start();
  ASSERT_TRUE(server.registers("db1"));
  server.kill();
  server.start();
  EXPECT_FALSE(server.finds("db1")) << "nothing of the registry survives";
}

// ---- The log

TEST(MissingLogFolder, CostsOneConsoleLineAndTheServerRuns) {
  Daemon server;
  std::filesystem::remove(server.tree() / "Logs");
  server.start();
  EXPECT_TRUE(server.registers("db1"));
  EXPECT_FALSE(server.ask({{"findPort", "db1"}})) << "without a log a command may raise, too";
  EXPECT_TRUE(server.complains("Exception detected."));
  EXPECT_EQ(timesIn(server.console(), "Could not open nameserver log file\n"), 1);
  EXPECT_FALSE(std::filesystem::exists(server.tree() / "Logs"));
}

TEST(Log, OfASecondRunFollowsThatOfTheFirst) {
  Daemon server;
  server.start({"-verbose"});
  ASSERT_TRUE(server.logs("succeeded. \n"));
  EXPECT_FALSE(server.ask({{"findPort", "x"}}));
  ASSERT_TRUE(server.logs("Exception detected."));
  const std::string first = server.log();
  server.kill();
  server.start({"-verbose"});
  EXPECT_TRUE(waitUntil([&] { return server.log() == first + "succeeded. \n"; })) << server.log();
}

// ---- The settings

struct WrongSettings {
  const char* what;
  const char* key;
  const char* value;
  int line;  // the settings of a test are written in the order of their keys
  const char* reason;
};

void PrintTo(const WrongSettings& wrong, std::ostream* out) { *out << wrong.what; }

class WrongSetting : public testing::TestWithParam<WrongSettings> {};

TEST_P(WrongSetting, CostsOneLineWithFileLineAndReasonAndEndsWithStatusZero) {
  Daemon server;
  server.setting(GetParam().key, GetParam().value);
  server.launch();
  EXPECT_EQ(server.waitForExit(), 0);
  EXPECT_EQ(server.console(), "sorvinfo[" + std::to_string(server.process()) +
                                  "]: " + (server.tree() / "etc/sorvane.conf").string() + ":" +
                                  std::to_string(GetParam().line) + ": " + GetParam().reason +
                                  "\n");
  EXPECT_FALSE(std::filesystem::exists(server.tree() / "Logs/infoserver_log"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, WrongSetting,
    testing::Values(
        WrongSettings{"NoNumber", "BasePort", "many", 2,
                      "BasePort: a whole number from 2 to 65534 is needed"},
        WrongSettings{"NoPort", "BasePort", "65535", 2,
                      "BasePort: a whole number from 2 to 65534 is needed"},
        WrongSettings{"NeitherYesNorNo", "BonjourDisabled", "maybe", 3,
                      "BonjourDisabled: YES or NO is needed"},
        WrongSettings{"NoText", "HostName", "( a, b )", 6, "HostName: a text is needed"},
        WrongSettings{"OpenString", "Zone", "\"never closed", 8,
                      "the string that begins here does not end (column 8)"},
        WrongSettings{"NoSemicolon", "MaxConnections", "1 2", 8,
                      "\";\" after the value should be here instead of \"2\" (column 20)"}),
    [](const auto& each) { return each.param.what; });

TEST(UnknownSettings, CostOneLineEachAndAreIgnored) {
  Daemon server;
  server.setting("Zebra", "( 1, 2 )").setting("baseport", "7");
  server.start();
  const std::string console = server.console();
  EXPECT_EQ(timesIn(console, "\n"), 2) << console;
  EXPECT_EQ(timesIn(console, "sorvane.conf:8: the unknown setting Zebra is ignored\n"), 1)
      << console;
  EXPECT_EQ(timesIn(console, "sorvane.conf:9: the unknown setting baseport is ignored\n"), 1)
      << console;
}

// ---- Who is served

bool isServedAt(const Daemon& server, const char* address) {
  NetConnection client;
  return client.connectToPort(address, server.basePort()) &&
         client.sendDictionary({{"ping", ""}}).has_value();
}

TEST(LocalAccessOnly, ServesOneAddressAndSaysSo) {
  Daemon server;
  server.setting("LocalAccessOnly", "YES").setting("Address", "");
  server.start({"-verbose"});
  EXPECT_EQ(server.standardOutput(), "isLocalAccessOnly = 1\n");
  EXPECT_TRUE(isServedAt(server, "127.0.0.1"));
  EXPECT_FALSE(isServedAt(server, "127.0.0.2"));
  EXPECT_FALSE(isServedAt(server, "::1"));
}

TEST(AccessForAll, ServesEveryAddressOfBothFamiliesAndSaysSo) {
  Daemon server;
  server.start({"-verbose"});
  EXPECT_EQ(server.standardOutput(), "isLocalAccessOnly = 0\n");
  EXPECT_TRUE(isServedAt(server, "127.0.0.1"));
  EXPECT_TRUE(isServedAt(server, "127.0.0.2"));
  EXPECT_TRUE(isServedAt(server, "::1"));
}

TEST(HostWithoutIPv6, IsServedOverIPv4) {
  Daemon server;
  server.launch({"-noexit"}, [] {
    ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libno_ipv6.so", 1);
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
  });
  ASSERT_TRUE(server.answers()) << server.console();
  EXPECT_TRUE(isServedAt(server, "127.0.0.2"));
  EXPECT_FALSE(isServedAt(server, "::1")) << "the host has IPv6 all the same";
}

// ---- A system that has nothing left to give

// The watcher thread, the three for what may wait, and two of the three that serve.
class FewThreads : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Left, FewThreads, testing::Range(0, 6));
TEST_P(FewThreads, EndTheStartWithStatusZeroAndALine) {
  Daemon server;
  server.setting("Threads", "3");
  server.launch({"-noexit"}, [] {
    ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libfew_threads.so", 1);
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    ::setenv("SORVANE_TEST_THREADS", std::to_string(GetParam()).c_str(), 1);
  });
  EXPECT_EQ(server.waitForExit(), 0);
  const std::string message = "the name server cannot serve: Resource temporarily unavailable\n";
  EXPECT_EQ(server.console(), "sorvinfo[" + std::to_string(server.process()) + "]: " + message);
  EXPECT_EQ(server.log(), message);
}

// Too few for three threads that serve. Which of the others is left without one is a matter of
// luck: the process lock's is opened at the same time.
class FewDescriptors : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Limit, FewDescriptors, testing::Range(6, 11));
TEST_P(FewDescriptors, EndTheStartWithStatusZeroAndNothingButLines) {
  if (testedSanitizers().find("undefined") != std::string::npos) {
    GTEST_SKIP() << "this sanitizer opens a pipe to look at memory, and reports what it cannot see";
  }
  Daemon server;
  server.setting("Threads", "3");
  server.launch({"-noexit"}, [] {
    for (int inherited = STDERR_FILENO + 1; inherited < 64; ++inherited) {
      ::close(inherited);
    }
    const rlimit limit{static_cast<rlim_t>(GetParam()), static_cast<rlim_t>(GetParam())};
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  EXPECT_EQ(server.waitForExit(), 0) << server.console();
  EXPECT_GT(timesIn(server.console(), "\n"), 0);
  EXPECT_EQ(timesIn(server.console(), "\n"), timesIn(server.console(), "sorvinfo["))
      << server.console();
}

// ---- Files that cannot grow

TEST(FileSizeLimit, LosesLinesOfTheLogAndTheStoringOfPreferencesAndNothingElse) {
  constexpr rlim_t kLimit = 20000;
  Daemon server;
  server.launch({"-verbose"}, [] {
    const rlimit limit{kLimit, kLimit};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
  ASSERT_TRUE(server.answers());
  PreferenceClient client(server);
  client.sets("anna", {{"databases", "db1"}});
  const std::string before = readFile(preferenceFile(server));
  const std::string large(2 * kLimit, 'x');
  client.sets("bert", {{"databases", large}});
  EXPECT_EQ(readFile(preferenceFile(server)), before) << "the file stays whole";
  EXPECT_EQ(filesBesidePreferences(server), 0);
  EXPECT_EQ(client.gets("bert"), (Texts{{"databases", large}}));
  for (int i = 0; i < 10; ++i) {  // each is logged
    EXPECT_FALSE(server.finds(std::string(kLimit / 4, 'n')));
  }
  EXPECT_EQ(server.log().size(), kLimit);
  EXPECT_TRUE(server.registers("db1"));
}

}  // namespace
}  // namespace sorvane::test
