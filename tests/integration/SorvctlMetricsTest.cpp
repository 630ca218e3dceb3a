// "sorvctl metrics" against a name server, and read by another program's parser of the format.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "integration/Client.h"
#include "integration/Daemon.h"
#include "integration/NetworkNamespace.h"
#include "support/Documents.h"
#include "support/Program.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

Outcome metrics(int port, std::vector<std::string> more = {}) {
  std::vector<std::string> arguments{"--port", std::to_string(port), "metrics"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return run(builtProgram("sorvctl"), arguments);
}

/// What a strict parser makes of the text: a line for each sample, "NAME {LABELS} VALUE". Fails the
/// running test when it refuses the text.
std::string parsed(const std::string& text) {
  constexpr const char* kProgram =
      "import sys\n"
      "from prometheus_client.openmetrics.parser import text_string_to_metric_families\n"
      "text = sys.stdin.buffer.read().decode('utf-8')\n"
      "for family in text_string_to_metric_families(text):\n"
      "    for sample in family.samples:\n"
      "        print(family.type, family.unit or '-', sample.name, sorted(sample.labels.items()),\n"
      "              float(sample.value))\n";
  const Outcome outcome = run(systemProgram("python3"), {"-c", kProgram}, text);
  EXPECT_EQ(outcome.status, 0) << outcome.errors << text;
  return outcome.output;
}

TEST(SorvctlMetrics, AreAcceptedByAParserOfTheFormat) {
  Daemon server;
  server.start();
  ASSERT_TRUE(server.registers("db1", "dbhost", "sql"));
  ASSERT_TRUE(server.registers("db2", "dbhost", "sql"));
  ASSERT_TRUE(server.registers("db3", "dbhost", "a \"type\"\\of\nits own \xc3\xa9"));
  Client tool(server);
  tool.acts("setDatabaseState", {{"databaseName", "db2"}, {"state", "stopping"}});
  tool.acts("setAlertState", {{"databaseName", "db1"}, {"state", "disk full"}});
  const Outcome outcome = metrics(server.basePort());
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.errors, "");
  const std::string samples = parsed(outcome.output);
  for (const char* sample :
       {"gauge - sorvane_up [] 1.0\n",
        "gauge - sorvane_databases [('state', 'running'), ('type', 'sql')] 1.0\n",
        "gauge - sorvane_databases [('state', 'stopping'), ('type', 'sql')] 1.0\n",
        "gauge - sorvane_databases [('state', 'running'), "
        "('type', 'a \"type\"\\\\of\\\\x0aits own \xc3\xa9')] 1.0\n",
        "gauge - sorvane_alerts [] 1.0\n",
        "gauge seconds sorvane_last_change_timestamp_seconds [] ",
        "gauge seconds sorvane_last_change_age_seconds [] ",
        "gauge seconds sorvane_answer_seconds [] ", "gauge - sorvane_build_info [('version', '",
        "counter - sorvane_upgrades_total [] 0.0\n", "counter - sorvane_crashes_total [] 0.0\n"}) {
    EXPECT_NE(samples.find(sample), std::string::npos) << sample << samples << outcome.output;
  }
  EXPECT_TRUE(outcome.output.ends_with("# EOF\n"));
}

TEST(SorvctlMetrics, AreThoseOfTheDocument) {
  Daemon server;
  server.start();
  ASSERT_TRUE(server.registers("db1"));
  std::vector<std::string> documented;
  for (const std::string& line :
       documentLines(std::filesystem::path(SORVANE_SOURCE_DIR) / "docs/metrics.md")) {
    if (line.starts_with("| `sorvane_")) {
      documented.push_back(line.substr(3, line.find('`', 3) - 3));
    }
  }
  std::vector<std::string> told;
  std::istringstream text(metrics(server.basePort()).output);
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with("# TYPE ")) {
      const bool isCounter = line.ends_with(" counter");
      EXPECT_TRUE(isCounter || line.ends_with(" gauge")) << line;
      told.push_back(line.substr(7, line.find(' ', 7) - 7) + (isCounter ? "_total" : ""));
    }
  }
  EXPECT_EQ(told, documented);
}

TEST(SorvctlMetrics, TellWhenSomethingHasChangedLast) {
  Daemon server;
  server.start();
  ASSERT_TRUE(server.registers("db1"));
  const auto before = std::chrono::system_clock::now().time_since_epoch();
  const Outcome outcome = metrics(server.basePort(), {"--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  const auto json = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(json["up"], true);
  const double change = json["lastChange"];
  EXPECT_NEAR(change, std::chrono::duration<double>(before).count(), 600);
  EXPECT_LT(json["lastChangeAge"], 600);
  EXPECT_GT(json["answerSeconds"], 0);
  EXPECT_EQ(json["alerts"], 0);
  EXPECT_EQ(json["databases"],
            (nlohmann::json{{{"type", "database"}, {"state", "running"}, {"count", 1}}}));
  EXPECT_NE(json["version"], "");
}

TEST(SorvctlMetrics, OfNoNameServerAreTextToo) {
  const Outcome away = metrics(closedPort());
  EXPECT_EQ(away.status, 0) << "monitoring wants to read it";
  EXPECT_EQ(parsed(away.output), "gauge - sorvane_up [] 0.0\n");
  EXPECT_NE(away.errors.find("Connection refused"), std::string::npos) << away.errors;
  EXPECT_EQ(metrics(closedPort(), {"--json"}).output, "{\"up\":false}\n");
  ScriptedPeer refusing([](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(nilFrame());
    }
  });
  EXPECT_EQ(metrics(refusing.port()).output, away.output);
}

TEST(SorvctlMetrics, LeaveOutATimeThatIsNone) {
  for (const char* time : {"nonsense", "inf", "nan", "1e300", "1 2", ""}) {
    ScriptedPeer odd([time](PeerConnection& client) {
      while (const auto request = client.receiveRequest()) {
        const bool isPing = request->find("ping") != std::string::npos;
        const bool isTime = request->find("changeTimestamp") != std::string::npos;
        client.send(isPing ? frameOfTexts({})
                           : frameOfTexts({{"result", isTime ? time : ""}, {"alerts", ""}}));
      }
    });
    const Outcome outcome = metrics(odd.port());
    EXPECT_NE(outcome.output.find("\nsorvane_up 1\n"), std::string::npos) << outcome.errors;
    EXPECT_EQ(outcome.output.find("last_change"), std::string::npos) << time << outcome.output;
  }
}

}  // namespace
}  // namespace sorvane::test
