// Everything that the name server does still works when it is confined as its unit says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/VNHost.h"
#include "service/Confined.h"
#include "support/NotifySocket.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

/// Empty without a reply, and for a reply without that text.
std::string textOf(const std::optional<Message>& reply, std::string_view key) {
  return std::string(reply ? reply->text(key).value_or("") : "");
}

TEST_F(Confined, UnitHasNoDirectiveThatThisTestDoesNotKnow) {
  EXPECT_EQ(ConfinedHost::unknownDirectives(), std::vector<std::string>());
}

TEST_F(Confined, NameServerServesKeepsPreferencesAndWritesItsLog) {
  NotifySocket manager(NotifySocket::Kind::abstractName);
  start(manager.environment("3000000"));
  ASSERT_TRUE(manager.hears("READY=1")) << server_->errors();
  NetConnection database;
  ASSERT_TRUE(database.connectToPort("127.0.0.1", ports_.base()));
  ASSERT_TRUE(database.sendDictionary(
      {{"newPort", ""}, {"portName", "db1"}, {"portHost", "dbhost"}, {"portType", "database"}}));
  ASSERT_TRUE(database.sendDictionary({{"acceptPort", ""}}));
  EXPECT_NE(textOf(ask({{"findPort", "db1"}, {"portHost", "localhost"}}), "portNumber"), "");
  // The addresses are those that netlink tells outside, too.
  EXPECT_THAT(textOf(ask({{"action", "hostInfo"}, {"hostAddress", "localhost"}}), "result"),
              testing::HasSubstr("|" + VNHost::currentHost().address() + "|"));

  EXPECT_EQ(textOf(ask({{"action", "set_userpreferences"}, {"key", "anna"}, {"databases", "db1"}}),
                   "result"),
            "succeed");
  EXPECT_THAT(readFile((*host_)["/var/lib/sorvane/Users/SorvPreferences"]),
              testing::HasSubstr("anna"));
  // A request that raises is written to the log.
  EXPECT_FALSE(ask({{"findPort", "db1"}}));
  EXPECT_TRUE(comesToHold((*host_)["/var/log/sorvane/infoserver_log"], "Exception detected."));
  EXPECT_EQ(readFile((*host_)["/run/lock/sorvinfo.lock"]),
            std::to_string(server_->process()) + "\n");
  EXPECT_TRUE(manager.hears("WATCHDOG=1"));

  static_cast<void>(ask({{"terminate", ""}}));
  EXPECT_TRUE(manager.hears("STOPPING=1"));
  EXPECT_EQ(server_->wait(), 0) << server_->errors();
}

TEST_F(Confined, NameServerOverWhichAnotherProcessKeepsWatchServesAgainAfterItsDeath) {
  writeSettings("SurviveCrashes = YES;\n");
  NotifySocket manager(NotifySocket::Kind::abstractName);
  start(manager.environment("3000000"));
  ASSERT_TRUE(manager.hears("READY=1")) << server_->errors();
  const std::string watching = std::to_string(server_->process());
  const std::string serving = readFile("/proc/" + watching + "/task/" + watching + "/children");
  ASSERT_NE(serving, "") << server_->errors();
  ASSERT_EQ(kill(std::stoi(serving), SIGKILL), 0);
  ASSERT_TRUE(manager.hears("READY=1")) << server_->errors();
  EXPECT_EQ(readFile((*host_)["/run/lock/sorvinfo.lock"]), watching + "\n");
  static_cast<void>(ask({{"terminate", ""}}));
  EXPECT_TRUE(manager.hears("STOPPING=1"));
  EXPECT_EQ(server_->wait(), 0) << server_->errors();
}

TEST_F(Confined, NameServerWritesToTheSystemsLog) {
  writeSettings("NoSuchSetting = YES;\n");
  // A datagram socket, like that of the service manager.
  NotifySocket log;
  fs::rename(log.name(), (*host_)["/run/systemd/journal/dev-log"]);
  ASSERT_EQ(chmod((*host_)["/run/systemd/journal/dev-log"].c_str(), 0666), 0);
  start([] {});
  EXPECT_THAT(log.receive(), testing::Optional(testing::HasSubstr("NoSuchSetting")));
}

TEST_F(Confined, NameServerStartsTheProgramThatItNeeds) {
  // Names this host, so that the name server serves; it lets everybody read the file by chmod.
  const fs::path file = (*host_)["/var/lib/sorvane/Config/SorvNameServerHost"];
  writeFile(file, "localhost\n");
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  ASSERT_EQ(chown(file.c_str(), host_->user(), host_->group()), 0);
  NotifySocket manager(NotifySocket::Kind::abstractName);
  start(manager.environment());
  ASSERT_TRUE(manager.hears("READY=1")) << server_->errors();
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
}

// An upgrade in place: a memory file and a socket survive the execution of another program.
TEST_F(Confined, ProcessGoesOnAsAnotherProgramWithWhatItHandsOn) {
  const Outcome told = shellInside(
      "exec python3 -c '\n"
      "import os, signal, socket, sys\n"
      "if len(sys.argv) == 1:\n"
      "  signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR2])\n"
      "  os.kill(os.getpid(), signal.SIGUSR2)\n"
      "  assert signal.sigwait([signal.SIGUSR2]) == signal.SIGUSR2\n"
      "  kept = os.memfd_create(\"kept\")\n"
      "  os.write(kept, b\"what was kept\")\n"
      "  listener = socket.create_server((\"127.0.0.1\", 0))\n"
      "  handed = [kept, listener.fileno()]\n"
      "  for each in handed: os.set_inheritable(each, True)\n"
      "  os.execv(sys.executable, sys.orig_argv + [str(each) for each in handed])\n"
      "kept, listener = map(int, sys.argv[1:])\n"
      "listener = socket.socket(fileno=listener)\n"
      "socket.create_connection(listener.getsockname())\n"
      "listener.accept()\n"
      "print(os.pread(kept, 99, 0).decode())'");
  EXPECT_EQ(told.output, "what was kept\n") << told.errors;
  EXPECT_EQ(told.status, 0);
}

// ---- The walls themselves

TEST_F(Confined, ProcessIsTheUnitsUserWithoutPrivileges) {
  const Outcome told = shellInside("id -u; grep -E '^(Cap|NoNewPrivs|Seccomp:)' /proc/self/status");
  EXPECT_EQ(told.output, std::to_string(host_->user()) +
                             "\nCapInh:\t0000000000000000\nCapPrm:\t0000000000000000\n"
                             "CapEff:\t0000000000000000\nCapBnd:\t0000000000000000\n"
                             "CapAmb:\t0000000000000000\nNoNewPrivs:\t1\nSeccomp:\t2\n")
      << told.errors;
}

TEST_F(Confined, ProcessWritesOnlyWhereTheUnitSays) {
  const Outcome told = shellInside(
      "for folder in / /etc /etc/sorvane /usr/bin /var/lib /program /run /dev /sys; do\n"
      "  touch $folder/x 2> /dev/null && echo $folder\n"
      "done\n"
      "for folder in /var/lib/sorvane /var/log/sorvane /run/lock /tmp; do\n"
      "  touch $folder/x || echo $folder\n"
      "done");
  EXPECT_EQ(told.output, "") << told.errors;
  EXPECT_FALSE(fs::exists((*host_)["/tmp/x"])) << "that folder is its own";
}

TEST_F(Confined, ProcessSeesNoOtherProcessAndNothingOfTheSystemInProc) {
  const Outcome told = shellInside("ls -d /proc/1 /proc/sys /proc/meminfo /proc/self");
  EXPECT_EQ(told.output, "/proc/self\n");
}

TEST_F(Confined, ProcessThatMakesARefusedSystemCallEnds) {
  constexpr int kBadSystemCall = 128 + 31;
  for (const char* const command : {"exec unshare --user true", "exec chown 0 /tmp",
                                    "exec nice -n 1 true", "touch /tmp/x; exec chmod u+s /tmp/x",
                                    "exec python3 -c 'import socket; "
                                    "socket.socket(socket.AF_PACKET, socket.SOCK_RAW)'",
                                    "exec python3 -c 'import mmap; mmap.mmap(-1, 4096, prot=7)'"}) {
    const Outcome told = shellInside(command);
    EXPECT_EQ(told.status, kBadSystemCall) << command << told.output << told.errors;
  }
  EXPECT_EQ(shellInside("exec true").status, 0);
}

}  // namespace
}  // namespace sorvane::test
