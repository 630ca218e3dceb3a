// A registry that is kept and restored goes on as if nothing had happened.
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "registry/CommandServer.h"
#include "registry/ConnectionEnd.h"
#include "registry/KeptBody.h"

namespace sorvane::test {
namespace {

/// A server with some connections, and what each of them knows of the changes.
class Side {
 public:
  explicit Side(const RegistryLimits& limits) : server(limits) {
    server.host = {.name = "testhost",
                   .address = "10.1.2.3",
                   .ethernetAddress = "00:11:22:33:44:55",
                   .basePort = 5000,
                   .aliasOf = [](std::string_view) { return std::optional<std::string>(); }};
  }

  void connects() { peers.push_back(std::make_unique<Peer>(server)); }
  void ends(std::size_t peer) {
    (void)endConnection(server.registry, &peers[peer]->record());
    peers.erase(peers.begin() + static_cast<std::ptrdiff_t>(peer));
  }
  /// The bytes of the reply; nothing for nil and for a command that raises.
  std::optional<std::string> asks(std::size_t peer, const Message& request) {
    try {
      const auto reply = peers[peer]->sends(request);
      return reply ? std::optional(std::string(reply->body())) : std::nullopt;
    } catch (const NSException&) {
      return std::nullopt;
    }
  }
  [[nodiscard]] std::string body() const {
    std::vector<const PortDescriptor*> records;
    for (const auto& peer : peers) {
      records.push_back(&peer->record());
    }
    return keptBody(server.registry, records);
  }
  /// Takes the place of another side, which has that body.
  void restores(const std::string& body, std::size_t connections) {
    for (auto& record : restore(server.registry, body, connections)) {
      connects();
      peers.back()->connection().setContextObject(std::move(record));
    }
  }

  CommandServer server;
  std::vector<std::unique_ptr<Peer>> peers;
};

/// What happens in a history, drawn at random, and done to one side or to two.
class History {
 public:
  explicit History(std::uint32_t seed) : random_(seed), names_(vocabulary()) {
    limits_ = {.leftBehind = below(3) == 0 ? 3000U : 1U << 26,
               .removed = {.names = below(3) == 0 ? 5U : 65536U}};
    sides_.push_back(std::make_unique<Side>(limits_));
  }

  /// Does something to each side. All must reply the same.
  void goesOn() {
    Side& first = *sides_.front();
    if (first.peers.empty() || (first.peers.size() < 40 && below(100) < 6)) {
      for (const auto& side : sides_) {
        side->connects();
      }
      positions_.emplace_back();
      return;
    }
    const std::size_t peer = below(first.peers.size());
    if (below(100) < 4) {
      for (const auto& side : sides_) {
        side->ends(peer);
      }
      positions_.erase(positions_.begin() + static_cast<std::ptrdiff_t>(peer));
      return;
    }
    if (below(100) < 10) {
      const double steps[] = {0.25, 1000.5, 3600.5};
      movedTime += steps[below(std::size(steps))];
    }
    if (below(100) < 3) {
      for (const auto& side : sides_) {
        PortDescriptor& record = side->peers[peer]->record();
        record.createInfo();
        (*record.info())["user"] = std::to_string(peer);
      }
    }
    const Message request = drawn(positions_[peer]);
    const std::optional<std::string> reply = first.asks(peer, request);
    for (std::size_t other = 1; other < sides_.size(); ++other) {
      ASSERT_EQ(sides_[other]->asks(peer, request), reply) << request.description();
    }
    follows(positions_[peer], reply);
  }

  /// Adds a side that is restored from the first one.
  void isKept() {
    const std::string body = sides_.front()->body();
    sides_.push_back(std::make_unique<Side>(limits_));
    sides_.back()->restores(body, sides_.front()->peers.size());
    ASSERT_EQ(sides_.back()->body(), body);
  }
  /// All sides must hold the same.
  void isTheSame() {
    for (const auto& side : sides_) {
      ASSERT_EQ(side->body(), sides_.front()->body());
      ASSERT_EQ(counts(*side), counts(*sides_.front()));
    }
  }

 private:
  struct Position {
    std::string instance = "none";
    std::string sequence = "0";
  };

  std::uint32_t below(std::size_t count) {
    return static_cast<std::uint32_t>(random_() % static_cast<std::uint32_t>(count));
  }
  std::vector<std::string> vocabulary() {
    std::vector<std::string> names = {"db1",
                                      "db2",
                                      "",
                                      "sorvexec",
                                      "VN_nameserver",
                                      "größe",
                                      "a name that is too long for its slot"};
    if (below(4) == 0) {  // the table grows and shrinks
      for (int number = 0; number < 120; ++number) {
        names.push_back("name" + std::to_string(number));
      }
    }
    return names;
  }
  const std::string& oneOf(const std::vector<std::string>& texts) {
    return texts[below(texts.size())];
  }

  Message drawn(const Position& position) {
    static const std::vector<std::string> words = {"needsRefresh",    "watchPortChanges",
                                                   "didPortsChange",  "databaseStates",
                                                   "changeTimestamp", "hostList"};
    static const std::vector<std::string> states = {"up", "down", "", std::string(300, 's')};
    const std::string& name = oneOf(names_);
    switch (below(10)) {
      case 0:
        return {{"newPort", ""}, {"portHost", "h"}, {"portName", name}, {"portType", "t"}};
      case 1:
        return {{"acceptPort", ""}};
      case 2:
        return {{"reconnectPort", name},
                {"portNumber", std::to_string(below(9000))},
                {"portHost", "h"},
                {"portHostAddress", "10.0.0.7"},
                {"portType", "t"}};
      case 3:
        return {{"action", "setDatabaseState"}, {"databaseName", name}, {"state", oneOf(states)}};
      case 4:
        return {{"action", "setAlertState"}, {"databaseName", name}, {"state", oneOf(states)}};
      case 5:
        return {{"findPort", name}, {"portHost", "h"}};
      case 6:
        return {{"action", "forgetPort"}, {"name", name}};
      case 7:
        return {{"action", oneOf(words)}, {"force", "yes"}};
      case 8:
        return {{"action", "sorvexecConnectHost"},
                {"hostName", name},
                {"hostAddress", "10.0.0.7"},
                {"ethernetAddress", "00:11:22:33:44:55"}};
      default:
        return {{"action", "portChanges"},
                {"instance", position.instance},
                {"since", position.sequence},
                {"limit", std::to_string(1 + below(3))}};
    }
  }
  static void follows(Position& position, const std::optional<std::string>& reply) {
    Message message;
    if (reply && message.readBody(*reply) == nullptr && message.contains("sequence")) {
      position = {std::string(*message.text("instance")), std::string(*message.text("sequence"))};
    }
  }
  static std::vector<std::uint64_t> counts(Side& side) {
    return side.server.registry.with([&](const RegistryState& state) {
      return std::vector<std::uint64_t>{state.map.bytes(),
                                        state.map.leftBehindBytes(),
                                        state.map.stateListBytes(),
                                        state.map.alertListBytes(),
                                        state.map.removedNames().count(),
                                        state.map.removedNames().bytes(),
                                        side.server.registry.watchingPortsList().count()};
    });
  }

  std::minstd_rand random_;
  std::vector<std::string> names_;
  RegistryLimits limits_;
  std::vector<std::unique_ptr<Side>> sides_;
  std::vector<Position> positions_;  // of the connections
};

class KeptRegistry : public testing::Test {
 protected:
  /// Restores the registry, and its connections in their order, in another one.
  std::unique_ptr<Side> restored(const RegistryLimits& limits = {}) {
    auto other = std::make_unique<Side>(limits);
    other->restores(side_.body(), side_.peers.size());
    return other;
  }
  Peer& connects() {
    side_.connects();
    return *side_.peers.back();
  }

  ConsoleLines console_;
  MovedClock clock_;
  Side side_{{}};
};

TEST_F(KeptRegistry, GoesOnAsTheOneThatWasKept) {
  constexpr std::uint32_t kHistories = 200;
  constexpr int kSteps = 120;
  for (std::uint32_t seed = 1; seed <= kHistories; ++seed) {
    SCOPED_TRACE("history " + std::to_string(seed));
    History history(seed);
    for (int step = 0; step < kSteps; ++step) {
      history.goesOn();
    }
    history.isKept();
    for (int step = 0; step < kSteps / 3 && !HasFailure(); ++step) {
      history.goesOn();
    }
    history.isTheSame();
    if (HasFailure()) {
      return;
    }
  }
}

Message setting(std::string_view action, std::string_view name, std::string_view text) {
  return {{"action", action}, {"databaseName", name}, {"state", text}};
}

TEST_F(KeptRegistry, HasEachTextOfEachRecord) {
  Peer& database = connects();
  (void)database.sends({{"reconnectPort", "db1"},
                        {"portNumber", ""},
                        {"portHost", "hostA"},
                        {"portHostAddress", "10.0.0.7"},
                        {"portType", "db"}});
  (void)database.sends(setting("setDatabaseState", "db1", "starting"));
  movedTime = 1000.1;
  (void)database.sends(setting("setAlertState", "db1", "disk full"));
  database.record().createInfo();
  *database.record().info() = {{"", "nothing"}, {"user", ""}};
  const auto other = restored();
  const PortDescriptor& record = other->peers[0]->record();
  EXPECT_EQ(record.portKey(), "db1@hostA");
  EXPECT_EQ(record.portName(), "db1");
  EXPECT_EQ(record.portHostAddress(), "10.0.0.7");
  EXPECT_EQ(record.portHost(), "hostA");
  EXPECT_EQ(record.portNumber(), "");
  EXPECT_EQ(record.portType(), "db");
  EXPECT_EQ(record.portStatus(), "starting");
  EXPECT_EQ(record.alertAsSet(), "disk full");
  EXPECT_EQ(record.alertStatusTimestamp(), 1000.1);
  EXPECT_EQ(*record.info(), *database.record().info());
  EXPECT_EQ(other->peers[0]->connection().contextObject<PortDescriptor>(),
            other->server.registry.port("db1"));
}

TEST_F(KeptRegistry, DropsAnAlertAfterTheHourThatBeganBefore) {
  Peer& database = connects();
  database.reconnects("db1");
  (void)database.sends(setting("setAlertState", "db1", "disk full"));
  movedTime += 3600;
  const auto other = restored();
  EXPECT_EQ(other->peers[0]->action("databaseStates", "alerts"), "db1:disk full");
  (void)other->peers[0]->sends(setting("setAlertState", "", ""));  // drops the cached list
  movedTime += 0.5;
  EXPECT_EQ(other->peers[0]->action("databaseStates", "alerts"), "");
}

TEST_F(KeptRegistry, CountsARecordThatIsRegisteredAndNotEntered) {
  Peer& client = connects();
  EXPECT_EQ(client.asksForPort("db1"), "5001");
  connects();  // has registered nothing
  const auto other = restored();
  const auto bytes = [](Side& side) {
    return side.server.registry.with([](const RegistryState& state) { return state.map.bytes(); });
  };
  EXPECT_GT(bytes(*other), 0U);
  EXPECT_EQ(bytes(*other), bytes(side_));
  other->peers[0]->accepts();
  EXPECT_EQ(other->peers[1]->finds("db1"), "5001");
  EXPECT_EQ(other->peers[1]->asksForPort("db2"), "5002");
}

TEST_F(KeptRegistry, TellsWatchersOfChangesBeforeAndAfter) {
  for (int count = 0; count < 3; ++count) {
    connects();
    EXPECT_EQ(side_.peers.back()->action("didPortsChange"), "YES");
  }
  (void)side_.peers[0]->action("needsRefresh");
  EXPECT_EQ(side_.peers[0]->action("didPortsChange"), "YES");
  const auto other = restored();
  EXPECT_EQ(other->server.registry.watchingPortsList().count(), 3U);
  EXPECT_EQ(other->peers[0]->action("didPortsChange"), "NO");
  EXPECT_EQ(other->peers[1]->action("didPortsChange"), "YES");
  (void)other->peers[2]->action("needsRefresh");
  EXPECT_EQ(other->peers[0]->action("didPortsChange"), "YES");
  other->ends(0);
  EXPECT_EQ(other->server.registry.watchingPortsList().count(), 2U);
}

TEST_F(KeptRegistry, DropsFirstWhatWasLeftBehindFirst) {
  for (const char* name : {"db1", "db2", "db3"}) {
    Peer& peer = connects();
    peer.reconnects(name);
    peer.reconnects(std::string(name) + "b");  // with which it ends
    side_.ends(0);
  }
  const auto other = restored({.leftBehind = 1000});
  Side& side = *other;
  side.connects();
  Peer& asker = *side.peers[0];
  EXPECT_EQ(asker.finds("db1"), "4000") << "nothing is refused because of a limit";
  side.server.registry.dropOldestLeftBehind();
  EXPECT_EQ(asker.finds("db1"), "(none)");
  EXPECT_EQ(asker.finds("db3"), "4000");
  EXPECT_EQ(asker.answer({{"action", "forgetPort"}, {"name", "db3"}}), "success");
}

TEST_F(KeptRegistry, IsRestoredWhateverTheLimitsAre) {
  Peer& database = connects();
  database.reconnects("db1");
  const auto other = restored({.connection = 1, .leftBehind = 1, .all = 1});
  EXPECT_EQ(other->peers[0]->finds("db1"), "4000");
  EXPECT_THROW(other->peers[0]->reconnects("db2"), NSException);
}

TEST_F(KeptRegistry, ForgetsTheOldestRemovalsThatAreBeyondTheLimits) {
  Peer& database = connects();
  for (const char* name : {"db1", "db2", "db3"}) {
    database.reconnects(name);
  }
  for (const char* name : {"db1", "db2", "db3"}) {
    (void)side_.server.registry.with([&](RegistryState& state) { return state.map.remove(name); });
  }
  const auto forgotten = [](const RegistryState& state) {
    const RemovedNames& removed = state.map.removedNames();
    return std::pair(removed.count(), removed.forgottenUpTo());
  };
  const auto all = side_.server.registry.with(forgotten);
  const std::uint64_t last =
      side_.server.registry.with([](const RegistryState& state) { return state.map.lastChange(); });
  const auto other = restored({.removed = {.names = 1}});
  EXPECT_EQ(other->server.registry.with(forgotten),
            (std::pair<std::size_t, std::uint64_t>(1, last - 1)));
  const auto none = restored({.removed = {.bytes = 1}});
  EXPECT_EQ(none->server.registry.with(forgotten),
            (std::pair<std::size_t, std::uint64_t>(0, last)));
  EXPECT_EQ(restored()->server.registry.with(forgotten), all);
}

TEST_F(KeptRegistry, KeepsALargeTableThatHasShrunk) {
  for (int number = 0; number < 600; ++number) {
    connects().reconnects("name" + std::to_string(number));
  }
  while (side_.peers.size() > 20) {
    side_.ends(7);
  }
  const auto slots = [](const RegistryState& state) { return state.map.slotCount(); };
  ASSERT_GE(side_.server.registry.with(slots), 1024U);
  const auto large = restored();
  EXPECT_EQ(large->server.registry.with(slots), side_.server.registry.with(slots));
  connects().reconnects("another");
  ASSERT_LE(side_.server.registry.with(slots), 64U);
  const auto small = restored();
  EXPECT_EQ(small->body(), side_.body());
  EXPECT_EQ(small->peers[0]->finds("another"), "4000");
}

TEST_F(KeptRegistry, GoesOnWithAReplyOfSeveralPages) {
  for (const char* name : {"db1", "db2", "db3"}) {
    connects().reconnects(name);
  }
  side_.ends(1);
  const auto page = [](Side& side, const std::string& instance, const std::string& since) {
    return side.asks(
        0, {{"action", "portChanges"}, {"instance", instance}, {"since", since}, {"limit", "1"}});
  };
  Message first;
  const auto body = page(side_, "", "");
  ASSERT_EQ(first.readBody(*body), nullptr);
  const std::string instance(*first.text("instance"));
  const std::string since(*first.text("sequence"));
  ASSERT_EQ(first.text("more"), "YES");
  const auto other = restored();
  EXPECT_EQ(page(*other, instance, since), page(side_, instance, since));
}

TEST_F(KeptRegistry, NamesTheRecordsThatNoConnectionHas) {
  connects().reconnects("db1");
  auto own = std::make_shared<PortDescriptor>();
  own->setPortName("VN_nameserver");
  side_.server.registry.enterPort("VN_nameserver", own);
  Peer& ended = connects();
  ended.reconnects("db2");
  ended.reconnects("db3");
  side_.ends(1);
  KeptWriter writer;
  KeptRecords kept;
  side_.server.registry.keep(writer, kept);
  kept.keepRecord(writer, side_.peers[0]->record());
  const std::string description = described(writer.body());
  KeptReader reader(description);
  RestoredRecords records;
  Registry registry;
  registry.restore(reader, records);
  EXPECT_EQ(records.unclaimed().size(), 2U);
  EXPECT_EQ(records.restoreRecord(reader), registry.port("db1"));
  ASSERT_EQ(records.unclaimed().size(), 1U);
  EXPECT_EQ(records.unclaimed()[0], registry.port("VN_nameserver"));
}

}  // namespace
}  // namespace sorvane::test
