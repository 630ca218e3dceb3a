#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstring>

#include "defaults/Launcher.h"
#include "defaults/SSDefaults.h"
#include "platform/Settings.h"
#include "support/ForkedPart.h"
#include "support/ScriptedPeer.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

constexpr const char* kHost = "127.0.0.1";

// The defaults file of this host, in a folder of the test's own.
class LocalDefaults : public testing::Test {
 protected:
  LocalDefaults() {
    Settings settings;
    settings.serverConfigDirectory = folder_.path().string();
    Settings::replaceForTest(settings);
  }
  void fileHolds(std::string_view content) { writeFile(file(), content); }
  [[nodiscard]] std::filesystem::path file() const { return folder_ / "SorvDefaults"; }

 private:
  TemporaryFolder folder_;
};

// The same, with another host whose defaults differ.
class RemoteDefaults : public LocalDefaults {
 protected:
  RemoteDefaults() { fileHolds("{ Date = local; }"); }
};

// What a call prints on standard output.
template <typename Call>
std::string printed(Call call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

TEST_F(LocalDefaults, AreReadFromTheFile) {
  fileHolds("{ Date = 4; MoneyPrefix = \"CHF \"; Umlaut = \"\xc3\xa4\"; }");
  const auto defaults = SSDefaults::newDirectLoad();
  EXPECT_STREQ(defaults->getDefault("Date"), "4");
  EXPECT_STREQ(defaults->getDefault("MoneyPrefix"), "CHF ");
  EXPECT_STREQ(defaults->getDefault("Umlaut"), "\xc3\xa4");
  EXPECT_EQ(defaults->getDefault("Time"), nullptr);
  EXPECT_EQ(defaults->getDefault(""), nullptr);
}

TEST_F(LocalDefaults, OfTheEmptyHostNameAreTheSame) {
  fileHolds("{ Date = 4; }");
  EXPECT_STREQ(SSDefaults::newForHost("")->getDefault("Date"), "4");
}

TEST_F(LocalDefaults, AreEmptyWhereTheFileHoldsNoDictionary) {
  for (const char* content : {"( Date, 4 )", "Date", "<4a4b>", "", "   ", "{ Date = 4", "{ = }",
                              "\xff\xfe", "{ Date = 4; } more"}) {
    fileHolds(content);
    const auto defaults = SSDefaults::newDirectLoad();
    EXPECT_EQ(defaults->getDefault("Date"), nullptr) << content;
    EXPECT_TRUE(SSDefaults::localDatabasePreferences().empty()) << content;
  }
}

TEST_F(LocalDefaults, AreEmptyWithoutAFile) {
  EXPECT_EQ(SSDefaults::newDirectLoad()->getDefault("Date"), nullptr);
}

TEST_F(LocalDefaults, AreEmptyWhereTheFileIsAFolder) {
  std::filesystem::create_directories(file());
  EXPECT_EQ(SSDefaults::newDirectLoad()->getDefault("Date"), nullptr);
}

TEST_F(LocalDefaults, AreEmptyWhereTheFileIsAPipeWithoutAWriter) {
  ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
  inOwnProcess([] { EXPECT_EQ(SSDefaults::newDirectLoad()->getDefault("Date"), nullptr); });
}

TEST_F(LocalDefaults, AreEmptyWhereTheFileIsTooLong) {
  std::string content = "{ Date = 4; }";
  content.append(PropertyList::kMaximumBytes + 1 - content.size(), ' ');
  fileHolds(content);
  EXPECT_EQ(SSDefaults::newDirectLoad()->getDefault("Date"), nullptr);
}

TEST_F(LocalDefaults, CountAValueThatIsNoTextAsAbsent) {
  fileHolds("{ Date = ( 4 ); Time = { a = b; }; Money = <4a>; Good = 1; }");
  const auto defaults = SSDefaults::newDirectLoad();
  for (const char* key : {"Date", "Time", "Money"}) {
    EXPECT_EQ(defaults->getDefault(key), nullptr) << key;
  }
  EXPECT_STREQ(defaults->getDefault("Good"), "1");
}

TEST_F(LocalDefaults, StayInMemoryUntilTheyAreFreed) {
  fileHolds("{ Date = 1; }");
  const auto defaults = SSDefaults::newDirectLoad();
  EXPECT_STREQ(defaults->getDefault("Date"), "1");
  fileHolds("{ Date = 2; }");
  EXPECT_STREQ(defaults->getDefault("Date"), "1");
  defaults->freeDefaults();
  EXPECT_STREQ(defaults->getDefault("Date"), "2");
}

TEST_F(LocalDefaults, AreReadAnewByReadDefaults) {
  fileHolds("{ Date = 1; }");
  const auto defaults = SSDefaults::newDirectLoad();
  defaults->setDefault("Date", "9");
  fileHolds("{ Date = 2; }");
  defaults->readDefaults();
  EXPECT_STREQ(defaults->getDefault("Date"), "2");
}

TEST_F(LocalDefaults, AreNotReadBeforeTheyAreNeeded) {
  fileHolds("{ Date = 1; }");
  const auto defaults = SSDefaults::newDirectLoad();
  fileHolds("{ Date = 2; }");
  EXPECT_STREQ(defaults->getDefault("Date"), "2");
}

TEST_F(LocalDefaults, KeepWhatIsSetInMemoryAlone) {
  fileHolds("{ Date = 1; Time = 1; }");
  const auto defaults = SSDefaults::newDirectLoad();
  defaults->setDefault("Date", "2");
  EXPECT_STREQ(defaults->getDefault("Date"), "2");
  EXPECT_STREQ(defaults->getDefault("Time"), "1") << "the stored ones were loaded first";
  EXPECT_EQ(readFile(file()), "{ Date = 1; Time = 1; }");
}

TEST_F(LocalDefaults, ReadDefaultDictionaryLeavesTheMemoryAlone) {
  fileHolds("{ Date = 1; }");
  const auto defaults = SSDefaults::newDirectLoad();
  defaults->setDefault("Date", "2");
  EXPECT_EQ(defaults->readDefaultDictionary(), (SSDefaults::Dictionary{{"Date", "1"}}));
  EXPECT_STREQ(defaults->getDefault("Date"), "2");
}

TEST_F(RemoteDefaults, AreAskedOfTheLauncher) {
  const Launcher launcher("{ Date = remote; }");
  const auto defaults = SSDefaults::newForHost(kHost);
  EXPECT_STREQ(defaults->getDefault("Date"), "remote");
  EXPECT_EQ(defaults->getDefault("Time"), nullptr);
  const std::vector<std::string> requests = launcher.requests();
  ASSERT_EQ(requests.size(), 1U) << "asked once for all keys";
  const Message expected{{"action", "getDatabasePreferences"}};
  EXPECT_EQ(requests[0], expected.body());
  EXPECT_EQ(expected.data("action"), std::string("getDatabasePreferences") + '\0');
}

TEST_F(RemoteDefaults, OfAHostThatCannotBeReachedAreEmptyAndNotTheLocalOnes) {
  Settings settings = Settings::current();
  settings.basePort = closedPort() + 1;
  Settings::replaceForTest(settings);
  const auto defaults = SSDefaults::newForHost(kHost);
  EXPECT_EQ(defaults->getDefault("Date"), nullptr);
  EXPECT_EQ(defaults->readDefaultDictionary(), std::nullopt);
  defaults->setDefault("Date", "set");
  EXPECT_STREQ(defaults->getDefault("Date"), "set");
}

TEST_F(RemoteDefaults, OfAReachableHostAreAlwaysADictionary) {
  for (const char* text : {"( Date )", "Date", "", "{ Date = ", "{}"}) {
    const Launcher launcher{std::string_view(text)};
    EXPECT_EQ(SSDefaults::newForHost(kHost)->readDefaultDictionary(), SSDefaults::Dictionary{})
        << text;
  }
}

TEST_F(RemoteDefaults, AreEmptyWhereTheReplyHasNoData) {
  const Launcher::Answer answers[] = {
      [](const Message&, NetConnection&) { return Reply::none(); },
      [](const Message&, NetConnection&) { return Reply::written(); },
      [](const Message&, NetConnection&) { return Reply::request(); },
      [](const Message&, NetConnection& sender) {
        sender.replyWriter().data("data", "");
        return Reply::written();
      },
      [](const Message&, NetConnection& sender) {
        sender.replyWriter().data("data", "{ Date = \"\xff\"; }");
        return Reply::written();
      }};
  for (const Launcher::Answer& answer : answers) {
    const Launcher launcher(answer);
    EXPECT_EQ(SSDefaults::newForHost(kHost)->readDefaultDictionary(), SSDefaults::Dictionary{});
  }
}

TEST_F(RemoteDefaults, OfALauncherThatAcceptsAndSaysNothingAreEmpty) {
  const ScriptedPeer launchers[] = {
      ScriptedPeer([](PeerConnection& client) { client.waitForClose(); }),
      ScriptedPeer([](PeerConnection&) {}),  // closes at once
      ScriptedPeer([](PeerConnection& client) { client.send("rubbish"); })};
  for (const ScriptedPeer& launcher : launchers) {
    Settings settings = Settings::current();
    settings.basePort = launcher.port() + 1;
    Settings::replaceForTest(settings);
    const auto defaults = SSDefaults::newForHost(kHost);
    defaults->setTimeLimit(std::chrono::milliseconds(500));
    EXPECT_EQ(defaults->readDefaultDictionary(), SSDefaults::Dictionary{});
    EXPECT_NE(defaults->lastError(), "");
  }
}

TEST_F(RemoteDefaults, TellWhyTheyWereNotRead) {
  const auto defaults = SSDefaults::newForHost(kHost);
  Settings settings = Settings::current();
  settings.basePort = closedPort() + 1;
  Settings::replaceForTest(settings);
  EXPECT_EQ(defaults->readDefaultDictionary(), std::nullopt);
  EXPECT_NE(defaults->lastError(), "");
  const Launcher launcher("{}");
  EXPECT_EQ(defaults->readDefaultDictionary(), SSDefaults::Dictionary{});
  EXPECT_EQ(defaults->lastError(), "");
}

TEST_F(LocalDefaults, SettersAndReadersReturnTheObject) {
  fileHolds("{ Date = 1; Time = 1; }");
  const auto defaults = SSDefaults::newDirectLoad();
  SSDefaults& returned = defaults->readDefaults().setDefault("Date", "2").setDefault("Time", "3");
  EXPECT_EQ(&returned, defaults.get());
  EXPECT_STREQ(defaults->getDefault("Date"), "2");
  EXPECT_STREQ(defaults->freeDefaults().getDefault("Date"), "1");
}

TEST_F(RemoteDefaults, AreReadUpToTheTerminatorOrTheEndOfTheData) {
  for (const std::string_view data :
       {std::string_view("{ Date = 7; }\0 garbage", 22), std::string_view("{ Date = 7; }")}) {
    const Launcher launcher([data](const Message&, NetConnection& sender) {
      sender.replyWriter().data("data", data);
      return Reply::written();
    });
    EXPECT_STREQ(SSDefaults::newForHost(kHost)->getDefault("Date"), "7");
  }
}

TEST_F(RemoteDefaults, AreWrittenWithTheRightPassword) {
  const Launcher launcher("{ Date = 1; Time = 1; }");
  const auto defaults = SSDefaults::newForHost(kHost);
  defaults->setDefault("Date", "3 of \"them\"");
  int answer = -1;
  const std::string output =
      printed([&] { answer = defaults->writeDefaultsWithPassword(Launcher::kPassword); });
  EXPECT_EQ(answer, 1);
  const Message reply{{"result", "succeed"}};
  EXPECT_EQ(output, "writeDefaultDictionary RETURN = " + reply.description() + "\n");
  EXPECT_EQ(PropertyList::parse(launcher.defaults()),
            PropertyList(SSDefaults::Dictionary{{"Date", "3 of \"them\""}, {"Time", "1"}}))
      << "the stored key survives";
}

TEST_F(RemoteDefaults, TravelAsTheirDescriptionWithoutATerminator) {
  const Launcher launcher("{}");
  const auto defaults = SSDefaults::newForHost(kHost);
  const SSDefaults::Dictionary dictionary{{"Date", "4"}};
  printed([&] { EXPECT_EQ(defaults->writeDefaultDictionary(&dictionary, "open sesame"), 1); });
  const std::vector<std::string> requests = launcher.requests();
  ASSERT_EQ(requests.size(), 1U);
  Message expected;
  expected.setData("data", PropertyList(dictionary).description());
  expected.setText("action", "setDatabasePreferences7").setText("parameter", "open sesame");
  EXPECT_EQ(requests[0], expected.body());
}

TEST_F(RemoteDefaults, AreRefusedWithTheWrongPassword) {
  const Launcher launcher("{ Date = 1; }");
  const auto defaults = SSDefaults::newForHost(kHost);
  defaults->setDefault("Date", "2");
  for (const char* password : {"", "Open Sesame", "open sesame "}) {
    printed([&] { EXPECT_EQ(defaults->writeDefaultsWithPassword(password), 0) << password; });
  }
  EXPECT_EQ(launcher.defaults(), "{ Date = 1; }");
  EXPECT_STREQ(defaults->getDefault("Date"), "2") << "still in memory";
}

TEST_F(RemoteDefaults, CountAResultInAnyLetterCase) {
  const struct {
    const char* result;
    int answer;
  } table[] = {{"SUCCEED", 1}, {"Succeed", 1}, {"succeed", 1}, {"succeeded", 0},
               {"succee", 0},  {"failed", 0},  {"", 0}};
  for (const auto& row : table) {
    const Launcher launcher([result = row.result](const Message&, NetConnection& sender) {
      sender.replyWriter().text("result", result);
      return Reply::written();
    });
    const auto defaults = SSDefaults::newForHost(kHost);
    const SSDefaults::Dictionary dictionary;
    printed([&] {
      EXPECT_EQ(defaults->writeDefaultDictionary(&dictionary, "x"), row.answer) << row.result;
    });
  }
}

TEST_F(RemoteDefaults, AreNotWrittenWithoutAReply) {
  const SSDefaults::Dictionary dictionary;
  {
    const Launcher launcher([](const Message&, NetConnection&) { return Reply::none(); });
    const auto defaults = SSDefaults::newForHost(kHost);
    EXPECT_EQ(printed([&] { EXPECT_EQ(defaults->writeDefaultDictionary(&dictionary, "x"), 0); }),
              "writeDefaultDictionary RETURN = (null)\n");
  }
  Settings settings = Settings::current();
  settings.basePort = closedPort() + 1;
  Settings::replaceForTest(settings);
  const auto defaults = SSDefaults::newForHost(kHost);
  EXPECT_EQ(printed([&] { EXPECT_EQ(defaults->writeDefaultDictionary(&dictionary, "x"), 0); }),
            "writeDefaultDictionary RETURN = (null)\n");
}

TEST_F(RemoteDefaults, OfADirectLoadAreWrittenToTheLauncherOfThisHost) {
  const Launcher launcher("{}");
  const auto defaults = SSDefaults::newDirectLoad();
  defaults->setDefault("Time", "1");
  printed([&] { EXPECT_EQ(defaults->writeDefaultsWithPassword(Launcher::kPassword), 1); });
  EXPECT_EQ(PropertyList::parse(launcher.defaults()),
            PropertyList(SSDefaults::Dictionary{{"Date", "local"}, {"Time", "1"}}));
  EXPECT_EQ(readFile(file()), "{ Date = local; }") << "the file is the launcher's to write";
}

TEST_F(RemoteDefaults, AreNotSentWithNothingInMemory) {
  const Launcher launcher("{}");
  const auto defaults = SSDefaults::newForHost(kHost);
  EXPECT_EQ(
      printed([&] { EXPECT_EQ(defaults->writeDefaultsWithPassword(Launcher::kPassword), 0); }),
      "writeDefaultDictionary RETURN = (null)\n");
  EXPECT_TRUE(launcher.requests().empty());
}

TEST_F(RemoteDefaults, KeepValuesOfOtherKindsWhenWrittenBack) {
  const Launcher launcher("{ List = ( a, b ); }");
  const auto defaults = SSDefaults::newForHost(kHost);
  defaults->setDefault("Date", "1");
  printed([&] { EXPECT_EQ(defaults->writeDefaultsWithPassword(Launcher::kPassword), 1); });
  EXPECT_EQ(PropertyList::parse(launcher.defaults()),
            PropertyList::parse("{ List = ( a, b ); Date = 1; }"));
}

}  // namespace
}  // namespace sorvane::test
