// Where the settings come from, and when they are loaded.
#include <gtest/gtest.h>

#include <thread>

#include "convert/Calendar.h"
#include "convert/GuardedBuffer.h"
#include "convert/SettingsOfTest.h"
#include "convert/VNConvertTypes.h"
#include "convert/ZoneOfTest.h"
#include "support/RawConnection.h"
#include "support/ScriptedPeer.h"

namespace sorvane::test {
namespace {

std::string shownDate() {
  GuardedBuffer buffer(64, "@2004-05-06");
  return VNConvertTypes::preFilter(buffer.data());
}

std::string repeated(const std::string& text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) {
    result += text;
  }
  return result;
}

TEST(DisplaySettings, AreBuiltInWhereNothingIsStored) {
  const DefaultsFileOfTest file("{}");
  const DisplaySettings& settings = VNConvertTypes::settings();
  EXPECT_STREQ(settings.pDate, "0");
  EXPECT_STREQ(settings.pTime, "0");
  EXPECT_STREQ(settings.pMoneyPre, "$");
  EXPECT_STREQ(settings.pMoneyPost, "");
  EXPECT_STREQ(settings.pCalendarFormat, "%m.%d.%y %H:%M %Z");
}

TEST(DisplaySettings, AreThoseOfTheDefaultsFile) {
  const DefaultsFileOfTest file(
      "{ Date = 4; Time = 1; MoneyPrefix = \"\"; MoneyPostfix = \" CHF\"; "
      "CalendarFormat = \"%Y\"; }");
  const DisplaySettings& settings = VNConvertTypes::settings();
  EXPECT_STREQ(settings.pDate, "4");
  EXPECT_STREQ(settings.pTime, "1");
  EXPECT_STREQ(settings.pMoneyPre, "");
  EXPECT_STREQ(settings.pMoneyPost, " CHF");
  EXPECT_STREQ(settings.pCalendarFormat, "%Y");
}

TEST(DisplaySettings, KeepTheCalendarFormatWhenTheStoredOneIsEmpty) {
  const DefaultsFileOfTest file("{ Date = \"\"; CalendarFormat = \"\"; }");
  EXPECT_STREQ(VNConvertTypes::settings().pDate, "");
  EXPECT_STREQ(VNConvertTypes::settings().pCalendarFormat, "%m.%d.%y %H:%M %Z");
}

TEST(DisplaySettings, AreCutToFitBetweenTwoCharacters) {
  const std::string wide = "\xe2\x82\xac";  // three bytes
  const DefaultsFileOfTest file("{ Date = \"" + std::string(100, '4') + "\"; Time = \"" +
                                std::string(31, '1') + "\"; MoneyPrefix = \"" + repeated(wide, 20) +
                                "\"; MoneyPostfix = \"x" + repeated(wide, 20) +
                                "\"; CalendarFormat = \"" + std::string(100, 'c') + "\"; }");
  const DisplaySettings& settings = VNConvertTypes::settings();
  EXPECT_EQ(settings.pDate, std::string(31, '4'));
  EXPECT_EQ(settings.pTime, std::string(31, '1')) << "this one fits";
  EXPECT_EQ(settings.pMoneyPre, repeated(wide, 10));
  EXPECT_EQ(settings.pMoneyPost, "x" + repeated(wide, 15));
  EXPECT_EQ(settings.pCalendarFormat, std::string(63, 'c'));
}

TEST(DisplaySettings, AreLoadedByTheFirstConversionOfEachKind) {
  const struct {
    const char* name;
    void (*convert)(char*);
  } conversions[] = {
      {"preFilter", [](char* text) { VNConvertTypes::preFilter(text); }},
      {"postFilter", [](char* text) { VNConvertTypes::postFilter(text); }},
      {"preTimeFilter", [](char* text) { VNConvertTypes::preTimeFilter(text); }},
      {"postTimeFilter", [](char* text) { VNConvertTypes::postTimeFilter(text); }},
      {"dateTimeToFloat", [](char* text) { (void)VNConvertTypes::dateTimeToFloat(text); }},
      {"floatToDateTime", [](char* text) { VNConvertTypes::floatToDateTime(0, text); }},
      {"formatMoney", [](char* text) { VNConvertTypes::formatMoney(1, text); }},
      {"formatMoneyLL", [](char* text) { VNConvertTypes::formatMoneyLL(1, text); }}};
  setZoneAndClock("EAST-3", 0);
  initGMTOffset(0);
  DefaultsFileOfTest file("{ Date = 1; }");
  for (const auto& conversion : conversions) {
    VNConvertTypes::resetForTest();
    initGMTOffset(-700);
    GuardedBuffer buffer(128, "");
    conversion.convert(buffer.data());
    EXPECT_EQ(gmtoffset, 3) << conversion.name << ": the zone comes with the settings";
    file.write("{ Date = 2; }");
    EXPECT_EQ(shownDate(), "6 May 2004") << conversion.name << ": loaded once";
    file.write("{ Date = 1; }");
  }
}

TEST(DisplaySettings, AreLoadedAnewByInitDefaults) {
  DefaultsFileOfTest file("{ Date = 1; Time = 1; }");
  EXPECT_EQ(shownDate(), "6 May 2004");
  file.write("{ Date = 3; }");
  EXPECT_EQ(shownDate(), "6 May 2004");
  VNConvertTypes::initDefaults();
  EXPECT_EQ(shownDate(), "05/06/2004");
  EXPECT_STREQ(VNConvertTypes::settings().pTime, "0") << "back to the built-in one";
}

TEST(DateTimeToFloat, AndBackUseTheZoneOfTheHost) {
  setZoneAndClock("EAST-3", 0);
  initGMTOffset(0);
  const DefaultsFileOfTest file("{}");
  EXPECT_EQ(VNConvertTypes::dateTimeToFloat("2001-01-01 00:00:00"), -10800);
  GuardedBuffer buffer(64);
  EXPECT_EQ(VNConvertTypes::floatToDateTime(0, buffer.data()), buffer.data());
  EXPECT_EQ(buffer.text(), "2001-01-01 03:00:00 +0300");
}

// A launcher that answers with these defaults, and the name by which the conversions reach it.
struct Launcher {
  explicit Launcher(std::string defaults)
      : peer([defaults = std::move(defaults)](PeerConnection& client) {
          while (client.receiveRequest()) {
            client.send(frame(Message{{"data", defaults}}));
          }
        }) {
    Settings settings = Settings::current();
    settings.basePort = peer.port() + 1;
    Settings::replaceForTest(settings);
  }
  ScriptedPeer peer;
};

TEST(DefaultHost, AnotherNameReloadsTheSettingsFromThere) {
  const DefaultsFileOfTest file("{ Date = 1; }");
  const Launcher launcher("{ Date = 3; }");
  EXPECT_EQ(shownDate(), "6 May 2004");
  VNConvertTypes::setDefaultHost("127.0.0.1");
  EXPECT_EQ(shownDate(), "05/06/2004");
  EXPECT_EQ(launcher.peer.connections(), 1);
}

TEST(DefaultHost, TheSameNameReloadsNothing) {
  const DefaultsFileOfTest file("{ Date = 1; }");
  const Launcher launcher("{ Date = 3; }");
  VNConvertTypes::setDefaultHost("127.0.0.1");
  EXPECT_EQ(shownDate(), "05/06/2004");
  VNConvertTypes::setDefaultHost("127.0.0.1");
  EXPECT_EQ(shownDate(), "05/06/2004");
  EXPECT_EQ(launcher.peer.connections(), 1);
}

TEST(DefaultHost, TheEmptyNameIsThisHost) {
  const DefaultsFileOfTest file("{ Date = 1; }");
  const Launcher launcher("{ Date = 3; }");
  VNConvertTypes::setDefaultHost("127.0.0.1");
  VNConvertTypes::setDefaultHost("");
  EXPECT_EQ(shownDate(), "6 May 2004");
  EXPECT_EQ(launcher.peer.connections(), 0);
}

TEST(DefaultHost, IsLeftAsideAfterSetDirectLoadUntilAnotherIsNamed) {
  const DefaultsFileOfTest file("{ Date = 1; }");
  const Launcher launcher("{ Date = 3; }");
  VNConvertTypes::setDefaultHost("127.0.0.1");
  VNConvertTypes::setDirectLoad();
  EXPECT_EQ(shownDate(), "6 May 2004");
  VNConvertTypes::setDefaultHost("localhost");
  EXPECT_EQ(shownDate(), "05/06/2004");
}

TEST(DefaultHost, SetDirectLoadDoesNotReloadByItself) {
  const DefaultsFileOfTest file("{ Date = 1; }");
  const Launcher launcher("{ Date = 3; }");
  VNConvertTypes::setDefaultHost("127.0.0.1");
  EXPECT_EQ(shownDate(), "05/06/2004");
  VNConvertTypes::setDirectLoad();
  EXPECT_EQ(shownDate(), "05/06/2004");
  VNConvertTypes::initDefaults();
  EXPECT_EQ(shownDate(), "6 May 2004");
}

TEST(DefaultHost, OfAnyLengthIsKeptWithinItsBuffer) {
  const DefaultsFileOfTest file("{ Date = 1; }");
  VNConvertTypes::setDefaultHost(std::string(100000, 'h').c_str());
  VNConvertTypes::setDirectLoad();
  EXPECT_EQ(shownDate(), "6 May 2004");
}

// Converts on many threads at the same time.
void convertOnManyThreads(int conversions) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([conversions] {
      for (int j = 0; j < conversions; ++j) {
        char text[128] = "@2004-05-06";
        VNConvertTypes::preFilter(text);
        VNConvertTypes::postFilter(text);
        EXPECT_STREQ(text, "@2004-05-06");
        VNConvertTypes::formatMoneyLL(j, text);
        EXPECT_EQ(VNConvertTypes::MoneyToLongLong(text), j);
        VNConvertTypes::floatToDateTime(j, text);
        EXPECT_EQ(VNConvertTypes::dateTimeToFloat(text), j);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(ManyThreads, LoadTheSettingsOnce) {
  const DefaultsFileOfTest file("{}");
  const Launcher launcher("{ Date = 3; MoneyPrefix = \"CHF \"; }");
  VNConvertTypes::setDefaultHost("127.0.0.1");
  convertOnManyThreads(200);
  EXPECT_EQ(shownDate(), "05/06/2004");
  EXPECT_EQ(launcher.peer.connections(), 1);
}

TEST(ManyThreads, AskAHostThatDoesNotAnswerOnce) {
  const DefaultsFileOfTest file("{}");
  const ScriptedPeer peer([](PeerConnection&) {});  // closes at once
  Settings settings = Settings::current();
  settings.basePort = peer.port() + 1;
  Settings::replaceForTest(settings);
  VNConvertTypes::setDefaultHost("127.0.0.1");
  convertOnManyThreads(20);
  EXPECT_EQ(peer.connections(), 1);
  EXPECT_EQ(shownDate(), "May 6, 2004");
}

}  // namespace
}  // namespace sorvane::test
