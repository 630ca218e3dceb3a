#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <thread>

#include "registry/Registry.h"

namespace sorvane {
namespace {

std::shared_ptr<PortDescriptor> recordNamed(const std::string& name) {
  auto record = std::make_shared<PortDescriptor>();
  record->setPortName(name);
  return record;
}

TEST(Registry, HoldsTheRecordsThatItIsGiven) {
  Registry registry;
  const auto record = recordNamed("db1");
  registry.enterPort("db1", record);
  EXPECT_EQ(registry.port("db1"), record);
  EXPECT_EQ(registry.port("db2"), nullptr);
  const auto remove = [&](std::string_view name) {
    return registry.with([&](RegistryState& state) { return state.map.remove(name); });
  };
  EXPECT_EQ(remove("db2"), nullptr);
  EXPECT_EQ(remove("db1"), record);
  EXPECT_EQ(registry.port("db1"), nullptr);
  EXPECT_EQ(record.use_count(), 1);
}

TEST(Registry, LetsGoOfARecordThatIsReplaced) {
  Registry registry;
  const auto first = recordNamed("db1");
  const auto second = recordNamed("db1");
  registry.enterPort("db1", first);
  registry.enterPort("db1", second);
  EXPECT_EQ(registry.port("db1"), second);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(registry.portCount(), 1U);
}

TEST(Registry, ShowsARecordWithoutTakingAShareInIt) {
  Registry registry;
  registry.enterPort("db1", recordNamed("db1"));
  std::string shown;
  EXPECT_TRUE(
      registry.withPort("db1", [&](const PortDescriptor& record) { shown = *record.portName(); }));
  EXPECT_EQ(shown, "db1");
  EXPECT_FALSE(registry.withPort("db2", [](const PortDescriptor&) { FAIL(); }));
}

TEST(Registry, WalksEveryEntryOnceHoweverManyThereAre) {
  for (const int count : {0, 1, 511, 512, 513, 5000}) {
    Registry registry;
    for (int index = 0; index < count; ++index) {
      const std::string name = "db" + std::to_string(index);
      registry.enterPort(name, recordNamed(name));
    }
    std::set<std::string> seen;
    int calls = 0;
    registry.forEachPort([&](PortMap&, PortDescriptor& record) {
      seen.emplace(*record.portName());
      ++calls;
    });
    EXPECT_EQ(calls, count);
    EXPECT_EQ(static_cast<int>(seen.size()), count);
  }
}

TEST(Registry, DropsWhatWasLeftBehindLongestAndCountsIt) {
  constexpr std::uint64_t kLeftBehind = 50000;
  Registry registry({.leftBehind = kLeftBehind});
  EXPECT_EQ(registry.takeDroppedPorts(), 0U);
  const auto leave = [&](int from, int to) {
    const auto record = recordNamed("not entered");
    for (int number = from; number < to; ++number) {
      registry.enterPort("db" + std::to_string(number), record);
    }
    registry.endPort(*record);
  };
  const auto leftBehind = [&] {
    return registry.with([](const RegistryState& state) { return state.map.leftBehindBytes(); });
  };
  leave(0, 100);
  EXPECT_EQ(registry.portCount(), 100U);
  leave(100, 600);
  const std::size_t left = registry.portCount();
  EXPECT_LE(leftBehind(), kLeftBehind);
  EXPECT_GT(leftBehind(), kLeftBehind - 1000) << "no more goes than must";
  EXPECT_EQ(registry.takeDroppedPorts(), 600 - left);
  EXPECT_EQ(registry.takeDroppedPorts(), 0U) << "each is told once";
  for (std::size_t number = 0; number < 600; ++number) {
    EXPECT_EQ(registry.port("db" + std::to_string(number)) != nullptr, number >= 600 - left);
  }
}

// The state list is let go of after the watchers were marked and before the marking has ended.
TEST(Registry, TellsOfAChangeThatComesBetweenAMarkingAndItsEnd) {
  Registry registry;
  PortDescriptor watcher;
  registry.watchingPortsList().append(watcher);
  const auto changes = [&](const std::string* list) {
    delete list;
    std::thread([&] {
      EXPECT_TRUE(watcher.takeDirty()) << "the watcher was marked and has asked";
      registry.setWatchToDirty();
    }).join();
  };
  registry.with([&](RegistryState& state) {
    state.databaseStateString = std::shared_ptr<const std::string>(new std::string, changes);
  });
  registry.setWatchToDirty();
  EXPECT_TRUE(watcher.isDirty());
}

}  // namespace
}  // namespace sorvane
