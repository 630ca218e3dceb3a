#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sorvctl/metrics/Metrics.h"

namespace sorvctl::metrics {
namespace {

Database database(const std::string& type, const std::string& state) {
  return {{"db", "20222", "dbhost", "192.0.2.1", type}, state, ""};
}

std::size_t sumOf(const std::vector<Count>& counts) {
  std::size_t sum = 0;
  for (const Count& count : counts) {
    sum += count.databases;
  }
  return sum;
}

TEST(Metrics, OfAServerThatDoesNotAnswerTellThatAlone) {
  EXPECT_EQ(openMetrics(std::nullopt),
            "# HELP sorvane_up 1 if the name server answers, otherwise 0.\n"
            "# TYPE sorvane_up gauge\n"
            "sorvane_up 0\n"
            "# EOF\n");
}

TEST(Metrics, TellWhatTheServerHasTold) {
  Numbers numbers;
  numbers.counts = {{"sql", "running", 3}, {"sql", "stopping", 1}};
  numbers.alerts = 2;
  numbers.lastChange = 1000.25;
  numbers.now = 1060.75;
  numbers.answerSeconds = 0.000125;
  numbers.version = "1.0.0 (build #1) 11.20.2026";
  numbers.continuity = Continuity{"0123", 3, 1, 4, ""};
  EXPECT_EQ(openMetrics(numbers),
            "# HELP sorvane_up 1 if the name server answers, otherwise 0.\n"
            "# TYPE sorvane_up gauge\n"
            "sorvane_up 1\n"
            "# HELP sorvane_databases Registered databases by type and state.\n"
            "# TYPE sorvane_databases gauge\n"
            "sorvane_databases{type=\"sql\",state=\"running\"} 3\n"
            "sorvane_databases{type=\"sql\",state=\"stopping\"} 1\n"
            "# HELP sorvane_alerts Databases with an alert of the last hour.\n"
            "# TYPE sorvane_alerts gauge\n"
            "sorvane_alerts 2\n"
            "# HELP sorvane_last_change_timestamp_seconds When something has changed last, by the "
            "clock of the server, since 1970.\n"
            "# TYPE sorvane_last_change_timestamp_seconds gauge\n"
            "# UNIT sorvane_last_change_timestamp_seconds seconds\n"
            "sorvane_last_change_timestamp_seconds 1000.250000\n"
            "# HELP sorvane_last_change_age_seconds Time since the last change, by the clock of "
            "the host that asks.\n"
            "# TYPE sorvane_last_change_age_seconds gauge\n"
            "# UNIT sorvane_last_change_age_seconds seconds\n"
            "sorvane_last_change_age_seconds 60.500000\n"
            "# HELP sorvane_answer_seconds Time from a question to its answer.\n"
            "# TYPE sorvane_answer_seconds gauge\n"
            "# UNIT sorvane_answer_seconds seconds\n"
            "sorvane_answer_seconds 0.000125\n"
            "# HELP sorvane_build_info 1, with the version of the name server.\n"
            "# TYPE sorvane_build_info gauge\n"
            "sorvane_build_info{version=\"1.0.0 (build #1) 11.20.2026\"} 1\n"
            "# HELP sorvane_upgrades Upgrades in place since the name server was started.\n"
            "# TYPE sorvane_upgrades counter\n"
            "sorvane_upgrades_total 3\n"
            "# HELP sorvane_crashes Serving processes that were replaced after their death.\n"
            "# TYPE sorvane_crashes counter\n"
            "sorvane_crashes_total 1\n"
            "# EOF\n");
}

TEST(Metrics, LeaveOutWhatTheServerDoesNotTell) {
  const std::string text = openMetrics(Numbers{});
  EXPECT_EQ(text.find("last_change"), std::string::npos);
  EXPECT_EQ(text.find("build_info"), std::string::npos);
  EXPECT_EQ(text.find("_total"), std::string::npos);
  EXPECT_NE(text.find("sorvane_up 1\n"), std::string::npos);
}

TEST(Metrics, TellNoNegativeAgeWhenTheClocksDiffer) {
  Numbers numbers;
  numbers.lastChange = 2000;
  numbers.now = 1000;
  EXPECT_NE(openMetrics(numbers).find("sorvane_last_change_age_seconds 0.000000\n"),
            std::string::npos);
}

TEST(Metrics, EscapeWhatTheFormatCannotHaveInALabel) {
  Numbers numbers;
  numbers.counts = counted({database("a\"b\\c", "line\nbreak\x1b[2J\xff")});
  EXPECT_NE(openMetrics(numbers).find("sorvane_databases{type=\"a\\\"b\\\\c\","
                                      "state=\"line\\\\x0abreak\\\\x1b[2J\\\\xff\"} 1\n"),
            std::string::npos)
      << openMetrics(numbers);
}

TEST(Metrics, CountTheDatabasesOfEachTypeAndState) {
  const std::vector<Count> counts =
      counted({database("sql", "running"), database("text", "running"), database("sql", "running"),
               database("sql", "")});
  ASSERT_EQ(counts.size(), 3U);
  EXPECT_EQ(counts[0].type, "sql");
  EXPECT_EQ(counts[0].state, "");
  EXPECT_EQ(counts[1].databases, 2U);
  EXPECT_EQ(counts[2].type, "text");
  EXPECT_EQ(sumOf(counts), 4U);
  EXPECT_TRUE(counted({}).empty());
}

TEST(Metrics, HaveABoundedNumberOfLabels) {
  std::vector<Database> databases{database("sql", "running"), database("sql", "running"),
                                  database("other", "other")};
  for (int index = 0; index < 1000; ++index) {
    databases.push_back(database("sql", "state " + std::to_string(index)));
  }
  const std::vector<Count> counts = counted(databases);
  EXPECT_LE(counts.size(), kMostCounts);
  EXPECT_EQ(sumOf(counts), databases.size()) << "none is lost";
  bool hasRunning = false;
  std::size_t others = 0;
  for (const Count& count : counts) {
    hasRunning = hasRunning || (count.state == "running" && count.databases == 2);
    others += count.type == "other" && count.state == "other" ? count.databases : 0;
  }
  EXPECT_TRUE(hasRunning) << "those with the most databases are kept";
  EXPECT_GT(others, 900U);
}

TEST(Metrics, CutLongTextsAtACharacter) {
  std::string longText = "x";
  while (longText.size() < 2 * kLongestText) {
    longText += "é";
  }
  const std::vector<Count> counts = counted({database(longText, "running")});
  ASSERT_EQ(counts.size(), 1U);
  EXPECT_LE(counts[0].type.size(), kLongestText + 3);
  EXPECT_TRUE(counts[0].type.ends_with("é…")) << counts[0].type;
}

}  // namespace
}  // namespace sorvctl::metrics
