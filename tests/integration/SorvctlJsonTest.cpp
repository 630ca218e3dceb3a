// What sorvctl prints with --json, and docs/json.md.
#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>

#include "integration/Client.h"
#include "integration/JsonDocument.h"
#include "integration/Sorvctl.h"
#include "integration/UpgradeHost.h"
#include "support/Documents.h"
#include "support/ScriptedPeer.h"
#include "support/TestFiles.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

/// The commands of the table in README.md, which is that of `sorvctl --help`: another test holds
/// them together.
Names allCommands() {
  Names names;
  for (const std::string& line : chapter(documentLines(fs::path(SORVANE_SOURCE_DIR) / "README.md"),
                                         "## The commands of sorvctl")) {
    if (const std::string name = commandIn(line, "| "); !name.empty()) {
      names.insert(name);
    }
  }
  return names;
}

TEST(DocumentOfJson, HasEachCommandInOnePlace) {
  Names documented = silentCommands();
  EXPECT_FALSE(documented.empty());
  for (const std::string& name : commandsWithSchemas()) {
    EXPECT_TRUE(documented.insert(name).second) << name << " prints nothing, and has a schema";
  }
  documented.insert("top");  // for people alone
  EXPECT_EQ(documented, allCommands());
}

/// Runs the commands and keeps the values that they print.
class SorvctlJson : public Sorvctl {
 protected:
  /// Runs a command that prints at least one value.
  void prints(const std::string& name, const Arguments& arguments = {}) {
    keep(name, tool(whole(name, arguments)));
  }
  void keep(const std::string& name, const Outcome& outcome) {
    EXPECT_EQ(outcome.status, 0) << name << ": " << outcome.errors;
    const auto lines = printedLines(outcome.output);
    EXPECT_FALSE(lines.empty()) << name;
    values[name].insert(values[name].end(), lines.begin(), lines.end());
  }

  /// Runs a command that prints nothing.
  void isSilent(const std::string& name, const Arguments& arguments = {}) {
    keepSilent(name, tool(whole(name, arguments)));
  }
  void keepSilent(const std::string& name, const Outcome& outcome) {
    EXPECT_EQ(outcome.status, 0) << name << ": " << outcome.errors;
    EXPECT_EQ(outcome.output, "") << name;
    silent.insert(name);
  }

  static Arguments whole(const std::string& name, const Arguments& arguments) {
    std::istringstream words(name);
    Arguments all{"--json"};
    for (std::string word; words >> word;) {
      all.push_back(word);
    }
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }

  /// The commands about the defaults of this host, in a tree with a launcher of their own.
  void runDefaults() {
    TemporaryFolder tree;
    const fs::path program = tree / "bin/sorvctl";
    fs::create_directory(program.parent_path());
    fs::copy_file(builtProgram("sorvctl"), program);
    writeFile(tree / "Config/SorvDefaults", "{ Date = 3; Time = 1; }");
    ScriptedPeer launcher([](PeerConnection& client) {
      (void)client.receiveRequest();
      client.send(frameOfTexts({{"result", "SUCCEED"}}));
    });
    keep("defaults list", run(program, whole("defaults list", {})));
    keep("defaults get", run(program, whole("defaults get", {"Date"})));
    Outcome set =
        run(program,
            whole("defaults set", {"Date", "4", "--port", std::to_string(launcher.port() + 1)}),
            "password\n");
    // The library prints the reply of the launcher.
    EXPECT_EQ(set.output.rfind("writeDefaultDictionary RETURN = ", 0), 0U) << set.output;
    set.output.clear();
    keepSilent("defaults set", set);
  }

  /// The name servers on the network, without a way to the network.
  void runBrowse() {
    Program program(builtProgram("sorvctl"), whole("browse", {"--timeout", "0.01"}),
                    {"", [] { setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1); }});
    const auto status = program.wait();
    keep("browse", {status.value_or(-1), program.output(), program.errors()});
  }

  void runWatchOfNet() {
    const auto watching =
        start(whole("net", {"--hosts", "127.0.0.1", "--watch", "--interval", "0.01"}));
    EXPECT_TRUE(watching->prints("\"came\"")) << watching->errors();
    watching->signal(SIGTERM);
    const auto status = watching->wait();
    keep("net", {status.value_or(-1), watching->output(), watching->errors()});
  }

  /// At a server that plays the part, with a lock and settings of its own.
  void runUpgrade() {
    UpgradeHost host;
    host.starts("upgrades");
    keep("upgrade", host.tool(whole("upgrade", {})));
    keep("host-info", host.tool(whole("host-info", {})));
  }

  /// What it finds depends on the host that the test runs on, and so does its status.
  void runDoctor() {
    Outcome seen = tool(whole("doctor", {}));
    EXPECT_TRUE(seen.status == 0 || seen.status == 1) << seen.status;
    seen.status = 0;
    keep("doctor", seen);
  }

  PrintedValues values;
  Names silent;
};

TEST_F(SorvctlJson, IsWhatItsDocumentSays) {
  prints("states");
  prints("list");
  const auto watcher = start(whole("watch", {"--interval", "0.01"}));
  ASSERT_TRUE(server.registers("db1", "dbhost", "sql"));
  ASSERT_TRUE(server.registers("n\xC3\xA4me\n\"2\"|x:y"));
  prints("ping");
  prints("find", {"db1"});
  prints("url", {"db1"});
  prints("register", {"db3", "--", "true"});
  prints("send", {"action=hostInfo"});
  prints("send");
  isSilent("wait", {"db1"});
  isSilent("exec", {"db1", "--", "true"});
  isSilent("set-state", {"db1", "stopping"});
  isSilent("set-alert", {"db1", "disk full"});
  ASSERT_TRUE(watcher->prints("disk full"));
  prints("list");
  prints("states");
  prints("alerts");
  server.unregisters("db1");
  ASSERT_TRUE(watcher->prints("\"went\",\"name\":\"db1\""));
  watcher->signal(SIGTERM);
  const auto status = watcher->wait();
  keep("watch", {status.value_or(-1), watcher->output(), watcher->errors()});
  Client leaving(server);
  ASSERT_TRUE(leaving.reconnects("left") && leaving.reconnects("now"));
  leaving.closes();
  ASSERT_TRUE(waitUntil([this] { return !server.finds("now"); }));
  prints("list");
  isSilent("forget", {"left"});
  isSilent("refresh");
  prints("metrics");
  prints("net", {"--hosts", "127.0.0.1"});
  runWatchOfNet();
  prints("host-info");
  ASSERT_TRUE(server
                  .ask({{"action", "sorvexecConnectHost"},
                        {"hostName", "dbhost"},
                        {"portHostAddress", "192.0.2.10"},
                        {"ethernetAddress", "02:00:00:00:00:01"}})
                  .has_value());
  prints("hosts");
  runUpgrade();
  runBrowse();
  runDoctor();
  runDefaults();
  isSilent("prefs set", {"mary", "loginDisplay=list"});
  prints("prefs get", {"mary"});
  prints("prefs key");
  isSilent("prefs key set", {"user:application"});
  prints("convert date", {"@2004-05-06"});
  prints("convert time", {"#19:05"});
  prints("convert money", {"1.5"});
  prints("convert integer", {"1,234"});
  prints("convert hex", {"ff"});
  prints("convert instant", {"--from-stored", "0"});
  prints("completion", {"bash"});
  isSilent("terminate");
  EXPECT_EQ(server.waitForExit(), 0);
  server.start();
  isSilent("restart");
  EXPECT_EQ(server.waitForExit(), 0);
  expectAsDocumented(values);
  Names ran = silent;
  ran.insert("top");  // for people alone: it needs a terminal
  for (const auto& [name, printed] : values) {
    ran.insert(name);
  }
  EXPECT_EQ(ran, allCommands());
}

}  // namespace
}  // namespace sorvane::test
