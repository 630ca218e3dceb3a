// The parts of `sorvctl doctor` that need no host: the table of findings, the running of checks,
// and what checks make of systems and moments that a test cannot bring about.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Utf8.h"
#include "sorvctl/doctor/Checks.h"
#include "support/Documents.h"
#include "support/TestFiles.h"
#include "support/WaitUntil.h"
#include "tools/FakeNameServer.h"

namespace sorvctl::doctor {
namespace {

namespace fs = std::filesystem;
using Ids = std::vector<std::string>;
using State = sorvane::FileLockLook::State;

Ids idsOf(const Report& report) {
  Ids ids;
  for (const Finding& each : report.findings) {
    ids.push_back(each.id);
  }
  return ids;
}

std::shared_ptr<Environment> healthyEnvironment() {
  auto environment = std::make_shared<Environment>();
  environment->deadline = Environment::Clock::now() + sorvane::test::kPatience;
  environment->ownAddresses = {*sorvane::IPAddress::parse("192.0.2.7")};
  return environment;
}

sorvane::SystemProcess process(int number, const std::string& name) {
  sorvane::SystemProcess process;
  process.number = number;
  process.name = name;
  return process;
}

// ---- The table of findings

TEST(DoctorFindings, HaveTextsInOneStyle) {
  std::set<std::string> ids;
  for (const FindingKind& kind : kAllKinds) {
    const std::string id = kind.id;
    const std::string what = kind.what;
    const std::string remedy = kind.remedy;
    EXPECT_TRUE(ids.insert(id).second) << id << " is there twice";
    EXPECT_EQ(id.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), std::string::npos);
    EXPECT_TRUE(std::isupper(static_cast<unsigned char>(remedy.front()))) << remedy;
    for (const std::string& text : {what, remedy}) {
      EXPECT_NE(text.back(), '.') << text;
      EXPECT_EQ(std::count(text.begin(), text.end(), '{'),
                std::count(text.begin(), text.end(), '}'))
          << text;
    }
  }
}

TEST(DoctorFindings, StandInTheDocumentAsTheyArePrinted) {
  std::vector<std::string> rows;
  for (const std::string& line :
       sorvane::test::documentLines(fs::path(SORVANE_SOURCE_DIR) / "docs/doctor.md")) {
    if (line.starts_with("| `")) {
      rows.push_back(line);
    }
  }
  std::vector<std::string> expected;
  for (const FindingKind& kind : kAllKinds) {
    expected.push_back(std::string("| `") + kind.id + "` | " + severityName(kind.severity) + " | " +
                       kind.what + " | " + kind.remedy + " |");
  }
  EXPECT_EQ(rows, expected);
}

TEST(DoctorFindings, AreEachProvokedByATest) {
  std::string tests;
  for (const char* folder : {"tests/integration", "tests/tools"}) {
    for (const auto& file : fs::directory_iterator(fs::path(SORVANE_SOURCE_DIR) / folder)) {
      if (file.path().filename().string().find("Doctor") != std::string::npos) {
        tests += sorvane::test::readFile(file.path());
      }
    }
  }
  for (const FindingKind& kind : kAllKinds) {
    EXPECT_NE(tests.find("Ids{\"" + std::string(kind.id) + "\""), std::string::npos) << kind.id;
  }
}

TEST(DoctorFindings, HaveAValueForEachWordInBraces) {
  const Finding made = finding(kinds::portTaken, {{"port", "20221"}, {"program", "vi"}});
  EXPECT_EQ(made.what, "port 20221 is taken by vi, which does not answer as a name server");
  EXPECT_EQ(made.id, "port-taken");
  EXPECT_EQ(made.severity, Severity::wrong);
  EXPECT_THROW(static_cast<void>(finding(kinds::portTaken, {{"port", "20221"}})), std::logic_error);
}

TEST(DoctorFindings, CutWhatAPeerMayHaveMadeLong) {
  const Finding made =
      finding(kinds::versionDiffers, {{"server", std::string(100000, 'x')}, {"command", "1"}});
  EXPECT_LT(made.what.size(), 500U);
  std::string wide = "x";
  while (wide.size() < 1000) {
    wide += "€";
  }
  EXPECT_TRUE(
      sorvane::isUtf8(finding(kinds::versionDiffers, {{"server", wide}, {"command", "1"}}).what));
}

// ---- The running of checks

Report isWell(const Environment& /*environment*/) { return {"well", {}, {}}; }
Report throws(const Environment& /*environment*/) { throw std::runtime_error("no memory"); }

/// Something that one check waits for and another one, or the test, lets happen.
std::promise<void>& event() {
  static auto* const event = new std::promise<void>;
  return *event;
}
Report waits(const Environment& /*environment*/) {
  event().get_future().wait();
  return {"waited", {}, {}};
}
Report letsHappen(const Environment& /*environment*/) {
  event().set_value();
  return {};
}
Report neverEnds(const Environment& /*environment*/) {
  std::promise<void>().get_future().wait_for(std::chrono::hours(1));
  return {};
}

TEST(DoctorChecks, RunAtTheSameTime) {
  const auto results = runChecks(healthyEnvironment(), {{"one", &waits}, {"other", &letsHappen}});
  ASSERT_EQ(results.size(), 2U);
  EXPECT_EQ(results[0].check, "one");
  EXPECT_EQ(results[0].report.seen, "waited");
}

TEST(DoctorChecks, ThatHaveNotEndedAtTheDeadlineCountAsNotLookedAt) {
  auto environment = healthyEnvironment();
  environment->deadline = Environment::Clock::now() + std::chrono::milliseconds(50);
  const auto results = runChecks(environment, {{"slow", &neverEnds}});
  ASSERT_EQ(results[0].report.unseen.size(), 1U);
  EXPECT_EQ(results[0].report.unseen[0].reason, "it took too long");
}

TEST(DoctorChecks, ThatThrowCountAsNotLookedAt) {
  const auto results = runChecks(healthyEnvironment(), {{"one", &throws}, {"other", &isWell}});
  ASSERT_EQ(results[0].report.unseen.size(), 1U);
  EXPECT_EQ(results[0].report.unseen[0].reason, "no memory");
  EXPECT_EQ(results[1].report.seen, "well");
}

TEST(DoctorChecks, ThatNeedSettingsAreLeftOutWithoutThem) {
  auto environment = healthyEnvironment();
  environment->settings.reading.fault = "sorvane.conf:1: no";
  const auto results = runChecks(environment, {{"other", &isWell}, {"needs none", &isWell, false}});
  EXPECT_EQ(results[0].report.unseen.at(0).reason, "the settings come first");
  EXPECT_EQ(results[1].report.seen, "well");
}

// ---- What a test cannot bring about everywhere

TEST(DoctorLock, WhoseHolderHasLeftAChildThatHoldsItIsWrong) {
  auto environment = healthyEnvironment();
  environment->lock.state = State::held;
  environment->lock.path = "/run/lock/sorvinfo.lock";
  environment->lock.holder = 4711;
  const Report report = checkLock(*environment);
  EXPECT_EQ(idsOf(report), Ids{"lock-holder-gone"});
  EXPECT_EQ(report.findings[0].what,
            "/run/lock/sorvinfo.lock is locked, but process 4711, which took the lock, has ended");
}

TEST(DoctorSettings, OfTwoFilesAreDoubtful) {
  const sorvane::test::TemporaryFolder folder;
  auto environment = healthyEnvironment();
  for (const char* name : {"one", "other"}) {
    sorvane::test::writeFile(folder / name, "BasePort = 20221;\n");
    environment->settings.candidates.push_back((folder / name).string());
  }
  environment->settings.file = environment->settings.candidates.front();
  const Report report = checkSettings(*environment);
  EXPECT_EQ(idsOf(report), Ids{"settings-two-files"});
  EXPECT_EQ(report.findings[0].what,
            (folder / "one").string() + " is read, so " + (folder / "other").string() + " is not");
}

TEST(DoctorSettings, AreReadWhenTheProgramBeganIfTheNameServerTells) {
  const sorvane::test::TemporaryFolder folder;
  sorvane::test::writeFile(folder / "conf", "BasePort = 20221;\n");
  const auto now = std::chrono::system_clock::now();
  auto environment = healthyEnvironment();
  environment->settings.candidates = {(folder / "conf").string()};
  environment->settings.file = environment->settings.candidates.front();
  environment->listener = process(getpid(), "sorvinfo");
  environment->listener->started = now - std::chrono::hours(1);
  EXPECT_EQ(idsOf(checkSettings(*environment)), Ids{"settings-newer"});
  Continuity told;
  told.begun = now;
  told.process = getpid();
  environment->answer.continuity = told;
  EXPECT_EQ(idsOf(checkSettings(*environment)), Ids{});
  if (sorvane::systemProcess(getpid())->parent) {  // not every system tells it
    environment->listener->number = getppid();
    EXPECT_EQ(idsOf(checkSettings(*environment)), Ids{}) << "a child serves";
  }
  environment->listener->number = 1 << 30;
  EXPECT_EQ(idsOf(checkSettings(*environment)), Ids{"settings-newer"}) << "another one answers";
  told.process = environment->listener->number;
  told.begun = now - std::chrono::hours(1);
  environment->listener->started = now;
  environment->answer.continuity = told;
  EXPECT_EQ(idsOf(checkSettings(*environment)), Ids{"settings-newer"});
}

/// A system that tells nothing about its processes and ports.
class DoctorElsewhere : public testing::Test {
 protected:
  void SetUp() override {
    environment->basePort = 20221;
    environment->lock.path = "/run/lock/sorvinfo.lock";
    environment->lock.written = 4711;
    environment->lockHolder = process(4711, "");
  }

  const std::shared_ptr<Environment> environment = healthyEnvironment();
};

TEST_F(DoctorElsewhere, ANameServerThatAnswersIsWellAsFarAsAnybodyKnows) {
  environment->answer = {true, true, "", "1"};
  for (const auto& check : {&checkLock, &checkPort, &checkAddresses, &checkConnections}) {
    const Report report = check(*environment);
    EXPECT_EQ(idsOf(report), Ids());
    EXPECT_FALSE(report.unseen.empty());
  }
}

TEST_F(DoctorElsewhere, ANameServerThatDoesNotAnswerIsWrong) {
  environment->lockHolder.reset();
  EXPECT_EQ(idsOf(checkPort(*environment)), Ids{"server-not-running"});
  environment->answer = {true, false, "the other side closed the connection", ""};
  EXPECT_EQ(idsOf(checkPort(*environment)), Ids{"port-taken"});
}

// ---- Names

TEST(DoctorNames, ThatStayedBehindAreTold) {
  sorvctl::test::FakeNameServer server;
  const auto environment = healthyEnvironment();
  environment->lastMoment = environment->deadline;
  environment->basePort = server.options().port;
  EXPECT_EQ(checkNames(*environment).seen, "there is no name server");
  environment->answer.answered = true;
  server.has("db1");
  EXPECT_EQ(checkNames(*environment).seen, "databases: 1, left behind: 0");
  EXPECT_EQ(idsOf(checkNames(*environment)), Ids{});
  for (const char* name : {"a b|c", "n1", "n2", "n3", "n4"}) {
    server.has(name, {{"left", "YES"}});
  }
  const Report report = checkNames(*environment);
  EXPECT_EQ(report.seen, "databases: 6, left behind: 5");
  ASSERT_EQ(idsOf(report), Ids{"names-left-behind"});
  EXPECT_NE(report.findings[0].what.find(": \"a b|c\" and \"n1\" and \"n2\" and 2 more"),
            std::string::npos)
      << report.findings[0].what;
  EXPECT_NE(report.findings[0].remedy.find("sorvctl forget a\\ b\\|c"), std::string::npos)
      << report.findings[0].remedy;
}

TEST(DoctorNames, OfAServerThatDoesNotTellAreNotLookedAt) {
  const sorvctl::test::FakeNameServer server(sorvctl::test::FakeNameServer::Version::earlier);
  const auto environment = healthyEnvironment();
  environment->lastMoment = environment->deadline;
  environment->basePort = server.options().port;
  environment->answer.answered = true;
  const Report report = checkNames(*environment);
  EXPECT_TRUE(report.findings.empty());
  ASSERT_EQ(report.unseen.size(), 1U);
  EXPECT_EQ(report.unseen[0].what, "names that were left behind");
}

}  // namespace
}  // namespace sorvctl::doctor
