// Preferences over real sockets: the replies, and the file after each change.
#include "integration/Preferences.h"

namespace sorvane::test {
namespace {

using Dictionary = PropertyList::Dictionary;

const Texts kAll = {{"changePreferences", "YES"},
                    {"startDatabases", "NO"},
                    {"loginDisplay", "both"},
                    {"databases", "db1 db2"}};

class Preferences : public ::testing::Test {
 protected:
  Preferences() { server_.start(); }

  void restart() {
    server_.kill();
    server_.start();
    client_.emplace(server_);
  }
  /// The file holds exactly this.
  void fileHolds(const Dictionary& preferences) {
    EXPECT_EQ(preferencesOnDisk(server_), PropertyList(preferences));
    EXPECT_EQ(filesBesidePreferences(server_), 0);
  }

  Daemon server_;
  std::optional<PreferenceClient> client_{server_};
};

TEST_F(Preferences, AreAnEmptyDictionaryAtTheFirstStart) {
  EXPECT_EQ(readFile(preferenceFile(server_)), "{}");
}

TEST_F(Preferences, AreStoredAndAnsweredAlsoAfterARestart) {
  client_->sets("anna", kAll);
  const Dictionary expected = {{"anna", Dictionary{{"changePreferences", "YES"},
                                                   {"startDatabases", "NO"},
                                                   {"loginDisplay", "both"},
                                                   {"databases", "db1 db2"}}}};
  fileHolds(expected);
  EXPECT_EQ(client_->gets("anna"), kAll);
  restart();
  EXPECT_EQ(client_->gets("anna"), kAll);
  fileHolds(expected);
}

TEST_F(Preferences, TakeTheCommandWordInCapitalLetters) {
  client_->sets("anna", {{"databases", "db1"}});
  EXPECT_EQ(client_->asks("GET_USERPREFERENCES", {{"key", "anna"}}), (Texts{{"databases", "db1"}}));
}

TEST_F(Preferences, AnswerTheKeySettingUntilOneIsStoredAndKeepThatOne) {
  const auto reply = server_.ask(request("get_userpreferences_key", {{"key", ""}}));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->data("result"), std::string_view("group:application\0", 18));
  EXPECT_EQ(client_->asks("set_userpreferences_key", {{"key", "user:name"}}), kSucceed);
  fileHolds({{"key", "user:name"}});
  EXPECT_EQ(client_->asks("get_userpreferences_key", {{"key", ""}}), kEmptyDictionary);
  restart();
  EXPECT_EQ(client_->asks("get_userpreferences_key", {{"key", ""}}), kEmptyDictionary);
  fileHolds({{"key", "user:name"}});
}

TEST_F(Preferences, StoreAnEmptyEntryForAKeyAlone) {
  client_->sets("anna", {});
  fileHolds({{"anna", Dictionary{}}});
  EXPECT_EQ(client_->gets("anna"), kEmptyDictionary);
}

TEST_F(Preferences, ReplaceAnEntryWhole) {
  client_->sets("anna", kAll);
  client_->sets("anna", {{"databases", "db3"}});
  fileHolds({{"anna", Dictionary{{"databases", "db3"}}}});
  EXPECT_EQ(client_->gets("anna"), (Texts{{"databases", "db3"}}));
}

TEST_F(Preferences, OfAnUnknownEntryAreThoseOfTheFallback) {
  client_->sets("group", {{"databases", "db1"}});
  EXPECT_EQ(client_->asks("get_userpreferences", {{"key", "anna"}, {"*", "group"}}),
            (Texts{{"databases", "db1"}}));
  EXPECT_EQ(client_->asks("get_userpreferences", {{"key", "anna"}, {"*", "nobody"}}),
            (Texts{{"result", "none"}}));
  EXPECT_EQ(client_->gets("anna"), kEmptyDictionary);
}

TEST_F(Preferences, TellNilFromAnEmptyDictionary) {
  for (const char* word : {"get_userpreferences_key", "set_userpreferences_key",
                           "set_userpreferences", "get_userpreferences"}) {
    EXPECT_EQ(client_->asks(word, {}), kNil) << word;
  }
  EXPECT_EQ(client_->asks(Message{}), kEmptyDictionary);
  EXPECT_EQ(client_->asks("no such word", {{"key", "anna"}}), kEmptyDictionary);
  EXPECT_EQ(client_->asks(Message{{"newPort", ""}, {"portName", "db1"}}), kEmptyDictionary);
  fileHolds({});
}

TEST_F(Preferences, KeepTextsOfAllKindsThroughTheWireTheFileAndARestart) {
  const std::vector<std::string> texts = {
      "say \"hi\"",        "C:\\n",      "two\r\nlines\t",        "J\u00fcrgen", "\U0001F600", "",
      "group:application", "{ a = b; }", std::string(100000, 'x')};
  Dictionary expected;
  for (const std::string& text : texts) {
    const std::string entry = text.substr(0, 60000);  // a key's length has 16 bits, a value's 32
    client_->sets(entry, {{"databases", text}});
    expected.insert_or_assign(entry, Dictionary{{"databases", text}});
    fileHolds(expected);
  }
  restart();
  for (const std::string& text : texts) {
    EXPECT_EQ(client_->gets(text.substr(0, 60000)), (Texts{{"databases", text}}));
  }
}

TEST_F(Preferences, ThatAreDamagedAreReplacedAtTheNextStart) {
  client_->sets("anna", kAll);
  server_.kill();
  writeFile(preferenceFile(server_), "{ anna = { databases = ");
  server_.start();
  fileHolds({});
}

TEST_F(Preferences, StayWhenTheConnectionThatSetThemEnds) {
  client_->sets("anna", kAll);
  client_.emplace(server_);
  EXPECT_EQ(client_->gets("anna"), kAll);
}

}  // namespace
}  // namespace sorvane::test
