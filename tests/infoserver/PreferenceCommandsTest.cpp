// The four commands: what they answer, and what they do to the preferences.
#include "infoserver/InfoServer.h"
#include "infoserver/PreferenceCommands.h"

namespace sorvane::test {
namespace {

using Dictionary = PropertyList::Dictionary;

const Texts kAll = {{"changePreferences", "YES"},
                    {"startDatabases", "NO"},
                    {"loginDisplay", "both"},
                    {"databases", "db1 db2"}};
const Message kNoAction{{"key", "anna"}};

class PreferenceCommands : public InfoServerTest {};

TEST_F(PreferenceCommands, AreFourWordsInThisOrder) {
  std::vector<std::string_view> words;
  for (const PreferenceCommand& command : preferenceCommands()) {
    words.push_back(command.word);
  }
  EXPECT_EQ(words,
            (std::vector<std::string_view>{"get_userpreferences_key", "set_userpreferences_key",
                                           "set_userpreferences", "get_userpreferences"}));
}

TEST_F(PreferenceCommands, InAnyLetterCaseAreTheSame) {
  EXPECT_EQ(asks("SET_USERPREFERENCES", {{"key", "anna"}, {"databases", "db1"}}), kSucceed);
  EXPECT_EQ(asks("GET_USERPREFERENCES", {{"key", "anna"}}), (Texts{{"databases", "db1"}}));
  EXPECT_EQ(asks("Get_UserPreferences_Key", {{"key", ""}}),
            (Texts{{"result", "group:application"}}));
  EXPECT_EQ(asks("sEt_uSERPREFERENCES_kEY", {{"key", "user"}}), kSucceed);
  EXPECT_EQ(getsKey(), kEmptyDictionary);
}

TEST_F(PreferenceCommands, IgnoreTheCaseOfAsciiLettersAlone) {
  // U+212A, the Kelvin sign, is a "k" in other letter cases but not in ASCII; "?" lies one case
  // away from "_".
  EXPECT_EQ(asks("get_userpreferences_\xe2\x84\xaa"
                 "ey",
                 {{"key", ""}}),
            kEmptyDictionary);
  EXPECT_EQ(asks("get?userpreferences", {}), kEmptyDictionary);
  EXPECT_EQ(asks("get\x7fuserpreferences", {}), kEmptyDictionary);
}

TEST_F(PreferenceCommands, OfAnyOtherWordAnswerAnEmptyDictionary) {
  for (const char* word : {"", "get_userpreference", "get_userpreferencess", " get_userpreferences",
                           "get_userpreferences_key ", "findPort", "restart"}) {
    EXPECT_EQ(asks(word, {}), kEmptyDictionary) << word;
    EXPECT_EQ(asks(word, {{"key", "anna"}}), kEmptyDictionary) << word;
  }
  EXPECT_EQ(onDisk(), PropertyList());
}

TEST_F(PreferenceCommands, WithoutAnActionAnswerAnEmptyDictionary) {
  EXPECT_EQ(asks(Message{}), kEmptyDictionary);
  EXPECT_EQ(asks(kNoAction), kEmptyDictionary);
}

TEST_F(PreferenceCommands, WithAnActionThatIsNoTextAnswerAnEmptyDictionary) {
  Message message = kNoAction.owned();
  EXPECT_EQ(asks(message.setData("action", "")), kEmptyDictionary);
  EXPECT_EQ(asks(message.setData("action", "get_userpreferences\xff")), kEmptyDictionary);
}

TEST_F(PreferenceCommands, TakeAWordWithoutItsNulOrWithMoreBehindIt) {
  Message message = kNoAction.owned();
  EXPECT_EQ(asks(message.setData("action", "set_userpreferences")), kSucceed);
  EXPECT_EQ(asks(message.setData("action", std::string_view("set_userpreferences\0tail", 24))),
            kSucceed);
}

TEST_F(PreferenceCommands, WithoutAKeyAnswerNilAndChangeNothing) {
  sets("anna", kAll);
  const std::string before = readFile(file_);
  for (const PreferenceCommand& command : preferenceCommands()) {
    EXPECT_EQ(asks(command.word, {}), kNil) << command.word;
    EXPECT_EQ(asks(command.word, {{"*", "anna"}, {"databases", "other"}}), kNil) << command.word;
  }
  EXPECT_EQ(readFile(file_), before);
  EXPECT_EQ(gets("anna"), kAll);
}

TEST_F(PreferenceCommands, WithAKeyThatIsNoTextAnswerAnEmptyDictionaryAndChangeNothing) {
  sets("anna", kAll);
  const std::string before = readFile(file_);
  for (const std::string_view bytes : {std::string_view(""), std::string_view("\xff\0", 2)}) {
    for (const char* word :
         {"set_userpreferences_key", "set_userpreferences", "get_userpreferences"}) {
      Message message = request(word, {{"*", "anna"}, {"databases", "other"}});
      EXPECT_EQ(asks(message.setData("key", bytes)), kEmptyDictionary) << word;
    }
  }
  EXPECT_EQ(readFile(file_), before);
  EXPECT_EQ(gets("anna"), kAll);
}

// ---- The key setting

class PreferenceKeySetting : public InfoServerTest {};

TEST_F(PreferenceKeySetting, BeforeItIsSetIsAnsweredAsGroupApplication) {
  start();
  const auto reply = deliverInProcess(
      *server_, request("get_userpreferences_key", {{"key", "whatever"}}), client_);
  ASSERT_TRUE(reply);
  ASSERT_EQ(reply->entries().size(), 1U);
  EXPECT_EQ(reply->data("result"), std::string_view("group:application\0", 18));
}

TEST_F(PreferenceKeySetting, IsAskedForWithAKeyOfAnyValueEvenNone) {
  Message message{{"action", "get_userpreferences_key"}};
  EXPECT_EQ(asks(message.setData("key", "")), (Texts{{"result", "group:application"}}));
  EXPECT_EQ(asks(message.setData("key", "\xff")), (Texts{{"result", "group:application"}}));
}

TEST_F(PreferenceKeySetting, OnceSetIsAnsweredWithAnEmptyDictionaryAndKept) {
  setsKey("user:name");
  EXPECT_EQ(getsKey(), kEmptyDictionary);
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"key", "user:name"}}));
  start();
  EXPECT_EQ(getsKey(), kEmptyDictionary);
  setsKey("");
  EXPECT_EQ(getsKey(), kEmptyDictionary);
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"key", ""}}));
}

TEST_F(PreferenceKeySetting, LeavesTheEntriesAlone) {
  sets("anna", kAll);
  setsKey("user");
  EXPECT_EQ(gets("anna"), kAll);
}

TEST_F(PreferenceKeySetting, ThatIsDataInTheFileIsAnsweredAsItsText) {
  startWith("{ key = <75736572 00212121>; }");
  EXPECT_EQ(getsKey(), (Texts{{"result", "user"}}));
  startWith("{ key = <75736572>; }");
  EXPECT_EQ(getsKey(), (Texts{{"result", "user"}}));
}

TEST_F(PreferenceKeySetting, ThatHasNoTextAtAllIsAnsweredWithAnEmptyDictionary) {
  for (const char* content :
       {"{ key = <>; }", "{ key = <ff>; }", "{ key = (a, b); }", "{ key = { a = b; }; }"}) {
    startWith(content);
    EXPECT_EQ(getsKey(), kEmptyDictionary) << content;
  }
}

// ---- Setting entries

class SetPreferences : public InfoServerTest {};

TEST_F(SetPreferences, StoresAllFourSettings) {
  sets("anna", kAll);
  EXPECT_EQ(gets("anna"), kAll);
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"anna", Dictionary{{"changePreferences", "YES"},
                                                                  {"startDatabases", "NO"},
                                                                  {"loginDisplay", "both"},
                                                                  {"databases", "db1 db2"}}}}));
}

TEST_F(SetPreferences, WithAKeyAloneStoresAnEmptyEntry) {
  sets("anna", {});
  EXPECT_EQ(gets("anna"), kEmptyDictionary);
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"anna", Dictionary{}}}));
}

TEST_F(SetPreferences, ReplacesAnEarlierEntryWhole) {
  sets("anna", kAll);
  sets("anna", {{"databases", "db3"}});
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db3"}}));
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"anna", Dictionary{{"databases", "db3"}}}}));
}

TEST_F(SetPreferences, StoresTheFourSettingsAndNothingElse) {
  sets("anna", {{"databases", "db1"}, {"color", "red"}, {"*", "bert"}, {"Databases", "db2"}});
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"anna", Dictionary{{"databases", "db1"}}}}));
}

TEST_F(SetPreferences, TakesTheEmptyTextAsAnEntryAndAsASetting) {
  sets("", {{"databases", ""}});
  EXPECT_EQ(gets(""), (Texts{{"databases", ""}}));
}

TEST_F(SetPreferences, ReadsValuesUpToTheirFirstNul) {
  Message message{{"action", "set_userpreferences"}};
  message.setData("key", std::string_view("anna\0bert", 9)).setData("databases", "db1");
  EXPECT_EQ(asks(message), kSucceed);
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
}

TEST_F(SetPreferences, WithASettingThatIsNoTextStoresNothing) {
  sets("anna", kAll);
  for (const std::string_view bytes : {std::string_view(""), std::string_view("\xc3(\0", 3)}) {
    Message message = request("set_userpreferences", {{"key", "anna"}, {"startDatabases", "YES"}});
    EXPECT_EQ(asks(message.setData("databases", bytes)), kEmptyDictionary);
    message.setText("key", "bert");
    EXPECT_EQ(asks(message), kEmptyDictionary);
  }
  EXPECT_EQ(gets("anna"), kAll);
  EXPECT_EQ(gets("bert", "bert"), (Texts{{"result", "none"}}));
}

TEST_F(SetPreferences, NamedKeyStandsWhereTheKeySettingIs) {
  sets("key", {{"databases", "db1"}});
  EXPECT_EQ(gets("key"), (Texts{{"databases", "db1"}}));
  EXPECT_EQ(getsKey(), kEmptyDictionary);
  setsKey("user");
  EXPECT_EQ(onDisk(), PropertyList(Dictionary{{"key", "user"}}));
}

// ---- Reading entries

class GetPreferences : public InfoServerTest {};

TEST_F(GetPreferences, AnswersTheSettingsInTheirFixedOrder) {
  sets("anna", {{"databases", "4"}, {"loginDisplay", "3"}, {"changePreferences", "1"}});
  EXPECT_EQ(gets("anna"),
            (Texts{{"changePreferences", "1"}, {"loginDisplay", "3"}, {"databases", "4"}}));
}

TEST_F(GetPreferences, OfAnUnknownEntryAnswersTheFallback) {
  sets("group", {{"databases", "db1"}});
  EXPECT_EQ(gets("anna", "group"), (Texts{{"databases", "db1"}}));
}

TEST_F(GetPreferences, OfAKnownEntryDoesNotLookAtTheFallback) {
  sets("anna", {});
  sets("group", {{"databases", "db1"}});
  EXPECT_EQ(gets("anna", "group"), kEmptyDictionary);
  Message message = request("get_userpreferences", {{"key", "anna"}});
  EXPECT_EQ(asks(message.setData("*", "\xff")), kEmptyDictionary);
  sets("anna", {{"databases", "db2"}});
  EXPECT_EQ(asks(message), (Texts{{"databases", "db2"}}));
}

TEST_F(GetPreferences, OfTwoUnknownEntriesAnswersNone) {
  EXPECT_EQ(gets("anna", "group"), (Texts{{"result", "none"}}));
}

TEST_F(GetPreferences, OfAnUnknownEntryWithoutAFallbackAnswersAnEmptyDictionary) {
  EXPECT_EQ(gets("anna"), kEmptyDictionary);
}

TEST_F(GetPreferences, OfAnUnknownEntryWithAFallbackThatIsNoTextAnswersAnEmptyDictionary) {
  sets("", kAll);
  Message message = request("get_userpreferences", {{"key", "anna"}});
  EXPECT_EQ(asks(message.setData("*", "")), kEmptyDictionary);
  EXPECT_EQ(asks(message.setData("*", "\xff")), kEmptyDictionary);
}

TEST_F(GetPreferences, TellsEntriesApartByTheExactName) {
  sets("anna", {{"databases", "db1"}});
  EXPECT_EQ(gets("Anna", "ANNA"), (Texts{{"result", "none"}}));
}

TEST_F(GetPreferences, OfTheKeySettingAnswersAnEmptyDictionary) {
  setsKey("user");
  EXPECT_EQ(gets("key"), kEmptyDictionary);
  EXPECT_EQ(gets("anna", "key"), kEmptyDictionary);
}

TEST_F(GetPreferences, OfAnEntryThatIsNoDictionaryAnswersAnEmptyDictionaryNotItsFallback) {
  startWith("{ a = text; b = (1, 2); c = <00>; group = { databases = db1; }; }");
  for (const char* entry : {"a", "b", "c"}) {
    EXPECT_EQ(gets(entry, "group"), kEmptyDictionary) << entry;
  }
}

TEST_F(GetPreferences, OfASettingThatIsNoStringAnswersNothingOfTheEntry) {
  startWith(
      "{ anna = { changePreferences = YES; databases = (db1, db2); other = (1); };"
      "  bert = { changePreferences = YES; other = (1); }; }");
  EXPECT_EQ(gets("anna"), kEmptyDictionary);
  EXPECT_EQ(gets("bert"), (Texts{{"changePreferences", "YES"}}));
}

}  // namespace
}  // namespace sorvane::test
