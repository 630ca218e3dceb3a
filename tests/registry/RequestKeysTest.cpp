#include <gtest/gtest.h>

#include <string>

#include "registry/RequestKeys.h"

namespace sorvane {
namespace {

struct NamedKey {
  const char* name;
  Key key;
};

constexpr NamedKey kKeys[] = {
    {"acceptPort", Key::acceptPort},
    {"action", Key::action},
    {"databaseName", Key::databaseName},
    {"ethernetAddress", Key::ethernetAddress},
    {"findPort", Key::findPort},
    {"force", Key::force},
    {"hostAddress", Key::hostAddress},
    {"hostName", Key::hostName},
    {"newPort", Key::newPort},
    {"ping", Key::ping},
    {"portHost", Key::portHost},
    {"portHostAddress", Key::portHostAddress},
    {"portName", Key::portName},
    {"portNumber", Key::portNumber},
    {"portType", Key::portType},
    {"reconnectPort", Key::reconnectPort},
    {"state", Key::state},
    {"terminate", Key::terminate},
};
static_assert(std::size(kKeys) == kKeyCount);

struct NamedWord {
  const char* text;
  Word word;
};

constexpr NamedWord kWords[] = {
    {"changeTimestamp", Word::changeTimestamp},
    {"databaseStates", Word::databaseStates},
    {"didPortsChange", Word::didPortsChange},
    {"hostInfo", Word::hostInfo},
    {"hostList", Word::hostList},
    {"needsRefresh", Word::needsRefresh},
    {"restart", Word::restart},
    {"setAlertState", Word::setAlertState},
    {"setDatabaseState", Word::setDatabaseState},
    {"sorvexecConnectHost", Word::sorvexecConnectHost},
    {"watchPortChanges", Word::watchPortChanges},
};

TEST(RequestKeys, FindsEachKnownKeyAndNoOther) {
  for (const NamedKey& named : kKeys) {
    const Message request({{named.name, "value"}});
    const RequestKeys keys(request);
    for (const NamedKey& other : kKeys) {
      EXPECT_EQ(keys.holds(other.key), other.key == named.key) << named.name << " " << other.name;
    }
    EXPECT_EQ(keys.requiredText(named.key), "value") << named.name;
  }
}

TEST(RequestKeys, ComparesKeysExactly) {
  for (const NamedKey& named : kKeys) {
    std::string changed = named.name;
    changed.back() = changed.back() == 't' ? 'T' : 't';
    std::string capital = named.name;
    capital.front() = static_cast<char>(capital.front() - 'a' + 'A');
    Message request;
    request.setText(changed, "").setText(capital, "").setText(named.name + std::string("x"), "");
    EXPECT_FALSE(RequestKeys(request).holds(named.key)) << named.name;
  }
}

TEST(RequestKeys, HoldsASetOnlyWhenEveryKeyIsThere) {
  const Message request({{"portHost", ""}, {"portName", ""}});
  const RequestKeys keys(request);
  EXPECT_TRUE(keys.holds(keySet(Key::portHost, Key::portName)));
  EXPECT_FALSE(keys.holds(keySet(Key::portHost, Key::portName, Key::portType)));
  EXPECT_TRUE(keys.holds(KeySet{0}));
}

TEST(RequestKeys, ReadsTheCommandWordInAnyLetterCase) {
  for (const NamedWord& named : kWords) {
    std::string upper;
    for (const char* letter = named.text; *letter != '\0'; ++letter) {
      upper += static_cast<char>(std::toupper(*letter));
    }
    EXPECT_EQ(RequestKeys(Message({{"action", named.text}})).action(), named.word) << named.text;
    EXPECT_EQ(RequestKeys(Message({{"action", upper}})).action(), named.word) << named.text;
    EXPECT_EQ(RequestKeys(Message({{"action", std::string(named.text) + "s"}})).action(),
              Word::none);
    EXPECT_EQ(RequestKeys(Message({{"action", std::string(named.text).substr(1)}})).action(),
              Word::none);
  }
}

TEST(RequestKeys, ReadsTheCommandWordUpToItsFirstNul) {
  Message request;
  request.setData("action", std::string_view("restart", 7));
  EXPECT_EQ(RequestKeys(request).action(), Word::restart);
  request.setData("action", std::string_view("restart\0xyz", 11));
  EXPECT_EQ(RequestKeys(request).action(), Word::restart);
}

TEST(RequestKeys, AnActionThatIsNoTextIsNoWord) {
  Message request;
  EXPECT_EQ(RequestKeys(request).action(), Word::none);
  request.setData("action", "");
  EXPECT_EQ(RequestKeys(request).action(), Word::none);
  request.setData("action", "\xff\xfe");
  EXPECT_EQ(RequestKeys(request).action(), Word::none);
  EXPECT_TRUE(RequestKeys(request).holds(Key::action));
}

TEST(RequestKeys, RaiseForAValueThatIsMissingOrNoText) {
  const Message nothing;
  EXPECT_THROW((void)RequestKeys(nothing).requiredText(Key::portHost), NSException);
  Message request;
  request.setData("portHost", "");
  EXPECT_THROW((void)RequestKeys(request).requiredText(Key::portHost), NSException);
  EXPECT_THROW((void)RequestKeys(request).optionalText(Key::portHost), NSException);
  request.setData("portHost", "\xc3");
  EXPECT_THROW((void)RequestKeys(request).requiredText(Key::portHost), NSException);
  EXPECT_THROW((void)RequestKeys(request).optionalText(Key::portHost), NSException);
}

TEST(RequestKeys, AnOptionalValueMayBeLeftOut) {
  const Message request({{"portHostAddress", ""}});
  const RequestKeys keys(request);
  EXPECT_EQ(keys.optionalText(Key::portHostAddress), "");
  EXPECT_FALSE(keys.optionalText(Key::hostAddress).has_value());
}

TEST(EqualIgnoringCase, FoldsAsciiLettersAlone) {
  EXPECT_TRUE(equalIgnoringCase("aZ09_", "Az09_"));
  EXPECT_FALSE(equalIgnoringCase("a", "ab"));
  EXPECT_FALSE(equalIgnoringCase("[", "{"));
  EXPECT_FALSE(equalIgnoringCase("\xc3\x84", "\xc3\xa4"));
  EXPECT_TRUE(equalIgnoringCase("", ""));
}

}  // namespace
}  // namespace sorvane
