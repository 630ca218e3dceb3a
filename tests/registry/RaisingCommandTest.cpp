// A command that raises has changed nothing: that is what lets the server deliver a request twice.
#include <algorithm>
#include <set>

#include "registry/CommandServer.h"
#include "registry/StateSnapshot.h"

namespace sorvane::test {
namespace {

/// A request with every key that its command reads, and which of those values it cannot do without.
struct Example {
  const char* name;
  std::vector<std::pair<std::string, std::string>> texts;
  std::set<std::string> raisesWithout;     ///< raises when the key is missing
  std::set<std::string> raisesWhenNoText;  ///< raises when the value is empty or not UTF-8
};

const std::vector<Example>& examples() {
  static const std::vector<Example> all = {
      {"reconnectPort",
       {{"reconnectPort", "db2"},
        {"portHost", "h"},
        {"portNumber", "7"},
        {"portType", "t"},
        {"portHostAddress", "10.0.0.5"}},
       {"portHost", "portNumber", "portType"},
       {"reconnectPort", "portHost", "portNumber", "portType", "portHostAddress"}},
      {"findPort",
       {{"findPort", "db1"}, {"portHost", "h"}, {"portHostAddress", "10.0.0.5"}},
       {"portHost"},
       {"findPort", "portHost", "portHostAddress"}},
      {"acceptPort", {{"acceptPort", ""}}, {}, {}},
      {"terminate", {{"terminate", ""}}, {}, {}},
      {"restart", {{"action", "restart"}}, {}, {}},
      {"newPort",
       {{"newPort", ""},
        {"portHost", "h"},
        {"portName", "db2"},
        {"portType", "t"},
        {"portHostAddress", "10.0.0.5"}},
       {},
       {"portHost", "portName", "portType", "portHostAddress"}},
      {"needsRefresh", {{"action", "needsRefresh"}, {"force", "YES"}}, {}, {}},
      {"setAlertState",
       {{"action", "setAlertState"}, {"state", "full"}, {"databaseName", "db1"}},
       {},
       {"state", "databaseName"}},
      {"setDatabaseState",
       {{"action", "setDatabaseState"}, {"state", "stopping"}, {"databaseName", "db1"}},
       {},
       {"state", "databaseName"}},
      {"databaseStates", {{"action", "databaseStates"}}, {}, {}},
      {"watchPortChanges", {{"action", "watchPortChanges"}}, {}, {}},
      {"didPortsChange", {{"action", "didPortsChange"}}, {}, {}},
      {"changeTimestamp", {{"action", "changeTimestamp"}}, {}, {}},
      {"sorvexecConnectHost",
       {{"action", "sorvexecConnectHost"},
        {"hostName", "h"},
        {"portHostAddress", "10.0.0.5"},
        {"ethernetAddress", "00:11:22:33:44:55"}},
       {},
       {"hostName", "portHostAddress", "ethernetAddress"}},
      {"hostInfo", {{"action", "hostInfo"}, {"hostAddress", "10.0.0.5"}}, {}, {"hostAddress"}},
      {"hostList", {{"action", "hostList"}, {"hostAddress", "10.0.0.5"}}, {}, {"hostAddress"}},
      {"awaitPortChanges", {{"action", "awaitPortChanges"}, {"timeout", "7"}}, {}, {}},
      {"portChanges",
       {{"action", "portChanges"}, {"instance", "i"}, {"since", "7"}, {"limit", "7"}},
       {},
       {}},
      {"forgetPort", {{"action", "forgetPort"}, {"name", "db1"}}, {"name"}, {"name"}},
      {"continuity", {{"action", "continuity"}}, {}, {}},
      {"infoServer", {{"action", "unknown"}}, {}, {}},
  };
  return all;
}

const DispatchRule* ruleOf(const Example& example) {
  Message request;
  for (const auto& [key, text] : example.texts) {
    request.setText(key, text);
  }
  return &ruleFor(request);
}

enum class Damage { missing, empty, notUtf8 };

Message damaged(const Example& example, const std::string& damagedKey, Damage damage) {
  Message request;
  for (const auto& [key, text] : example.texts) {
    if (key != damagedKey) {
      request.setText(key, text);
    } else if (damage != Damage::missing) {
      request.setData(key, damage == Damage::empty ? "" : std::string_view("\xff\0", 2));
    }
  }
  return request;
}

/// A server with two databases, a watcher, a state and an alert. Lists that a command makes on
/// first use are not there yet.
struct Scene {
  explicit Scene(const HostFacts& host, const RegistryLimits& limits = {}) : server(limits) {
    server.host = host;
    sender.registers("held");
    other.registers("db1");
    (void)sender.action("watchPortChanges");
    (void)other.answer({{"action", "setDatabaseState"}, {"databaseName", "db1"}, {"state", "s"}});
    (void)other.answer({{"action", "setAlertState"}, {"databaseName", "db1"}, {"state", "a"}});
    (void)sender.action("databaseStates");
    movedTime += 10;
  }

  /// Whether the request raises. When it does, nothing may have changed.
  bool raises(Peer& peer, const Message& request) {
    const auto state = [&] {
      return snapshot(server.registry, {"held", "db1", "db2", ""},
                      {&sender.record(), &other.record()});
    };
    const std::string before = state();
    try {
      (void)peer.sends(request);
      return false;
    } catch (const NSException&) {
      EXPECT_EQ(state(), before) << request.description();
      return true;
    }
  }

  CommandServer server;
  Peer sender{server};
  Peer other{server};
};

class RaisingCommand : public CommandTest {
 protected:
  bool raises(const Message& request) {
    Scene scene(server_.host);
    return scene.raises(scene.sender, request);
  }
};

TEST_F(RaisingCommand, HasAnExampleForEachRowOfTheTable) {
  std::set<const DispatchRule*> shown;
  for (const Example& example : examples()) {
    shown.insert(ruleOf(example));
  }
  for (const DispatchRule& rule : dispatchRules()) {
    EXPECT_TRUE(shown.contains(&rule)) << rule.keys[0] << rule.action;
  }
}

TEST_F(RaisingCommand, HasChangedNothingWhicheverValueWasMissingEmptyOrBroken) {
  for (const Example& example : examples()) {
    for (const auto& [key, text] : example.texts) {
      for (const Damage damage : {Damage::missing, Damage::empty, Damage::notUtf8}) {
        const bool expected = damage == Damage::missing ? example.raisesWithout.contains(key)
                                                        : example.raisesWhenNoText.contains(key);
        EXPECT_EQ(raises(damaged(example, key, damage)), expected)
            << example.name << " " << key << " " << static_cast<int>(damage);
      }
    }
  }
}

TEST_F(RaisingCommand, HasChangedNothingWithTwoBrokenValues) {
  for (const Example& example : examples()) {
    for (const std::string& first : example.raisesWhenNoText) {
      for (const std::string& second : example.raisesWhenNoText) {
        Message request = damaged(example, first, Damage::notUtf8);
        request.setData(second, "");
        EXPECT_TRUE(raises(request)) << example.name << " " << first << " " << second;
      }
    }
  }
}

TEST_F(RaisingCommand, HasChangedNothingWithoutANameToAccept) {
  Scene scene(server_.host);
  Peer nameless(scene.server);
  EXPECT_TRUE(scene.raises(nameless, {{"acceptPort", ""}}));
  EXPECT_EQ(shown(nameless.record()), shown(PortDescriptor()));
}

TEST_F(RaisingCommand, HasChangedNothingWhenItWouldPassABound) {
  const std::string text(8000, 't');
  for (const RegistryLimits& limits :
       {RegistryLimits{.connection = 8000}, RegistryLimits{.all = 9000}}) {
    Scene scene(server_.host, limits);
    for (const char* action : {"setDatabaseState", "setAlertState"}) {
      EXPECT_TRUE(scene.raises(scene.other,
                               {{"action", action}, {"databaseName", "held"}, {"state", text}}));
    }
    EXPECT_TRUE(scene.raises(
        scene.sender,
        {{"newPort", ""}, {"portHost", text}, {"portName", "db2"}, {"portType", "t"}}));
    EXPECT_TRUE(scene.raises(
        scene.sender,
        {{"reconnectPort", text}, {"portHost", "h"}, {"portNumber", "7"}, {"portType", "t"}}));
    EXPECT_EQ(scene.sender.asksForPort("db2"), "5003") << "no number was spent";
  }
}

TEST_F(RaisingCommand, HasChangedNothingWhenThereIsNoRoomToAccept) {
  const std::string name(3000, 'n');
  Scene scene(server_.host, {.connection = 14000});
  EXPECT_NE(scene.sender.asksForPort(name), "(none)");
  scene.server.registry.with([](RegistryState& state) {
    state.map.setStatus("db1", "unchanged");  // of another connection
  });
  EXPECT_FALSE(scene.raises(scene.sender, {{"acceptPort", ""}}));
  EXPECT_NE(scene.other.asksForPort(name + "2", std::string(3500, 'h')), "(none)");
  EXPECT_TRUE(scene.raises(scene.other, {{"acceptPort", ""}}));
}

TEST_F(RaisingCommand, HasChangedNothingWhenTheRequestIsTooLongForAReply) {
  const std::string filling(kMaximumReplyBytes, 'x');
  Scene scene(server_.host);
  EXPECT_NE(scene.sender.asksForPort("db2"), "(none)");
  EXPECT_TRUE(scene.raises(scene.sender, {{"acceptPort", ""}, {"more", filling}}));
  EXPECT_TRUE(scene.raises(scene.sender, {{"reconnectPort", "db2"},
                                          {"portHost", "h"},
                                          {"portNumber", "7"},
                                          {"portType", "t"},
                                          {"more", filling}}));
}

TEST_F(RaisingCommand, DeliveredOnceMoreRaisesAgain) {
  Scene scene(server_.host);
  const Message request({{"reconnectPort", "db2"}, {"portHost", "h"}});
  EXPECT_TRUE(scene.raises(scene.sender, request));
  EXPECT_TRUE(scene.raises(scene.sender, request));
  EXPECT_EQ(scene.sender.finds("held"), "5001");
  EXPECT_EQ(scene.sender.finds("db2"), "(none)");
}

}  // namespace
}  // namespace sorvane::test
