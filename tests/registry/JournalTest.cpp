// A registry that is made of a journal goes on as the one that has written it.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/HandOver.h"
#include "registry/CommandServer.h"
#include "registry/ConnectionEnd.h"
#include "registry/Journal.h"
#include "support/AddressSanitizer.h"
#include "support/ForkedPart.h"
#include "support/ThreadSanitizer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

constexpr std::size_t kDescriptors = 64;
constexpr int kFirst = 3;

class Connection : public InProcessConnection {
 public:
  explicit Connection(int descriptor) : descriptor_(descriptor) {}
  [[nodiscard]] int descriptor() const override { return descriptor_; }

 private:
  const int descriptor_;
};

/// A server with a journal, and its connections.
class Side {
 public:
  explicit Side(const RegistryLimits& limits = {}, const Journal::Sizes& sizes = {},
                std::size_t descriptors = kDescriptors)
      : memory(descriptors), journal(memory, sizes), server(limits) {
    server.host = {.name = "testhost",
                   .address = "10.1.2.3",
                   .ethernetAddress = "00:11:22:33:44:55",
                   .basePort = 5000,
                   .takesRemoteControl = true,
                   .takesRemoteRegistration = true,
                   .aliasOf = [](std::string_view) { return std::optional<std::string>(); }};
  }

  void beginsJournal() { ASSERT_TRUE(server.registry.beginJournal(journal)); }
  /// Returns the descriptor: the lowest one that is free.
  int connects(std::shared_ptr<PortDescriptor> record = std::make_shared<PortDescriptor>()) {
    int descriptor = kFirst;
    while (open.count(descriptor) > 0) {
      ++descriptor;
    }
    connects(descriptor, std::move(record));
    return descriptor;
  }
  void connects(int descriptor, std::shared_ptr<PortDescriptor> record) {
    auto connection = std::make_unique<Connection>(descriptor);
    connection->setContextObject(std::move(record));
    open[descriptor] = std::move(connection);
  }
  void ends(int descriptor) {
    (void)endConnection(server.registry, &record(descriptor), descriptor);
    open.erase(descriptor);
  }
  /// The bytes of the reply; nothing for nil and for a command that raises.
  std::optional<std::string> asks(int descriptor, const Message& request) {
    try {
      const auto reply = deliverInProcess(server, request, *open.at(descriptor));
      return reply ? std::optional(std::string(reply->body())) : std::nullopt;
    } catch (const NSException&) {
      return std::nullopt;
    }
  }
  void reconnects(int descriptor, std::string_view name, std::string_view type = "t") {
    (void)asks(
        descriptor,
        {{"reconnectPort", name}, {"portNumber", "4000"}, {"portHost", "h"}, {"portType", type}});
  }
  std::optional<std::string> sets(int descriptor, std::string_view action, std::string_view name,
                                  std::string_view text) {
    return asks(descriptor, {{"action", action}, {"databaseName", name}, {"state", text}});
  }
  PortDescriptor& record(int descriptor) { return *open.at(descriptor)->context<PortDescriptor>(); }

  /// Becomes what the other side was at its last entry. That one lives, so its thread must not
  /// close a file meanwhile.
  void becomes(const Side& other) {
    ASSERT_TRUE(waitUntil([&] { return !other.journal.isWritingBase(); }));
    ReplayedRecords records;
    server.registry.replay(other.memory, records);
    for (const auto& [descriptor, connection] : other.open) {
      auto record = records.take(descriptor);
      journal.bind(descriptor, *record);
      connects(descriptor, std::move(record));
    }
    EXPECT_TRUE(records.rest().empty());
  }
  /// Everything that the journal must bring back.
  [[nodiscard]] std::string held() {
    KeptWriter writer;
    writer.text(server.registry.instance());
    writer.number(server.registry.watchingPortsList().timesSetDirty());
    writer.number(server.registry.watchingPortsList().count());
    server.registry.with([&](const RegistryState& state) {
      state.keep(writer, KeptPart::inJournal);
      const PortMap& map = state.map;
      for (const std::uint64_t sum :
           {map.bytes(), map.leftBehindBytes(), map.stateListBytes(), map.alertListBytes(),
            std::uint64_t{map.removedNames().bytes()}}) {
        writer.number(sum);
      }
      for (const auto& [descriptor, connection] : open) {
        const PortDescriptor& record = *connection->context<PortDescriptor>();
        const PortDescriptor::Watching watching = record.watching();
        writer.number(static_cast<std::uint64_t>(descriptor));
        writer.number(record.holdings().entries > 0 ? map.table().oldestOf(record) : 0);
        record.keep(writer, KeptPart::inJournal);
        writer.number(watching.clearedAt);
        writer.number(watching.times);
        writer.flag(watching.isDirty);
      }
    });
    return std::string(writer.body());
  }
  /// The cached lists are not kept.
  void forgetsLists() {
    server.registry.with([](RegistryState& state) {
      state.databaseStateString = nullptr;
      state.databaseAlertString = nullptr;
    });
  }

  JournalMemory memory;
  Journal journal;
  CommandServer server;
  std::map<int, std::unique_ptr<Connection>> open;
};

/// A history drawn at random. Each command of the dispatch table comes, also one that is added.
class History {
 public:
  explicit History(std::uint32_t seed) : random_(seed) {
    if (below(4) == 0) {  // the table grows and shrinks
      for (int number = 0; number < 100; ++number) {
        names_.push_back("name" + std::to_string(number));
      }
    }
    limits_ = {.leftBehind = below(3) == 0 ? 3000U : 1U << 26,
               .removed = {.names = below(3) == 0 ? 5U : 65536U}};
    const std::size_t lengths[] = {1, 3000, Journal::Sizes().least};
    sizes_.least = lengths[below(std::size(lengths))];
    sizes_.quick = below(2) == 0 ? 0 : Journal::Sizes().quick;
    sizes_.meanwhile = below(2) == 0 ? 1000 : Journal::Sizes().meanwhile;
    sides_.push_back(madeSide());
    auto own = std::make_shared<PortDescriptor>();
    own->setPortName("VN_infoserver");
    sides_[0]->server.registry.enterPort("VN_infoserver", own);
    sides_[0]->beginsJournal();
  }

  /// Does something to each side. All must reply the same.
  void goesOn() {
    Side& first = *sides_[0];
    if (first.open.empty() || (first.open.size() < 30 && below(100) < 6)) {
      for (const auto& side : sides_) {
        side->connects();
      }
      return;
    }
    const int descriptor =
        std::next(first.open.begin(), static_cast<std::ptrdiff_t>(below(first.open.size())))->first;
    if (below(100) < 4) {
      for (const auto& side : sides_) {
        side->ends(descriptor);
      }
      return;
    }
    const double steps[] = {0.0, 0.0, 0.25, 1000.5, 3600.5};
    movedTime += steps[below(std::size(steps))];
    const Message request = drawn();
    const auto reply = first.asks(descriptor, request);
    for (std::size_t other = 1; other < sides_.size(); ++other) {
      ASSERT_EQ(sides_[other]->asks(descriptor, request), reply) << request.description();
    }
    if (Message message; reply && message.readBody(*reply) == nullptr) {
      instance_ = message.text("instance").value_or(instance_);
      sequence_ = message.text("sequence").value_or(sequence_);
    }
  }
  /// What the journal tells of must be what the side holds.
  void isInTheJournal() {
    const auto replayed = madeSide();
    replayed->becomes(*sides_[0]);
    ASSERT_TRUE(replayed->held() == sides_[0]->held()) << "something else is in the journal";
  }
  /// Adds a side that goes on after the death of the first one.
  void dies() {
    sides_.push_back(madeSide());
    sides_[1]->becomes(*sides_[0]);
    sides_[1]->beginsJournal();
    sides_[0]->forgetsLists();
  }
  /// Both sides must hold the same, and their journals.
  void isTheSame() {
    ASSERT_EQ(sides_[1]->held(), sides_[0]->held());
    isInTheJournal();
    std::swap(sides_[0], sides_[1]);
    isInTheJournal();
  }

 private:
  std::uint32_t below(std::size_t count) {
    return static_cast<std::uint32_t>(random_() % static_cast<std::uint32_t>(count));
  }
  [[nodiscard]] std::unique_ptr<Side> madeSide() const {
    return std::make_unique<Side>(limits_, sizes_);
  }
  std::string textFor(std::string_view key) {
    static const std::vector<std::string> states = {"up", "down", "", std::string(300, 's')};
    if (key == "portName" || key == "reconnectPort" || key == "databaseName" || key == "name" ||
        key == "findPort") {
      return names_[below(names_.size())];
    }
    if (key == "state") {
      return states[below(states.size())];
    }
    if (key == "instance") {
      return instance_;
    }
    if (key == "since") {
      return sequence_;
    }
    if (key == "ethernetAddress") {
      return "00:11:22:33:44:55";
    }
    if (key == "force") {
      return below(2) == 0 ? "YES" : "NO";
    }
    return std::to_string(below(4));  // "limit", "timeout", numbers, types, hosts, addresses
  }
  /// A request with all that any command reads, for a rule that is drawn.
  Message drawn() {
    static const std::vector<std::string> values = {
        "portName",   "portHost", "portHostAddress", "portType",
        "portNumber", "state",    "ethernetAddress", "databaseName",
        "name",       "hostName", "limit",           "hostAddress",
        "timeout",    "instance", "since",           "force"};
    for (;;) {
      const DispatchRule& rule = dispatchRules()[below(dispatchRules().size())];
      std::vector<std::pair<std::string, std::string>> entries;
      const auto add = [&](std::string_view key, std::string text) {
        if (!key.empty() && std::ranges::find(entries, key, [](const auto& each) {
                              return std::string_view(each.first);
                            }) == entries.end()) {
          entries.emplace_back(key, std::move(text));
        }
      };
      for (const std::string_view key : rule.keys) {
        add(key, key == "action" ? std::string(rule.action) : textFor(key));
      }
      if (!rule.action.empty()) {
        add("action", std::string(rule.action));
      }
      for (const std::string& key : values) {
        if (below(10) > 0) {
          add(key, textFor(key));
        }
      }
      std::string body;
      for (const auto& [key, text] : entries) {
        body += entry(key, text + '\0');
      }
      Message request;
      EXPECT_EQ(request.readBody(body), nullptr);
      request = request.owned();
      if (rule.effect != Effect::endsProcess && &ruleFor(request) == &rule) {
        return request;
      }
    }
  }

  std::mt19937 random_;
  std::vector<std::string> names_ = {"db1",
                                     "db2",
                                     "",
                                     "sorvexec",
                                     "VN_nameserver",
                                     "größe",
                                     "a name that is too long for its slot"};
  RegistryLimits limits_;
  Journal::Sizes sizes_;
  std::string instance_ = "none";
  std::string sequence_ = "0";
  std::vector<std::unique_ptr<Side>> sides_;
};

/// What the files of the journal take.
std::size_t bytesOf(const Side& side) {
  std::size_t bytes = 0;
  for (const int file : side.memory.files()) {
    bytes += MappedFile(file).bytes().size();
  }
  return bytes;
}

std::int64_t processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

std::string portsAndHosts(Side& side) {
  KeptWriter writer;
  side.server.registry.with([&](const RegistryState& state) {
    state.map.keep(writer, KeptPart::inJournal);
    state.hosts.keep(writer);
  });
  return std::string(writer.body());
}

class JournalOfRegistry : public testing::Test {
 protected:
  JournalOfRegistry() { side_.beginsJournal(); }

  /// A side that goes on as the journal tells.
  [[nodiscard]] std::unique_ptr<Side> replayed() const {
    auto other = std::make_unique<Side>();
    other->becomes(side_);
    return other;
  }
  [[nodiscard]] std::string file() const {
    return std::string(MappedFile(side_.memory.file()).bytes());
  }
  void overwrite(std::size_t at, std::string_view bytes) const {
    ASSERT_EQ(pwrite(side_.memory.file(), bytes.data(), bytes.size(), static_cast<off_t>(at)),
              static_cast<ssize_t>(bytes.size()));
  }
  static std::size_t endOf(const std::string& file) {
    std::uint64_t end = 0;
    std::copy_n(file.data() + journal::kAtEnd, sizeof end, reinterpret_cast<char*>(&end));
    return end;
  }
  void isRefused() const {
    Side other;
    const std::string before = other.held();
    ReplayedRecords records;
    EXPECT_THROW(other.server.registry.replay(side_.memory, records), NSException);
    EXPECT_EQ(other.held(), before);
  }

  ConsoleLines console_;
  MovedClock clock_;
  Side side_;
};

TEST(JournalHistory, IsInTheJournalAfterEachCommand) {
  constexpr std::uint32_t kHistories = 24;
  constexpr int kSteps = 70;
  const ConsoleLines console;
  const MovedClock clock;
  for (std::uint32_t seed = 1; seed <= kHistories; ++seed) {
    SCOPED_TRACE("history " + std::to_string(seed));
    History history(seed);
    for (int step = 0; step < kSteps; ++step) {
      history.goesOn();
      history.isInTheJournal();
      if (testing::Test::HasFailure()) {
        return;
      }
    }
  }
}

TEST(JournalHistory, GoesOnAfterADeath) {
  constexpr std::uint32_t kHistories = 30;
  constexpr int kSteps = 100;
  const ConsoleLines console;
  const MovedClock clock;
  for (std::uint32_t seed = 1001; seed <= 1000 + kHistories; ++seed) {
    SCOPED_TRACE("history " + std::to_string(seed));
    History history(seed);
    for (int step = 0; step < kSteps; ++step) {
      history.goesOn();
    }
    history.dies();
    for (int step = 0; step < kSteps && !testing::Test::HasFailure(); ++step) {
      history.goesOn();
    }
    history.isTheSame();
    if (testing::Test::HasFailure()) {
      return;
    }
  }
}

TEST_F(JournalOfRegistry, TakesNoEntryThatIsNotWhole) {
  const int client = side_.connects();
  side_.reconnects(client, "db1");
  const std::string before = file();
  const std::size_t begin = endOf(before);
  (void)side_.sets(client, "setDatabaseState", "db1", "stopping");
  const std::string after = file();
  const std::size_t end = endOf(after);
  ASSERT_GT(end, begin + journal::kEntryHeader);
  const auto state = [&] {
    const auto other = replayed();
    return other->record(client).portStatus().has_value();
  };
  // Without its length the entry is not there yet, however much of it is.
  overwrite(journal::kAtEnd, before.substr(journal::kAtEnd, 8));
  overwrite(begin, std::string(8, '\0'));
  EXPECT_FALSE(state());
  // With it, each byte counts.
  overwrite(begin, after.substr(begin, end - begin));
  EXPECT_TRUE(state());
  const std::size_t bodyBytes = static_cast<unsigned char>(after[begin]);
  for (std::size_t at = begin; at < begin + journal::kEntryHeader + bodyBytes; ++at) {
    for (const char flip : {'\x01', '\x80'}) {
      overwrite(at, std::string(1, static_cast<char>(after[at] ^ flip)));
      EXPECT_FALSE(state()) << at - begin;
      overwrite(at, after.substr(at, 1));
    }
  }
  // In the middle it is damage, and nothing is believed.
  overwrite(journal::kAtEnd, after.substr(journal::kAtEnd, 8));
  EXPECT_TRUE(state());
  for (std::size_t at = begin; at < begin + journal::kEntryHeader + bodyBytes; ++at) {
    overwrite(at, std::string(1, static_cast<char>(after[at] ^ 1)));
    isRefused();
    overwrite(at, after.substr(at, 1));
  }
  EXPECT_TRUE(state());
}

TEST_F(JournalOfRegistry, OfWhichAByteOfTheBaseIsWrongIsRefused) {
  const std::string good = file();
  std::uint64_t bytes = 0;
  std::copy_n(good.data() + journal::kAtBaseBytes, sizeof bytes, reinterpret_cast<char*>(&bytes));
  for (std::size_t at = 0; at < journal::kAtBase + bytes; ++at) {
    if (at >= journal::kAtEnd && at < journal::kAtBase) {
      continue;  // where the entries end
    }
    overwrite(at, std::string(1, static_cast<char>(good[at] ^ 4)));
    isRefused();
    overwrite(at, good.substr(at, 1));
  }
  (void)replayed();
}

TEST_F(JournalOfRegistry, WhoseEndIsBeyondItsEntriesIsRefused) {
  const std::string good = file();
  overwrite(journal::kAtEnd + 2, "\x01");
  isRefused();
  overwrite(journal::kAtEnd + 7, "\x7f");
  isRefused();
}

TEST_F(JournalOfRegistry, GivesADescriptorThatIsUsedAgainToTheLaterConnection) {
  const int first = side_.connects();
  side_.reconnects(first, "db1");
  (void)side_.asks(first, {{"action", "didPortsChange"}});
  side_.ends(first);
  ASSERT_EQ(side_.connects(), first);
  EXPECT_EQ(replayed()->record(first).portName(), std::nullopt);
  EXPECT_EQ(replayed()->record(first).timesOnWatchList(), 0U);
  side_.reconnects(first, "db2");
  const auto other = replayed();
  EXPECT_EQ(other->record(first).portName(), "db2");
  EXPECT_EQ(other->server.registry.port("db1"), nullptr);
  EXPECT_EQ(other->held(), side_.held());
}

TEST_F(JournalOfRegistry, LetsAConnectionEndThatCouldEnterNothingForWantOfMemory) {
  const int client = side_.connects();
  side_.journal.willEnter(client, side_.record(client), "db1");
  side_.ends(client);
  EXPECT_EQ(replayed()->held(), side_.held());
}

TEST_F(JournalOfRegistry, TellsOfTheConnectionsThatHaveNotGoneOn) {
  const int stays = side_.connects();
  const int breaks = side_.connects();
  const int watches = side_.connects();
  side_.reconnects(stays, "db1");
  side_.reconnects(breaks, "db2");
  (void)side_.asks(watches, {{"action", "watchPortChanges"}});
  Side other;
  ReplayedRecords records;
  other.server.registry.replay(side_.memory, records);
  EXPECT_EQ(records.take(stays), other.server.registry.port("db1"));
  const auto rest = records.rest();
  ASSERT_EQ(rest.size(), 2U);
  EXPECT_EQ(rest[0].first, breaks);
  EXPECT_EQ(rest[0].second, other.server.registry.port("db2"));
  EXPECT_EQ(rest[1].first, watches);
  EXPECT_EQ(other.server.registry.watchingPortsList().count(), 1U);
  for (const auto& [descriptor, record] : rest) {
    (void)endConnection(other.server.registry, record.get(), descriptor);
  }
  EXPECT_EQ(other.server.registry.portCount(), 1U);
  EXPECT_EQ(other.server.registry.watchingPortsList().count(), 0U);
}

TEST_F(JournalOfRegistry, NeverTellsOfAConnectionThatHasDoneNothing) {
  (void)side_.connects();
  const int finds = side_.connects();
  (void)side_.asks(finds, {{"findPort", "db1"}, {"portHost", "h"}});
  Side next;
  next.becomes(side_);
  next.beginsJournal();
  Side other;
  ReplayedRecords records;
  other.server.registry.replay(next.memory, records);
  EXPECT_TRUE(records.rest().empty()) << "its end would be a change";
  next.reconnects(finds, "db1");
  const auto last = std::make_unique<Side>();
  last->becomes(next);
  EXPECT_EQ(last->record(finds).portName(), "db1");
}

TEST(JournalOfALargeRegistry, GrowsAndBecomesShortAgainAtOnce) {
  const ConsoleLines console;
  const MovedClock clock;
  Side side({}, {.quick = std::size_t{1} << 30});
  side.beginsJournal();
  const std::string text(1000000, 's');
  std::vector<int> clients;
  for (const char* name : {"db1", "db2", "db3"}) {
    clients.push_back(side.connects());
    side.reconnects(clients.back(), name);
    (void)side.sets(clients.back(), "setDatabaseState", name, text);
  }
  std::size_t longest = 0;
  int timesShorter = 0;
  for (std::size_t before = 0, count = 0; count < 22; ++count) {
    (void)side.sets(clients[0], "setAlertState", "db1", text.substr(0, 400000 + count));
    const std::size_t bytes = bytesOf(side);
    timesShorter += bytes < before ? 1 : 0;
    longest = std::max(longest, bytes);
    before = bytes;
    if (count % 4 == 0) {
      Side other;
      other.becomes(side);
      EXPECT_TRUE(other.held() == side.held());
    }
  }
  // The base takes 3.4 MB, and as much is written behind it before it is written anew.
  EXPECT_GT(longest, 5000000U);
  EXPECT_LT(longest, 8000000U);
  EXPECT_EQ(timesShorter, 2);
}

/// Enters `count` ports, each of a record of its own.
std::vector<std::shared_ptr<PortDescriptor>> enterMany(Side& side, int count) {
  std::vector<std::shared_ptr<PortDescriptor>> records;
  for (int number = 0; number < count; ++number) {
    records.push_back(std::make_shared<PortDescriptor>());
    const std::string name = "database" + std::to_string(number);
    const PortDescriptor::Registration registration{name,    name,   "10.1.2.3",
                                                    "host1", "5001", "database"};
    side.server.registry.with([&](RegistryState& state) {
      return state.map.enterWith(registration, records.back(), kFirst + number);
    });
  }
  return records;
}

TEST(JournalOfALargeRegistry, HoldsNobodyUp) {
  constexpr int kNames = 5000;
  constexpr int kMostChanges = 1000000;
  const ConsoleLines console;
  const MovedClock clock;
  Side side({}, {.least = std::size_t{1} << 20}, kFirst + kNames);
  side.beginsJournal();
  const auto records = enterMany(side, kNames);
  ASSERT_TRUE(waitUntil([&] { return !side.journal.isWritingBase(); }));
  const int before = side.memory.file();
  int changesMeanwhile = 0;
  std::int64_t most = 0;
  for (int number = 0; number < kMostChanges && side.memory.file() == before; ++number) {
    const std::string name = "database" + std::to_string(number % kNames);
    const std::int64_t begin = processorTime();
    side.server.registry.with(
        [&](RegistryState& state) { state.map.setStatus(PortName(name), "stopping"); });
    most = std::max(most, processorTime() - begin);
    changesMeanwhile += side.journal.isWritingBase() ? 1 : 0;
  }
  EXPECT_NE(side.memory.file(), before);
  EXPECT_GT(changesMeanwhile, 100);
  if (!kHasThreadSanitizer) {
    EXPECT_LT(most, 20000000) << "nanoseconds";
  }
  Side other({}, {}, kFirst + kNames);
  ReplayedRecords replayed;
  ASSERT_TRUE(waitUntil([&] { return !side.journal.isWritingBase(); }));
  other.server.registry.replay(side.memory, replayed);
  EXPECT_TRUE(portsAndHosts(other) == portsAndHosts(side));
  EXPECT_EQ(replayed.take(kFirst + 7), other.server.registry.port("database7"));
}

TEST(JournalOfALargeRegistry, StillTellsWatchersOfAChangeThatTheyMayNotKnow) {
  const ConsoleLines console;
  const MovedClock clock;
  Side side({}, {.least = 1000, .quick = 0});
  side.beginsJournal();
  const int client = side.connects();
  side.reconnects(client, "db1");
  const int before = side.memory.file();
  for (int count = 0; count < 30; ++count) {
    (void)side.sets(client, "setDatabaseState", "db1", std::string(100, 's'));
  }
  (void)side.asks(client, {{"action", "didPortsChange"}});
  ASSERT_TRUE(waitUntil([&] { return !side.journal.isWritingBase(); }));
  ASSERT_NE(side.memory.file(), before);
  const auto isDirty = [&] {
    Side other;
    other.becomes(side);
    return other.record(client).isDirty();
  };
  EXPECT_FALSE(isDirty());
  side.server.registry.with(
      [](RegistryState& state) { state.map.setStatus(PortName("db1"), "stopping"); });
  EXPECT_TRUE(isDirty()) << "it dies before it tells them";
}

// Each entry that comes while the thread is at work makes its base too late.
TEST(JournalOfALargeRegistry, TakesNoBaseThatIsOlderThanItsOwn) {
  constexpr int kNames = 3000;
  const ConsoleLines console;
  const MovedClock clock;
  Side side({}, {.least = std::size_t{1} << 16, .quick = 0, .meanwhile = 1}, kFirst + kNames);
  side.beginsJournal();
  const auto records = enterMany(side, kNames);
  ASSERT_TRUE(waitUntil([&] { return !side.journal.isWritingBase(); }));
  Side other({}, {}, kFirst + kNames);
  ReplayedRecords replayed;
  other.server.registry.replay(side.memory, replayed);
  EXPECT_TRUE(portsAndHosts(other) == portsAndHosts(side));
}

/// Lets this process open as many further files.
void setFilesLeft(std::size_t count) {
  rlimit limit{1024, 1024};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  std::vector<Descriptor> free;
  while (free.size() <= count) {
    free.emplace_back(dup(STDERR_FILENO));
  }
  limit.rlim_cur = static_cast<rlim_t>(free.back().number());
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// What a process leaves that dies before the thread has finished, and while it tries again.
TEST(JournalOfALargeRegistry, IsWholeWhileItsThreadHasNoFileForTheBase) {
  if (kHasAddressSanitizer) {
    GTEST_SKIP() << kNeedsDescriptors;
  }
  inOwnProcess([] {
    const MovedClock clock;
    Side side({}, {.least = 20000, .quick = 0, .meanwhile = 20000});
    side.beginsJournal();
    const int client = side.connects();
    side.reconnects(client, "db1");
    const std::vector<int> first = side.memory.files();
    ASSERT_EQ(first.size(), 1U);
    int text = 0;
    // As many files as `count` may be opened from now on: changes what fills the journal twice.
    const auto withFiles = [&](std::size_t count) {
      setFilesLeft(count);
      const std::vector<int> before = side.memory.files();
      for (int changes = 0; changes < 2000 && side.memory.files() == before; ++changes) {
        (void)side.sets(client, "setDatabaseState", "db1",
                        std::string(300, static_cast<char>('a' + ++text % 26)));
      }
      Side other;
      other.becomes(side);
      EXPECT_EQ(other.held(), side.held());
    };
    withFiles(0);
    EXPECT_EQ(side.memory.files().size(), 1U) << "no other file can be opened";
    withFiles(1);
    EXPECT_EQ(side.memory.files().size(), 2U) << "the file is there, and none for the base";
    EXPECT_EQ(side.memory.files().front(), first.front());
    withFiles(1);
    EXPECT_EQ(side.memory.files().size(), 3U) << "it has tried again";
    withFiles(1);
    EXPECT_EQ(side.memory.files().size(), 1U) << "the base is written at once";
    withFiles(2);
    EXPECT_EQ(side.memory.files().size(), 2U) << "the thread works again";
    EXPECT_NE(side.memory.files().front(), first.front());
    EXPECT_FALSE(side.journal.hasEnded());
  });
}

TEST_F(JournalOfRegistry, TellsWatchersOfAChangeThatTheyMayNotKnow) {
  const int client = side_.connects();
  (void)side_.asks(client, {{"action", "didPortsChange"}});
  ASSERT_FALSE(side_.record(client).isDirty());
  EXPECT_FALSE(replayed()->record(client).isDirty());
  PortDescriptor::Registration registration;
  registration.portName = "db1";
  side_.server.registry.with([&](RegistryState& state) {
    return state.map.enterWith(registration, side_.open.at(client)->contextObject<PortDescriptor>(),
                               client);
  });
  ASSERT_FALSE(side_.record(client).isDirty()) << "it dies before it tells them";
  EXPECT_TRUE(replayed()->record(client).isDirty());
}

TEST_F(JournalOfRegistry, HasTheTimeOfAnEndOfWhichNobodyWasTold) {
  const double before = side_.server.registry.changeStamp().timestampFlag;
  movedTime += 7.5;
  side_.server.registry.stampTime();
  EXPECT_EQ(replayed()->server.registry.changeStamp().timestampFlag, before + 7.5);
}

TEST_F(JournalOfRegistry, TellsOfANameThatIsForgotten) {
  const int leaves = side_.connects();
  side_.reconnects(leaves, "db1");
  side_.reconnects(leaves, "db2");
  side_.ends(leaves);
  ASSERT_NE(side_.server.registry.port("db1"), nullptr);
  (void)side_.asks(side_.connects(), {{"action", "forgetPort"}, {"name", "db1"}});
  ASSERT_EQ(side_.server.registry.port("db1"), nullptr);
  EXPECT_EQ(replayed()->held(), side_.held());
}

TEST(JournalOfARegistryThatIsFull, TellsOfPortsThatWereDroppedBecauseTooMuchWasLeftBehind) {
  const ConsoleLines console;
  const MovedClock clock;
  const RegistryLimits limits{.leftBehind = 2000};
  Side side(limits);
  side.beginsJournal();
  std::size_t names = 0;
  for (int round = 0; round < 3; ++round) {
    const int client = side.connects();
    for (int name = 0; name < 10; ++name) {
      side.reconnects(client, "db" + std::to_string(names++));
    }
    side.ends(client);
  }
  ASSERT_LT(side.server.registry.portCount(), names - 3) << "nothing was dropped";
  Side other(limits);
  other.becomes(side);
  EXPECT_EQ(other.held(), side.held());
}

TEST_F(JournalOfRegistry, KeepsNeitherCachedListsNorInfoDictionaries) {
  const int client = side_.connects();
  side_.reconnects(client, "db1");
  (void)side_.sets(client, "setAlertState", "db1", "disk full");
  (void)side_.asks(client, {{"action", "databaseStates"}});
  side_.record(client).createInfo();
  const auto other = replayed();
  EXPECT_EQ(other->record(client).info(), nullptr);
  other->server.registry.with([](const RegistryState& state) {
    EXPECT_EQ(state.databaseStateString, nullptr);
    EXPECT_EQ(state.databaseAlertString, nullptr);
  });
  EXPECT_EQ(other->asks(client, {{"action", "databaseStates"}}),
            side_.asks(client, {{"action", "databaseStates"}}));
}

TEST_F(JournalOfRegistry, RefusesNothingBecauseOfALimit) {
  const int client = side_.connects();
  side_.reconnects(client, "db1");
  Side other({.connection = 1, .all = 1});
  other.becomes(side_);
  EXPECT_EQ(other.held(), side_.held());
  other.reconnects(client, "db2");
  EXPECT_EQ(other.server.registry.port("db2"), nullptr);
}

TEST_F(JournalOfRegistry, EndsWithOneLineWhenAConnectionHasNoDescriptor) {
  const int client = side_.connects();
  side_.reconnects(client, "db1");
  side_.connects(-1, std::make_shared<PortDescriptor>());
  for (const char* name : {"db2", "db3"}) {
    side_.reconnects(-1, name);
    side_.reconnects(client, name);
  }
  EXPECT_TRUE(side_.journal.hasEnded());
  EXPECT_EQ(console_.all().size(), 1U);
  EXPECT_EQ(console_.count("the journal of the registry has ended: "), 1);
  EXPECT_LT(side_.memory.file(), 0);
  isRefused();
}

TEST_F(JournalOfRegistry, EndsWhenTwoConnectionsHaveTheSameDescriptor) {
  const int client = side_.connects();
  side_.reconnects(client, "db1");
  side_.connects(client, std::make_shared<PortDescriptor>());
  side_.reconnects(client, "db2");
  EXPECT_TRUE(side_.journal.hasEnded());
  isRefused();
}

TEST_F(JournalOfRegistry, EndsWhenThereIsNoMemoryAndEverythingElseGoesOn) {
  inOwnProcess([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{std::size_t{3} << 19, std::size_t{3} << 19};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const int client = side_.connects();
    side_.reconnects(client, "db1");
    (void)side_.sets(client, "setDatabaseState", "db1", std::string(100, 's'));
    EXPECT_EQ(replayed()->held(), side_.held());
    const auto reply = side_.sets(client, "setDatabaseState", "db1", std::string(2000000, 's'));
    EXPECT_TRUE(reply);
    EXPECT_EQ(side_.record(client).portStatus()->size(), 2000000U);
    EXPECT_EQ(console_.all().size(), 1U);
    EXPECT_EQ(console_.count("there is no memory for it"), 1);
    isRefused();
  });
}

TEST(JournalOfAProcess, GoesOnWithItsFileWhenNoOtherCanBeOpened) {
  if (kHasAddressSanitizer) {
    GTEST_SKIP() << kNeedsDescriptors;
  }
  inOwnProcess([] {
    const MovedClock clock;
    Side side({}, {.least = 1000});
    side.beginsJournal();
    const rlimit limit{3, 3};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const int client = side.connects();
    side.reconnects(client, "db1");
    for (int count = 0; count < 30; ++count) {
      (void)side.sets(client, "setDatabaseState", "db1", std::string(300, 's'));
    }
    EXPECT_FALSE(side.journal.hasEnded());
    Side other;
    other.becomes(side);
    EXPECT_EQ(other.held(), side.held());
  });
}

/// What a process does until it is killed: each step is one entry at most.
void step(Side& side, int number) {
  const int client = kFirst + number % 7;
  const std::string name = (number % 3 == 0 ? "a name that is too long for its slot " : "db") +
                           std::to_string(number % 11);
  if (side.open.count(client) == 0) {
    side.connects(client, std::make_shared<PortDescriptor>());
  } else if (number % 13 == 5) {
    side.ends(client);
  } else if (number % 2 == 0) {
    side.reconnects(client, name);
  } else if (number % 13 == 7) {
    (void)side.asks(client, {{"action", "watchPortChanges"}});
  } else {
    (void)side.sets(client, "setDatabaseState", name, std::string(100, 's'));
  }
}

// A process with the same descriptors is killed at any moment. Its journal is begun anew every few
// entries, so that happens within that, too.
TEST(JournalOfAProcess, ThatIsKilledAtAnyMomentHasAllThatItHadDone) {
  struct Counts {
    std::atomic<int> begun;
    std::atomic<int> done;
  };
  const MovedClock clock;
  // The processes must have the key that is drawn when it is first wanted.
  static_cast<void>(SipKey::ofThisProcess());
  std::minstd_rand random(7);
  for (int round = 0; round < 12; ++round) {
    Side side({}, {.least = 700, .quick = round % 2 == 0 ? Journal::Sizes().quick : 0});
    const SharedMemory memory(sizeof(Counts));
    auto& counts = *reinterpret_cast<Counts*>(memory.bytes());
    const auto process = static_cast<pid_t>(
        syscall(SYS_clone, CLONE_FILES | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    ASSERT_GE(process, 0);
    if (process == 0) {
      side.beginsJournal();
      for (int number = 0;; ++number) {
        counts.begun = number + 1;
        step(side, number);
        counts.done = number + 1;
      }
    }
    const int last = 1 + static_cast<int>(random() % 300);
    while (counts.done < last) {
      sched_yield();
    }
    kill(process, SIGKILL);
    ASSERT_EQ(waitpid(process, nullptr, 0), process);
    Side twin;
    std::vector<std::string> possible;
    for (int number = 0; number < counts.begun; ++number) {
      if (number == counts.done) {
        possible.push_back(portsAndHosts(twin));
      }
      step(twin, number);
    }
    possible.push_back(portsAndHosts(twin));
    Side other;
    ReplayedRecords records;
    other.server.registry.replay(side.memory, records);
    EXPECT_NE(std::ranges::find(possible, portsAndHosts(other)), possible.end()) << counts.done;
    // The next process goes on in the same memory, and lets the file before go. Connections that
    // it does not know are gone.
    const int before = side.memory.file();
    Journal next(side.memory);
    for (const auto& [descriptor, record] : records.rest()) {
      if (record->timesOnWatchList() == 0) {
        next.bind(descriptor, *record);
      }
    }
    ASSERT_TRUE(other.server.registry.beginJournal(next));
    EXPECT_LT(fcntl(before, F_GETFD), 0);
    Side third;
    ReplayedRecords again;
    third.server.registry.replay(side.memory, again);
    EXPECT_EQ(portsAndHosts(third), portsAndHosts(other));
    EXPECT_EQ(third.server.registry.watchingPortsList().count(), 0U);
  }
}

}  // namespace
}  // namespace sorvane::test
