// Requests whose values are missing or no text: what the real name server answers, and that nothing
// else comes of them.
#include <gtest/gtest.h>

#include <algorithm>

#include "integration/Client.h"

namespace sorvane::test {
namespace {

/// What is done to one value of a request.
enum class Fault { missing, noBytes, noUtf8 };

Message withFault(const Texts& whole, std::string_view key, Fault fault) {
  Message request;
  for (const auto& [each, text] : whole) {
    if (each != key) {
      request.setText(each, text);
    } else if (fault != Fault::missing) {
      request.setData(each, fault == Fault::noBytes ? std::string_view() : "\xC3\x28");
    }
  }
  return request;
}

const std::optional<Texts> kFailed = Texts{{"result", "failed"}};
const std::optional<Texts> kSuccess = Texts{{"result", "success"}};

struct Refusal {
  Texts request;
  std::string key;
  std::optional<Texts> whenMissing;
  std::optional<Texts> whenNoText;
};

const Texts kNewPort = {{"newPort", ""},
                        {"portName", "new"},
                        {"portHost", "h"},
                        {"portType", "other"},
                        {"portHostAddress", "10.0.0.1"}};
const Texts kReconnect = {{"reconnectPort", "new"},
                          {"portNumber", "1"},
                          {"portHost", "h"},
                          {"portType", "other"},
                          {"portHostAddress", "a"}};
const Texts kFind = {{"findPort", "mine"}, {"portHost", "h"}, {"portHostAddress", "a"}};
const Texts kState = {{"action", "setDatabaseState"}, {"databaseName", "mine"}, {"state", "gone"}};
const Texts kAlert = {{"action", "setAlertState"}, {"databaseName", "mine"}, {"state", "gone"}};
const Texts kLauncher = {{"action", "sorvexecConnectHost"},
                         {"hostName", "h"},
                         {"portHostAddress", "a"},
                         {"ethernetAddress", "02:00:00:00:00:02"}};

const Refusal kRefusals[] = {
    {kNewPort, "portName", kEmptyDictionary, kNil},
    {kNewPort, "portHost", kEmptyDictionary, kNil},
    {kNewPort, "portType", kEmptyDictionary, kNil},
    {kReconnect, "reconnectPort", kEmptyDictionary, kNil},
    {kReconnect, "portNumber", kNil, kNil},
    {kReconnect, "portHost", kNil, kNil},
    {kReconnect, "portType", kNil, kNil},
    {kFind, "findPort", kEmptyDictionary, kNil},
    {{{"findPort", "mine"}}, "portHost", kNil, kNil},
    {kFind, "portHost", kNil, kNil},
    {kState, "databaseName", kFailed, kNil},
    {kState, "state", kFailed, kNil},
    {kState, "action", kEmptyDictionary, kEmptyDictionary},
    {kAlert, "databaseName", kFailed, kNil},
    {kAlert, "state", kFailed, kNil},
    {kLauncher, "hostName", kNil, kNil},
    {kLauncher, "portHostAddress", kNil, kNil},
    {kLauncher, "ethernetAddress", kFailed, kNil},
};

class Refused : public Served {
 protected:
  /// A database with a state and an alert, and a watcher that has seen them.
  void SetUp() override {
    server_.setting("EthernetAddress", "\"02:00:00:00:00:01\"");
    Served::SetUp();
    database_.emplace(server_);
    ASSERT_EQ(database_->registers("mine"), std::to_string(server_.basePort() + 1));
    ASSERT_EQ(database_->resultOf("setDatabaseState", {{"databaseName", "mine"}, {"state", "s"}}),
              "success");
    ASSERT_EQ(database_->resultOf("setAlertState", {{"databaseName", "mine"}, {"state", "a"}}),
              "success");
    ASSERT_EQ(tool().didPortsChange(), "YES");
    found_ = tool().finds("mine");
    timestamp_ = tool().changeTimestamp();
  }

  void expectNothingChanged(const std::string& after) {
    EXPECT_EQ(tool().finds("mine"), found_) << after;  // the record itself, as it is now
    EXPECT_FALSE(tool().knows("new")) << after;
    EXPECT_FALSE(tool().knows("")) << after;
    EXPECT_EQ(tool().states(), "mine:s") << after;
    EXPECT_EQ(tool().alerts(), "mine:a") << after;
    EXPECT_EQ(tool().didPortsChange(), "NO") << after;
    EXPECT_EQ(tool().changeTimestamp(), timestamp_) << after;
    EXPECT_EQ(tool().resultOf("hostList"), "") << after;
    EXPECT_EQ(database_->asks(Message({{"ping", ""}})), kEmptyDictionary) << after;
  }

  /// The next number tells how many were handed out.
  void expectOneNumberWasSpent() {
    EXPECT_EQ(tool().asksForPort("another"), std::to_string(server_.basePort() + 2));
  }

  std::optional<Client> database_;

 private:
  std::optional<Texts> found_;
  std::string timestamp_;
};

TEST_F(Refused, AreValuesThatAreMissingOrNoTextAndNothingElseChanges) {
  for (const auto& [request, key, whenMissing, whenNoText] : kRefusals) {
    const std::string what = request.front().first + " " + request.front().second + ", " + key;
    EXPECT_EQ(database_->asks(withFault(request, key, Fault::missing)), whenMissing)
        << what << " missing";
    EXPECT_EQ(database_->asks(withFault(request, key, Fault::noBytes)), whenNoText)
        << what << " without bytes";
    const Message notUtf8 = withFault(request, key, Fault::noUtf8);
    EXPECT_EQ(database_->asks(notUtf8), whenNoText) << what << " not UTF-8";
    if (whenNoText == kNil) {
      EXPECT_TRUE(server_.logs("Exception detected. Command could not be executed\n" +
                               notUtf8.description() + "\n"))
          << what;
    }
    expectNothingChanged(what);
  }
  expectOneNumberWasSpent();
}

// Values that may be left out, but not be nonsense.
TEST_F(Refused, AreOptionalValuesThatAreNoText) {
  const std::pair<Texts, std::string> requests[] = {
      {kNewPort, "portHostAddress"},
      {kReconnect, "portHostAddress"},
      {kFind, "portHostAddress"},
      {{{"action", "hostInfo"}, {"hostAddress", ""}}, "hostAddress"},
      {{{"action", "hostList"}, {"hostAddress", ""}}, "hostAddress"},
  };
  for (const auto& [request, key] : requests) {
    for (const Fault fault : {Fault::noBytes, Fault::noUtf8}) {
      EXPECT_EQ(database_->asks(withFault(request, key, fault)), kNil) << request.front().second;
    }
    expectNothingChanged(request.front().first + " " + request.front().second);
  }
  expectOneNumberWasSpent();
}

TEST_F(Refused, IsOnlyTheForceOfARefreshThatIsNoText) {
  const Texts refresh = {{"action", "needsRefresh"}, {"force", "YES"}};
  for (const Fault fault : {Fault::noBytes, Fault::noUtf8}) {
    EXPECT_EQ(database_->asks(withFault(refresh, "force", fault)), kSuccess);
    EXPECT_EQ(tool().didPortsChange(), "YES");
  }
  EXPECT_EQ(tool().acts("changeTimestamp")->size(), 1U) << "nothing was forced";
}

TEST_F(Refused, AreRegistrationsOfARecordWithoutAName) {
  Client nameless(server_);
  EXPECT_EQ(nameless.asks(Message({{"acceptPort", "db1"}})), kNil);
  EXPECT_EQ(nameless.asks(Message({{"ping", ""}})), kEmptyDictionary);
  expectNothingChanged("acceptPort");
}

// Only the word under "action" is free in its letter case; keys are not.
TEST_F(Refused, AreCommandWordsThatAreNone) {
  for (const char* key : {"FindPort", "ACCEPTPORT", "reconnectport", "newPort ", "Terminate",
                          "restart", "databaseStates", "Ping", "Action", ""}) {
    EXPECT_EQ(tool().asks(Message({{key, "mine"}, {"portHost", "h"}})), kEmptyDictionary) << key;
  }
  for (const char* action : {"", "findPort", "acceptPort", "reconnectPort", "newPort", "ping",
                             "databaseState", "databaseStates ", " databaseStates", "terminate"}) {
    EXPECT_EQ(tool().acts(action, {{"portHost", "h"}}), kEmptyDictionary) << action;
  }
  EXPECT_EQ(tool().asks(Message()), kEmptyDictionary);
  expectNothingChanged("unknown words");
}

TEST_F(Refused, IsNoCommandWordForItsLetterCase) {
  for (const char* action :
       {"needsRefresh", "setAlertState", "setDatabaseState", "databaseStates", "watchPortChanges",
        "didPortsChange", "changeTimestamp", "hostInfo", "hostList"}) {
    std::string upper(action);
    std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
    std::string lower(action);
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    EXPECT_NE(tool().resultOf(upper), "(none)") << upper;
    EXPECT_NE(tool().resultOf(lower), "(none)") << lower;
  }
}

}  // namespace
}  // namespace sorvane::test
