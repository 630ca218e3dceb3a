#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <limits>

#include "platform/NSException.h"
#include "platform/PropertyList.h"
#include "platform/Settings.h"
#include "platform/VNGlobalPath.h"
#include "support/ConsoleLines.h"
#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"

namespace sorvane {
namespace {

class SettingsTest : public testing::Test {
 protected:
  Settings settingsOf(const std::string& text) {
    test::writeFile(file_, text);
    return Settings::read(file_.c_str(), "/opt/product/bin");
  }

  /// The error that the text gives, without the name of the file.
  std::string errorOf(const std::string& text) {
    try {
      static_cast<void>(settingsOf(text));
    } catch (const NSException& error) {
      return withoutFile(error.what());
    }
    return "no error";
  }

  std::string withoutFile(const std::string& text) const {
    EXPECT_EQ(text.rfind(file_.string() + ":", 0), 0U) << text;
    return text.substr(file_.string().size() + 1);
  }

  const test::ConsoleLines console_;
  const test::TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_ / "sorvane.conf";
};

TEST_F(SettingsTest, WithoutAFileAreTheDefaults) {
  const Settings settings = Settings::read(nullptr, "/opt/product/bin");
  EXPECT_EQ(settings.basePort, 20221);
  EXPECT_EQ(settings.installationDirectory, "/opt/product");
  EXPECT_EQ(settings.serverConfigDirectory, "/opt/product/Config");
  EXPECT_EQ(settings.userPreferenceFile, "/opt/product/Users/SorvPreferences");
  EXPECT_EQ(settings.nameServerHostFile, "/opt/product/Config/SorvNameServerHost");
  EXPECT_EQ(settings.lockDirectory, access("/run/lock", W_OK | X_OK) == 0 ? "/run/lock" : "/tmp");
  EXPECT_FALSE(settings.localAccessOnly);
  EXPECT_FALSE(settings.bonjourDisabled);
  EXPECT_EQ(settings.dynamicAddress, std::nullopt);
  EXPECT_EQ(settings.hostName, std::nullopt);
  EXPECT_EQ(settings.address, std::nullopt);
  EXPECT_EQ(settings.ethernetAddress, std::nullopt);
  EXPECT_TRUE(settings.aliases.empty());
  EXPECT_EQ(settings.maxMessageBytes, 1048576U);
  EXPECT_EQ(settings.maxConnections, 0);
  EXPECT_EQ(settings.maxRegistryBytes, 536870912U);
  EXPECT_EQ(settings.maxUnfinishedBytes, 268435456U);
  EXPECT_EQ(settings.maxUnsentBytes, 268435456U);
  EXPECT_EQ(settings.partialMessageTimeout, std::chrono::seconds(30));
  EXPECT_EQ(settings.threads, 0);
  EXPECT_TRUE(settings.allowedNetworks.empty());
  EXPECT_TRUE(settings.remoteControl);
  EXPECT_TRUE(settings.remoteRegistration);
  EXPECT_EQ(settings.maxLogBytes, 1073741824);
  EXPECT_FALSE(settings.surviveCrashes);
}

TEST_F(SettingsTest, OfAProgramBelowTheRootLieThere) {
  const Settings settings = Settings::read(nullptr, "/bin");
  EXPECT_EQ(settings.installationDirectory, "/");
  EXPECT_EQ(settings.serverConfigDirectory, "/Config");
}

TEST_F(SettingsTest, AreWhatTheFileSays) {
  const Settings settings = settingsOf(R"(
    BasePort = 30000;
    InstallationDirectory = /srv/product/;
    ServerConfigDirectory = "/srv/the config";
    UserPreferenceFile = /srv/prefs;
    NameServerHostFile = /srv/host;
    LockDirectory = /srv/lock;
    LocalAccessOnly = YES;
    BonjourDisabled = YES;
    DynamicAddress = NO;
    HostName = db.example;
    Address = 10.1.2.3;
    EthernetAddress = "0A:1b:2c:3d:4e:5F";
    Aliases = { 10.0.0.5 = office; "fe80::1" = "the lab"; };
    MaxMessageBytes = 4294967295;
    MaxConnections = 100;
    MaxRegistryBytes = 10000000000;
    MaxUnfinishedBytes = 3000000000;
    MaxUnsentBytes = 1;
    PartialMessageTimeout = 1.5;
    Threads = 3;
    AllowedNetworks = ( "192.0.2.0/24", "2001:db8::/32", 198.51.100.7 );
    RemoteControl = NO;
    RemoteRegistration = NO;
    MaxLogBytes = 5000000000;
    SurviveCrashes = YES;)");
  EXPECT_EQ(settings.basePort, 30000);
  EXPECT_EQ(settings.installationDirectory, "/srv/product");
  EXPECT_EQ(settings.serverConfigDirectory, "/srv/the config");
  EXPECT_EQ(settings.userPreferenceFile, "/srv/prefs");
  EXPECT_EQ(settings.nameServerHostFile, "/srv/host");
  EXPECT_EQ(settings.lockDirectory, "/srv/lock");
  EXPECT_TRUE(settings.localAccessOnly);
  EXPECT_TRUE(settings.bonjourDisabled);
  EXPECT_EQ(settings.dynamicAddress, false);
  EXPECT_EQ(settings.hostName, "db.example");
  EXPECT_EQ(settings.address, "10.1.2.3");
  EXPECT_EQ(settings.ethernetAddress, "0a:1b:2c:3d:4e:5f");
  EXPECT_EQ(settings.aliases, (std::map<std::string, std::string, std::less<>>{
                                  {"10.0.0.5", "office"}, {"fe80::1", "the lab"}}));
  EXPECT_EQ(settings.maxMessageBytes, 4294967295U);
  EXPECT_EQ(settings.maxConnections, 100);
  EXPECT_EQ(settings.maxRegistryBytes, 10000000000U);
  EXPECT_EQ(settings.maxUnfinishedBytes, 3000000000U);
  EXPECT_EQ(settings.maxUnsentBytes, 1U);
  EXPECT_EQ(settings.partialMessageTimeout, std::chrono::milliseconds(1500));
  EXPECT_EQ(settings.threads, 3);
  EXPECT_EQ(settings.allowedNetworks,
            (std::vector{*IPNetwork::parse("192.0.2.0/24"), *IPNetwork::parse("2001:db8::/32"),
                         *IPNetwork::parse("198.51.100.7/32")}));
  EXPECT_FALSE(settings.remoteControl);
  EXPECT_FALSE(settings.remoteRegistration);
  EXPECT_EQ(settings.maxLogBytes, 5000000000);
  EXPECT_TRUE(settings.surviveCrashes);
  EXPECT_TRUE(console_.all().empty());
}

TEST_F(SettingsTest, DerivedPathsFollowTheInstallationDirectory) {
  const Settings settings = settingsOf("InstallationDirectory = /srv; ");
  EXPECT_EQ(settings.serverConfigDirectory, "/srv/Config");
  EXPECT_EQ(settings.userPreferenceFile, "/srv/Users/SorvPreferences");
  EXPECT_EQ(settings.nameServerHostFile, "/srv/Config/SorvNameServerHost");
  EXPECT_EQ(settingsOf("ServerConfigDirectory = /c;").nameServerHostFile, "/c/SorvNameServerHost");
}

TEST_F(SettingsTest, YesAndNoAreReadInEveryForm) {
  for (const std::string yes : {"YES", "yes", "yEs", "1", "true", "TRUE"}) {
    EXPECT_TRUE(settingsOf("LocalAccessOnly = " + yes + ";").localAccessOnly) << yes;
    EXPECT_EQ(settingsOf("DynamicAddress = " + yes + ";").dynamicAddress, true) << yes;
  }
  for (const std::string no : {"NO", "no", "nO", "0", "false", "FALSE"}) {
    EXPECT_FALSE(settingsOf("BonjourDisabled = 1; BonjourDisabled = " + no + ";").bonjourDisabled);
    EXPECT_EQ(settingsOf("DynamicAddress = " + no + ";").dynamicAddress, false) << no;
  }
  for (const std::string automatic : {"AUTO", "auto", "Auto"}) {
    EXPECT_EQ(settingsOf("DynamicAddress = " + automatic + ";").dynamicAddress, std::nullopt);
  }
}

TEST_F(SettingsTest, LowestAndHighestNumbersAreTaken) {
  EXPECT_EQ(settingsOf("BasePort = 2;").basePort, 2);
  EXPECT_EQ(settingsOf("BasePort = 65534;").basePort, 65534);
  EXPECT_EQ(settingsOf("PartialMessageTimeout = 0.001;").partialMessageTimeout.count(), 1);
  EXPECT_EQ(settingsOf("MaxMessageBytes = 1;").maxMessageBytes, 1U);
  EXPECT_EQ(settingsOf("MaxRegistryBytes = 1048576;").maxRegistryBytes, 1048576U);
  EXPECT_EQ(settingsOf("MaxRegistryBytes = 68719476736;").maxRegistryBytes, 68719476736U);
  EXPECT_EQ(settingsOf("Threads = 1024;").threads, 1024);
  EXPECT_EQ(settingsOf("MaxLogBytes = 0;").maxLogBytes, 0);
  EXPECT_EQ(settingsOf("MaxLogBytes = 9223372036854775807;").maxLogBytes, 9223372036854775807);
}

struct Refusal {
  const char* text;
  std::string error;
};

TEST_F(SettingsTest, ValueThatMakesNoSenseNamesFileLineAndReason) {
  const char* const kPort = "1: BasePort: a whole number from 2 to 65534 is needed";
  const char* const kPath = "1: LockDirectory: a path that begins with \"/\" is needed";
  const char* const kAddress = "1: Address: the IPv4 address of a host is needed";
  const char* const kEthernet =
      "1: EthernetAddress: a text of six two-digit hexadecimal groups joined by colons is needed";
  const char* const kName = "1: HostName: a host name without blanks, of 1 to 255 bytes, is needed";
  const char* const kTimeout =
      "1: PartialMessageTimeout: a number of seconds from 0.001 to 86400 is needed";
  const char* const kRegistry =
      "1: MaxRegistryBytes: a whole number from 1048576 to 68719476736 is needed";
  const std::string kMostBytes = std::to_string(std::numeric_limits<std::size_t>::max() / 2);
  const Refusal refusals[] = {
      {"// ports\n\nBasePort = 1;", "3: BasePort: a whole number from 2 to 65534 is needed"},
      {"BasePort = 65535;", kPort},
      {"BasePort = -5;", kPort},
      {"BasePort = \"\";", kPort},
      {"BasePort = 20221x;", kPort},
      {"BasePort = 99999999999999999999;", kPort},
      {"BasePort = (20221);", "1: BasePort: a text is needed"},
      {"BasePort = <20>;", "1: BasePort: a text is needed"},
      {"LockDirectory = \"\";", kPath},
      {"LockDirectory = run/lock;", kPath},
      {"LocalAccessOnly = maybe;", "1: LocalAccessOnly: YES or NO is needed"},
      {"LocalAccessOnly = AUTO;", "1: LocalAccessOnly: YES or NO is needed"},
      {"DynamicAddress = \"\";", "1: DynamicAddress: YES, NO or AUTO is needed"},
      {"HostName = \"\";", kName},
      {"HostName = \"a b\";", kName},
      {"HostName = \"a\\n\";", kName},
      {"Address = 10.0.0;", kAddress},
      {"Address = 10.0.0.256;", kAddress},
      {"Address = host;", kAddress},
      {"Address = \"::1\";", kAddress},
      {"Address = 0.0.0.0;", kAddress},
      {"Address = 224.0.0.251;", kAddress},
      {"EthernetAddress = \"0a:1b:2c:3d:4e\";", kEthernet},
      {"EthernetAddress = \"0a:1b:2c:3d:4e:5g\";", kEthernet},
      {"EthernetAddress = \"0a-1b-2c-3d-4e-5f\";", kEthernet},
      {"Aliases = office;", "1: Aliases: a dictionary of addresses and their aliases is needed"},
      {"\nAliases = {\n 10.0.0.5 = (); };", "2: Aliases: the alias of \"10.0.0.5\" must be a text"},
      {"MaxMessageBytes = 0;", "1: MaxMessageBytes: a whole number from 1 to 4294967295 is needed"},
      {"MaxMessageBytes = 4294967296;",
       "1: MaxMessageBytes: a whole number from 1 to 4294967295 is needed"},
      {"MaxConnections = -1;", "1: MaxConnections: a whole number from 0 to 2147483647 is needed"},
      {"MaxRegistryBytes = 1048575;", kRegistry},
      {"MaxRegistryBytes = 68719476737;", kRegistry},
      {"MaxUnfinishedBytes = 0;",
       "1: MaxUnfinishedBytes: a whole number from 1 to " + kMostBytes + " is needed"},
      {"MaxUnsentBytes = 0;",
       "1: MaxUnsentBytes: a whole number from 1 to " + kMostBytes + " is needed"},
      {"PartialMessageTimeout = 0;", kTimeout},
      {"PartialMessageTimeout = nan;", kTimeout},
      {"PartialMessageTimeout = inf;", kTimeout},
      {"PartialMessageTimeout = 86401;", kTimeout},
      {"AllowedNetworks = \"192.0.2.0/24\";", "1: AllowedNetworks: a list of networks is needed"},
      {"AllowedNetworks = ( () );", "1: AllowedNetworks: a text is needed"},
      {"AllowedNetworks = ( \"192.0.2.1/24\" );",
       "1: AllowedNetworks: \"192.0.2.1/24\" is no network: an address, \"/\" and the number of "
       "leading "
       "bits that count are needed, and no bits of the address behind these"},
      {"RemoteControl = 2;", "1: RemoteControl: YES or NO is needed"},
      {"RemoteRegistration = AUTO;", "1: RemoteRegistration: YES or NO is needed"},
      {"SurviveCrashes = AUTO;", "1: SurviveCrashes: YES or NO is needed"},
      {"MaxLogBytes = -1;",
       "1: MaxLogBytes: a whole number from 0 to 9223372036854775807 is needed"},
      {"MaxLogBytes = 9223372036854775808;",
       "1: MaxLogBytes: a whole number from 0 to 9223372036854775807 is needed"},
      {"Threads = 1025;", "1: Threads: a whole number from 0 to 1024 is needed"},
  };
  for (const Refusal& each : refusals) {
    EXPECT_EQ(errorOf(each.text), each.error) << each.text;
  }
}

TEST_F(SettingsTest, FileThatCannotBeParsedNamesLineAndReason) {
  EXPECT_EQ(errorOf("BasePort = 1\n"),
            "2: the text ends where \";\" after the value should be (column 1)");
  EXPECT_EQ(errorOf("\nBasePort 1;"),
            "2: \"=\" or the end should be here instead of \"1\" (column 10)");
  EXPECT_EQ(errorOf(""), "1: the text is empty (column 1)");
  EXPECT_EQ(errorOf("(a)"), "1: the settings are no dictionary");
}

TEST_F(SettingsTest, FileThatCannotBeReadNamesTheReason) {
  const auto errorOfFile = [&] {
    try {
      static_cast<void>(Settings::read(file_.c_str(), "/opt/product/bin"));
    } catch (const NSException& error) {
      return withoutFile(error.what());
    }
    return std::string("no error");
  };
  EXPECT_EQ(errorOfFile(), "1: cannot be read: No such file or directory");
  ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(errorOfFile(), "1: cannot be read: it is no plain file");
  std::filesystem::remove(file_);
  std::filesystem::create_directory(file_);
  EXPECT_EQ(errorOfFile(), "1: cannot be read: it is no plain file");
  std::filesystem::remove(file_);
  test::writeFile(file_, std::string(PropertyList::kMaximumBytes + 1, ' '));
  EXPECT_EQ(errorOfFile(), "1: is longer than 16777216 bytes");
}

TEST_F(SettingsTest, FileThatThisUserMayNotReadNamesTheReason) {
  test::writeFile(file_, "BasePort = 30000;");
  ASSERT_EQ(chmod(file_.c_str(), 0), 0);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  test::inOwnProcess([this] {
    if (geteuid() == 0) {
      ASSERT_EQ(seteuid(65534), 0);
    }
    try {
      static_cast<void>(Settings::read(file_.c_str(), "/opt/product/bin"));
      FAIL() << "no error";
    } catch (const NSException& error) {
      EXPECT_EQ(withoutFile(error.what()), "1: cannot be read: Permission denied");
    }
  });
}

TEST_F(SettingsTest, LookTellsTheLineOfEachSettingAndOfEachUnknownKey) {
  test::writeFile(file_, "// ports\nBasePort = 4711;\nBaseport = 1;\nHostName = alpha;\n");
  const SettingsReading reading = Settings::look(file_.c_str(), "/opt/product/bin");
  EXPECT_EQ(reading.settings.basePort, 4711);
  EXPECT_EQ(reading.settings.installationDirectory, "/opt/product");
  EXPECT_EQ(reading.lines, (decltype(reading.lines){{"BasePort", 2}, {"HostName", 4}}));
  EXPECT_EQ(reading.unknown, (decltype(reading.unknown){{"Baseport", 3}}));
  EXPECT_EQ(reading.fault, std::nullopt);
  EXPECT_EQ(console_.all(), std::vector<std::string>()) << "it writes nothing";
}

TEST_F(SettingsTest, LookAtAFileWithAFaultTellsItAndGivesTheDefaults) {
  test::writeFile(file_, "Address = \"192.0.2.1\";\nBasePort = many;\n");
  const SettingsReading reading = Settings::look(file_.c_str(), "/opt/product/bin");
  EXPECT_EQ(withoutFile(reading.fault.value_or("none")),
            "2: BasePort: a whole number from 2 to 65534 is needed");
  EXPECT_EQ(reading.settings.address, std::nullopt);
  EXPECT_EQ(reading.settings.installationDirectory, "/opt/product");
  EXPECT_EQ(console_.all(), std::vector<std::string>()) << "it writes nothing";
}

TEST(SettingsFiles, AreOneBesideTheProgramAndThatOfTheSystem) {
  EXPECT_EQ(
      Settings::filesFor("/opt/product/bin"),
      (std::vector<std::string>{"/opt/product/etc/sorvane.conf", "/etc/sorvane/sorvane.conf"}));
  const test::TemporaryFolder folder;
  EXPECT_FALSE(Settings::fileExists((folder / "sorvane.conf").string()));
  test::writeFile(folder / "sorvane.conf", "");
  EXPECT_TRUE(Settings::fileExists((folder / "sorvane.conf").string()));
}

TEST_F(SettingsTest, UnknownKeyCostsOneConsoleLineAndIsIgnored) {
  EXPECT_EQ(settingsOf("BasePort = 30000;\n\"Base\\nPort\" = (1);\nbaseport = 5;").basePort, 30000);
  ASSERT_EQ(console_.all().size(), 2U);
  EXPECT_EQ(withoutFile(console_.all()[0]), "2: the unknown setting \"Base\\nPort\" is ignored");
  EXPECT_EQ(withoutFile(console_.all()[1]), "3: the unknown setting baseport is ignored");
}

/// The probe in a tree of its own; it prints what its settings are there.
class InstalledProgram {
 public:
  InstalledProgram() {
    std::filesystem::create_directory(tree_ / "bin");
    std::filesystem::copy_file(SORVANE_SETTINGS_PROBE, program_);
  }
  [[nodiscard]] std::filesystem::path file() const { return tree_ / "etc/sorvane.conf"; }
  [[nodiscard]] std::string folder() const { return tree_.path().string(); }

  /// Replaces the running process.
  void become(const char* argument = nullptr) const {
    execl(program_.c_str(), program_.c_str(), argument, nullptr);
    _exit(99);
  }
  [[nodiscard]] test::PartEnd run(const char* argument = nullptr) const {
    return test::outputOfPart([&] { become(argument); });
  }
  /// What it prints when it has the settings of this port and the defaults.
  [[nodiscard]] std::string printed(const std::string& port) const {
    return "port " + port + "\ninstalled in " + folder() + "\nconfig in " + folder() +
           "/Config\npreferences " + folder() + "/Users/SorvPreferences\n";
  }

 private:
  const test::TemporaryFolder tree_;
  const std::filesystem::path program_ = tree_ / "bin/probe";
};

TEST(SettingsOfAProcess, AreThoseBesideItsExecutable) {
  const InstalledProgram program;
  test::writeFile(program.file(), "BasePort = 30001;");
  const test::PartEnd part = program.run();
  EXPECT_EQ(part.status, 0);
  EXPECT_EQ(part.output, program.printed("30001"));
}

TEST(SettingsOfAProcess, WithAnErrorCostOneConsoleLineAndAllDefaultsHold) {
  const InstalledProgram program;
  test::writeFile(program.file(), "BasePort = 30001;\nThreads = none;");
  const test::PartEnd part = program.run();
  EXPECT_EQ(part.status, 0);
  EXPECT_EQ(part.output, program.printed("20221"));
  const std::string expected =
      program.file().string() + ":2: Threads: a whole number from 0 to 1024 is needed\n";
  EXPECT_EQ(test::withoutProgramName(part.errors), expected);
}

TEST(SettingsOfAProcess, WithAnErrorEndItWithStatus0WhereItWantsThat) {
  const InstalledProgram program;
  test::writeFile(program.file(), "\nBasePort = none;");
  const test::PartEnd part = program.run("strict");
  EXPECT_EQ(part.status, 0);
  EXPECT_EQ(part.output, "");
  const std::string expected =
      program.file().string() + ":2: BasePort: a whole number from 2 to 65534 is needed\n";
  EXPECT_EQ(test::withoutProgramName(part.errors), expected);
}

TEST(SettingsOfAProcess, AreThoseOfTheSystemWhenNoneLieBesideTheExecutable) {
  if (const std::string why = test::whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  const InstalledProgram program;
  const auto portWithSystemFile = [&] {
    const test::PartEnd part = test::outputInOwnNetwork([&] {
      ASSERT_EQ(mount("none", "/etc", "tmpfs", 0, nullptr), 0);
      test::writeFile("/etc/sorvane/sorvane.conf", "BasePort = 30002;");
      program.become();
    });
    return part.output.substr(0, part.output.find('\n'));
  };
  EXPECT_EQ(portWithSystemFile(), "port 30002");
  test::writeFile(program.file(), "BasePort = 30003;");
  EXPECT_EQ(portWithSystemFile(), "port 30003");
}

TEST(SettingsOfAProcess, CanBeReplacedByATest) {
  test::inOwnProcess([] {
    Settings settings;
    settings.installationDirectory = "/somewhere";
    Settings::replaceForTest(settings);
    EXPECT_EQ(VNGlobalPath::sorvanePath(), "/somewhere");
    settings.installationDirectory = "/elsewhere";
    Settings::replaceForTest(settings);
    EXPECT_EQ(VNGlobalPath::sorvanePath(), "/elsewhere");
  });
}

}  // namespace
}  // namespace sorvane
