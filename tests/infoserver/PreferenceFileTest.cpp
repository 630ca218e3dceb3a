// The preference file: what it looks like, what survives a restart, and what a failing disk does.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "infoserver/InfoServer.h"
#include "infoserver/PreferenceStore.h"
#include "platform/Console.h"
#include "support/ConsoleLines.h"
#include "support/OwnNamespaces.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;
using Dictionary = PropertyList::Dictionary;

class PreferenceFile : public InfoServerTest {};

std::string golden(const std::string& name) {
  return readFile(fs::path(SORVANE_SOURCE_DIR) / "tests/infoserver/golden" / name);
}

struct GoldenCase {
  const char* name;
  std::vector<std::pair<std::string, Texts>> entries;
};

const GoldenCase kGoldenCases[] = {
    {"nothing", {}},
    {"plain",
     {{"anna",
       {{"changePreferences", "YES"},
        {"startDatabases", "NO"},
        {"loginDisplay", "both"},
        {"databases", "db1"}}},
      {"bert", {{"databases", "db_2"}}}}},
    {"quotes",
     {{"say \"hi\"",
       {{"loginDisplay", "a \"b\" c"}, {"databases", "it's"}, {"startDatabases", "\""}}}}},
    {"backslashes",
     {{"C:\\users\\anna", {{"databases", "\\"}, {"loginDisplay", "\\n is no line"}}}}},
    {"line_breaks",
     {{"two\nlines", {{"databases", "db1\ndb2\r\ndb3\n"}, {"loginDisplay", "tab\there"}}}}},
    {"umlauts", {{"J\u00fcrgen", {{"databases", "\u00c4rzte \u00fcber Stra\u00dfen"}}}}},
    {"emoji", {{"\U0001F600", {{"databases", "a\U0001F680z \u20ac"}}}}},
    {"empty_strings", {{"", {{"databases", ""}}}, {"empty", {}}}},
    {"keys_that_need_quotes",
     {{"group:application", {{"databases", "a.b"}}},
      {"two words", {{"databases", "/path/file"}}},
      {"user@host", {{"databases", "$HOME-1"}}},
      {"*", {{"databases", "* // no comment /* nor this */"}}},
      {"{}=;()<>,", {{"databases", "{ a = b; }"}}},
      {"0", {{"databases", "0012"}}}}},
    {"entry_named_key", {{"key", {{"databases", "db1"}}}}},
    {"control_characters", {{"\x01\x1b\x7f", {{"databases", "\a\b\f\v"}}}}},
};

class PreferenceFileText : public PreferenceFile,
                           public ::testing::WithParamInterface<GoldenCase> {};

TEST_P(PreferenceFileText, IsAsExpectedToTheByteAndReadsBack) {
  start();
  for (const auto& [entry, settings] : GetParam().entries) {
    sets(entry, settings);
  }
  EXPECT_EQ(readFile(file_), golden(GetParam().name + std::string(".plist")));

  start();
  for (const auto& [entry, settings] : GetParam().entries) {
    const std::optional<Texts> reply = gets(entry);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->size(), settings.size());
    EXPECT_TRUE(
        std::is_permutation(reply->begin(), reply->end(), settings.begin(), settings.end()));
  }
}

INSTANTIATE_TEST_SUITE_P(Golden, PreferenceFileText, ::testing::ValuesIn(kGoldenCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(PreferenceFile, HoldsTheKeySettingAsAString) {
  sets("anna", {{"databases", "db1"}});
  setsKey("group:application");
  EXPECT_EQ(readFile(file_), golden("key_setting.plist"));
}

TEST_F(PreferenceFile, ThatIsMissingIsMadeWithItsFolder) {
  ASSERT_FALSE(fs::exists(file_.parent_path()));
  start();
  EXPECT_EQ(readFile(file_), PropertyList().description());
  EXPECT_EQ(getsKey(), (Texts{{"result", "group:application"}}));
}

TEST_F(PreferenceFile, ThatHoldsADictionaryIsNotTouchedAtStart) {
  const std::string content = "anna = { databases = \"db1\"; }; // without braces\n";
  writeFile(file_, content);
  ASSERT_EQ(::chmod(file_.c_str(), 0400), 0);
  struct stat before {};
  ASSERT_EQ(::stat(file_.c_str(), &before), 0);
  start();
  struct stat after {};
  ASSERT_EQ(::stat(file_.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(readFile(file_), content);
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
}

TEST_F(PreferenceFile, ThatIsDamagedIsReplacedByAnEmptyDictionary) {
  std::string deep;
  for (int i = 0; i < 100; ++i) {
    deep += "{ a = ";
  }
  for (const std::string& content :
       {std::string(), std::string(" \n"), std::string("{ anna = { databases = db1; };"),
        std::string("(a, b)"), std::string("text"), std::string("<00ff>"),
        std::string("{ a = \"\xff\"; }"), std::string("{ a = \0; }", 10), std::string(100, '\0'),
        deep, std::string(PropertyList::kMaximumBytes + 1, ' ')}) {
    startWith(content);
    EXPECT_EQ(readFile(file_), PropertyList().description()) << content.substr(0, 80);
    sets("anna", {{"databases", "db2"}});
    EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"anna", Dictionary{{"databases", "db2"}}}}));
  }
}

TEST_F(PreferenceFile, KeepsModeAndOwnerWhenWritten) {
  writeFile(file_, "{ }");
  ASSERT_EQ(::chmod(file_.c_str(), 0660), 0);
  const bool root = ::geteuid() == 0;
  if (root) {
    ASSERT_EQ(::chown(file_.c_str(), 4711, 4712), 0);
  }
  sets("anna", {});
  struct stat status {};
  ASSERT_EQ(::stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0660U);
  EXPECT_EQ(status.st_uid, root ? 4711U : ::geteuid());
  EXPECT_EQ(filesBesideTheFile(), 0);
}

TEST_F(PreferenceFile, ThatIsALinkStaysOne) {
  writeFile(folder_ / "elsewhere", "{ anna = { databases = db1; }; }");
  fs::create_directories(file_.parent_path());
  fs::create_symlink("../elsewhere", file_);
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
  sets("bert", {});
  EXPECT_TRUE(fs::is_symlink(file_));
  EXPECT_EQ(readFile(folder_ / "elsewhere"), readFile(file_));
  EXPECT_EQ(onDisk().dictionary()->size(), 2U);
}

TEST_F(PreferenceFile, ThatIsAPipeOrAFolderKeepsNobodyFromWorking) {
  fs::create_directories(file_);
  sets("anna", {{"databases", "db1"}});
  EXPECT_TRUE(fs::is_directory(file_));
  EXPECT_EQ(filesBesideTheFile(), 0);
  fs::remove(file_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  start();
  sets("anna", {{"databases", "db1"}});
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
  EXPECT_TRUE(fs::is_fifo(file_));
}

TEST_F(PreferenceFile, LosesTheTemporaryFilesOfACrashAtTheNextStart) {
  startWith("{ anna = { }; }");
  writeFile(file_.parent_path() / ".SorvPreferences.tmp-4711-1", "{ half");
  writeFile(file_.parent_path() / ".SorvPreferences.tmp-4711-2", "");
  start();
  EXPECT_EQ(filesBesideTheFile(), 0);
  EXPECT_EQ(gets("anna"), kEmptyDictionary);
}

TEST_F(PreferenceFile, IsOverwrittenWhateverSomebodyElseWroteMeanwhile) {
  sets("anna", {{"databases", "db1"}});
  writeFile(file_, "{ bert = { databases = db2; }; }");
  EXPECT_EQ(gets("bert", "bert"), (Texts{{"result", "none"}})) << "it is read at the start alone";
  sets("carl", {});
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"anna", Dictionary{{"databases", "db1"}}},
                                              {"carl", Dictionary{}}}));
}

TEST_F(PreferenceFile, ComesBackWithItsFolderAtTheNextChange) {
  sets("anna", {});
  fs::remove_all(file_.parent_path());
  sets("bert", {});
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"anna", Dictionary{}}, {"bert", Dictionary{}}}));
}

TEST_F(PreferenceFile, KeepsWhatTheInfoServerDoesNotKnow) {
  startWith("{ version = 3; list = (1, (2), { a = <00ff>; }); anna = { color = red; }; }");
  sets("bert", {});
  EXPECT_EQ(onDisk(), PropertyList::parse("{ version = 3; list = (1, (2), { a = <00ff>; });"
                                          "  anna = { color = red; }; bert = { }; }"));
}

/// Preferences whose text has, or would have, the greatest length.
class LongPreferenceFile : public PreferenceFile {
 protected:
  static constexpr std::size_t kMost = PreferenceStore::kMaximumFileBytes;

  /// Starts with preferences to which about so many bytes can be added.
  void startWithRoomFor(std::size_t bytes) {
    startWith("{\n    filler = " + std::string(kMost - bytes - 20, 'x') + ";\n}");
  }
  /// Stores an entry, which must be refused.
  void setsInVain(std::string_view entry, const Texts& settings) {
    Texts texts = {{"key", std::string(entry)}};
    texts.insert(texts.end(), settings.begin(), settings.end());
    EXPECT_EQ(asks("set_userpreferences", texts), kEmptyDictionary);
  }

  const ConsoleLines console_;
};

TEST_F(LongPreferenceFile, IsRefusedWithAConsoleLineAndNothingChanges) {
  startWithRoomFor(1000);
  sets("anna", {{"databases", "db1"}});
  const std::string before = readFile(file_);
  const std::string big(1000, 'x');
  setsInVain("big", {{"databases", big}});
  EXPECT_EQ(gets("big", "big"), (Texts{{"result", "none"}})) << "not in memory either";
  setsInVain("anna", {{"databases", big}});
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}})) << "the earlier entry stays";
  EXPECT_EQ(asks("set_userpreferences_key", {{"key", big}}), kEmptyDictionary);
  EXPECT_EQ(getsKey(), (Texts{{"result", "group:application"}}));
  EXPECT_EQ(readFile(file_), before);
  EXPECT_EQ(console_.count("a change of the preferences is refused"), 3);
  sets("bert", {{"databases", "db2"}});
  EXPECT_NE(readFile(file_).find("databases = db2;"), std::string::npos);
}

TEST_F(LongPreferenceFile, CostsAFewConsoleLinesHoweverOftenAChangeIsRefused) {
  startWithRoomFor(10);
  for (int i = 0; i < 1000; ++i) {
    setsInVain("anna", {{"databases", "db1"}});
  }
  EXPECT_GE(console_.count("a change of the preferences is refused"), 1);
  EXPECT_LT(console_.count("a change of the preferences is refused"), 500);
}

TEST_F(LongPreferenceFile, MayHaveTheGreatestLengthAndNoByteMore) {
  startWithRoomFor(1000);
  // An entry that is replaced, one that is escaped, one that grows, and the key setting.
  sets("a", {{"databases", "\n\u00e4"}});
  sets("a", {});
  sets("line\nfeed", {{"loginDisplay", "\x01 \U0001f600"}});
  sets("b", {{"databases", ""}});
  setsKey("two words");
  const std::size_t left = kMost - readFile(file_).size();
  const std::string filler(left + 2, 'x');  // two quotes go when "b" holds a word
  setsInVain("b", {{"databases", filler + "x"}});
  sets("b", {{"databases", filler}});
  EXPECT_EQ(readFile(file_).size(), kMost);
  setsInVain("d", {});

  start();
  EXPECT_EQ(gets("b"), (Texts{{"databases", filler}})) << "it is read again";
  setsInVain("b", {{"databases", filler + "x"}});
  sets("b", {{"databases", ""}});
  EXPECT_EQ(readFile(file_).size(), kMost - left);
}

TEST_F(LongPreferenceFile, OfTheFirstEntryCountsItsBraces) {
  start();
  const std::size_t frame = std::string("{\n    a = {\n        databases = ;\n    };\n}").size();
  setsInVain("a", {{"databases", std::string(kMost - frame + 1, 'x')}});
  sets("a", {{"databases", std::string(kMost - frame, 'x')}});
  EXPECT_EQ(readFile(file_).size(), kMost);
}

// ---- Disks that fail

TEST_F(PreferenceFile, OnAFullDiskStaysWholeAndTheReplyIsTheSame) {
  fs::create_directory(file_.parent_path());
  inOwnMounts([&] {
    mountSmallDisk(file_.parent_path(), 64);
    start();
    sets("anna", {{"databases", "db1"}});
    const std::string before = readFile(file_);
    fillDisk(file_.parent_path());
    sets("bert", {{"databases", std::string(9000, 'x')}});
    setsKey("user");
    EXPECT_EQ(readFile(file_), before);
    EXPECT_EQ(filesBesideTheFile(), 1) << "the filler";
    EXPECT_EQ(gets("bert"), (Texts{{"databases", std::string(9000, 'x')}})) << "kept in memory";
    EXPECT_EQ(getsKey(), kEmptyDictionary);

    fs::remove(file_.parent_path() / "filler");
    sets("carl", {});
    EXPECT_EQ(onDisk(),
              PropertyList(Dictionary{{"anna", Dictionary{{"databases", "db1"}}},
                                      {"bert", Dictionary{{"databases", std::string(9000, 'x')}}},
                                      {"carl", Dictionary{}},
                                      {"key", "user"}}));
    EXPECT_EQ(filesBesideTheFile(), 0);
  });
}

TEST_F(PreferenceFile, ThatNoLongerFitsStaysWhole) {
  fs::create_directory(file_.parent_path());
  inOwnMounts([&] {
    mountSmallDisk(file_.parent_path(), 64);
    start();
    sets("anna", {{"databases", "db1"}});
    const std::string before = readFile(file_);
    sets("big", {{"databases", std::string(100000, 'x')}});
    EXPECT_EQ(readFile(file_), before);
    EXPECT_EQ(filesBesideTheFile(), 0);
    sets("big", {});
    EXPECT_EQ(onDisk().dictionary()->size(), 2U);
  });
}

TEST_F(PreferenceFile, InAReadOnlyFolderStaysWholeAndTheReplyIsTheSame) {
  fs::create_directory(file_.parent_path());
  inOwnMounts([&] {
    mountSmallDisk(file_.parent_path(), 64);
    start();
    sets("anna", {});
    const std::string before = readFile(file_);
    setReadOnly(file_.parent_path(), true);
    sets("bert", {});
    EXPECT_EQ(readFile(file_), before);
    EXPECT_EQ(gets("bert"), kEmptyDictionary);

    setReadOnly(file_.parent_path(), false);
    sets("carl", {});
    EXPECT_EQ(onDisk().dictionary()->size(), 3U);
  });
}

TEST_F(PreferenceFile, ThatCannotBeMadeAtStartKeepsNobodyFromWorking) {
  inOwnMounts([&] {
    mountSmallDisk(folder_.path(), 64);
    setReadOnly(folder_.path(), true);
    start();
    EXPECT_FALSE(fs::exists(file_));
    sets("anna", {{"databases", "db1"}});
    EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
    setReadOnly(folder_.path(), false);
    sets("bert", {});
    EXPECT_EQ(onDisk().dictionary()->size(), 2U);
  });
}

TEST_F(PreferenceFile, ThatIsDamagedOnAReadOnlyDiskStaysAndCountsAsEmpty) {
  fs::create_directory(file_.parent_path());
  inOwnMounts([&] {
    mountSmallDisk(file_.parent_path(), 64);
    writeFile(file_, "{ damaged");
    setReadOnly(file_.parent_path(), true);
    start();
    EXPECT_EQ(readFile(file_), "{ damaged");
    EXPECT_EQ(gets("damaged", "other"), (Texts{{"result", "none"}}));
  });
}

}  // namespace
}  // namespace sorvane::test
