// The sums of the port map and its bounds.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/NSException.h"
#include "platform/TimeSource.h"
#include "registry/HeapBytes.h"
#include "registry/PortMap.h"

namespace sorvane {
namespace {

double now = 1000.0;

constexpr std::uint64_t kEntryBytes = 2 * PortTable::kSlotBytes;

std::string longName(int number, std::size_t length = 100) {
  return "name" + std::to_string(number) + std::string(length, 'n');
}

PortDescriptor::Registration named(std::string_view name, std::string_view type = "db") {
  return {.portKey = std::nullopt,
          .portName = name,
          .portHostAddress = std::nullopt,
          .portHost = "h",
          .portNumber = "1",
          .portType = type};
}

void end(PortMap& map, PortDescriptor& record) {
  static_cast<void>(map.end(record, PortMap::nameThatEndsWith(record)));
}

class PortMapTest : public testing::Test {
 protected:
  PortMapTest() {
    now = 1000.0;
    setTimeSource([] { return now; });
  }

  static std::shared_ptr<PortDescriptor> connection() { return std::make_shared<PortDescriptor>(); }
  /// A connection that has entered these names. Its end removes none of them: it has no key of name
  /// and host.
  static std::shared_ptr<PortDescriptor> connectionWith(PortMap& map, int from, int to,
                                                        std::size_t length = 100) {
    auto record = connection();
    for (int number = from; number < to; ++number) {
      map.enterWith(named(longName(number, length)), record);
    }
    return record;
  }
};

// ---- Sums

/// A map and, beside it, everything that its sums are about.
class Model {
 public:
  explicit Model(PortMap& map) : map_(map) {}

  void enters(const std::shared_ptr<PortDescriptor>& record, const std::string& name,
              std::string_view type) {
    PortDescriptor::Registration registration = named(name, type);
    if (type.size() % 2 == 0) {
      registration.portKey = name;
    }
    map_.enterWith(registration, record);
    records_.insert(record);
    entries_[name] = record;
  }
  void accepts(const std::shared_ptr<PortDescriptor>& record) {
    const std::string name(*record->portName());
    map_.enter(name, record);
    entries_[name] = record;
  }
  void asksForPort(const std::shared_ptr<PortDescriptor>& record, const std::string& name) {
    if (record->portName()) {
      entries_.erase(std::string(*record->portName()));
    }
    map_.replaceRegistration(*record, named(name));
    records_.insert(record);
  }
  void ends(const std::shared_ptr<PortDescriptor>& record) {
    if (record->portName() && record->portKey()) {
      entries_.erase(std::string(*record->portName()));
    }
    end(map_, *record);
    ended_.insert(record);
  }
  void dropsOldest() { entries_.erase(map_.removeOldestLeftBehind().name); }

  void compare() {
    std::uint64_t bytes = map_.slotCount() * PortTable::kSlotBytes;
    std::uint64_t leftBehind = 0;
    std::uint64_t states = 0;
    std::uint64_t alerts = 0;
    std::map<const PortDescriptor*, std::uint64_t> names;
    std::map<const PortDescriptor*, std::uint64_t> entries;
    for (const auto& [name, record] : entries_) {
      names[record.get()] +=
          name.size() <= std::string().capacity() ? 0 : heapBytes(name.size() + 1);
      ++entries[record.get()];
      const std::string_view present = *record->portName();
      if (present != "sorvexec") {
        states += present.size() + record->portStatus().value_or("running").size() + 2;
        if (record->alertAsSet()) {
          alerts += present.size() + record->alertAsSet()->size() + 2;
        }
      }
    }
    std::erase_if(records_, [&](const auto& record) {
      return ended_.contains(record) && entries[record.get()] == 0;
    });
    for (const auto& record : records_) {
      const PortDescriptor* const each = record.get();
      const bool hasLeft = ended_.contains(record);
      const std::uint64_t texts = each->registrationBytes() + each->stateBytes();
      bytes += texts + names[each];
      const std::uint64_t held = texts + names[each] + entries[each] * kEntryBytes;
      ASSERT_EQ(PortMap::bytesOf(*each), held);
      leftBehind += hasLeft ? held : 0;
    }
    ASSERT_EQ(map_.size(), entries_.size());
    ASSERT_EQ(map_.bytes(), bytes);
    ASSERT_EQ(map_.leftBehindBytes(), leftBehind);
    ASSERT_EQ(map_.stateListBytes(), states == 0 ? 0 : states - 1);
    ASSERT_EQ(map_.alertListBytes(), alerts == 0 ? 0 : alerts - 1);
    for (const auto& [name, record] : entries_) {
      ASSERT_NE(map_.find(name), nullptr) << name;
      ASSERT_EQ(*map_.find(name), record) << name;
    }
  }

 private:
  PortMap& map_;
  std::map<std::string, std::shared_ptr<PortDescriptor>> entries_;
  std::set<std::shared_ptr<PortDescriptor>> records_;
  std::set<std::shared_ptr<PortDescriptor>> ended_;
};

TEST_F(PortMapTest, KeepsItsSumsRightWhateverIsDone) {
  PortMap map({.connection = 1U << 30, .leftBehind = 6000, .all = 1U << 30});
  Model model(map);
  std::minstd_rand random(20261122);
  std::vector<std::shared_ptr<PortDescriptor>> living;
  const auto someName = [&] {
    const int number = static_cast<int>(random() % 60);
    return number == 0 ? std::string("sorvexec") : longName(number, number % 3 == 0 ? 50 : 0);
  };
  for (int step = 0; step < 5000; ++step) {
    if (living.size() < 8) {
      living.push_back(connection());
    }
    const std::size_t which = random() % living.size();
    const auto record = living[which];
    switch (random() % 10) {
      case 0:
        map.setStatus(someName(), std::string(random() % 40, 's'));
        break;
      case 1:
        map.setAlert(someName(), std::string(random() % 40, 'a'));
        break;
      case 2:
        now += 1800;
        for (std::size_t slot = 0; slot < map.slotCount(); ++slot) {
          if (map.inSlot(slot) != nullptr) {
            (void)map.alertOf(*map.inSlot(slot));
          }
        }
        break;
      case 3:
        model.asksForPort(record, someName());
        break;
      case 4:
        if (record->portName()) {
          model.accepts(record);
        }
        break;
      case 5:
        model.ends(record);
        living.erase(living.begin() + static_cast<std::ptrdiff_t>(which));
        while (map.hasTooMuchLeftBehind()) {
          model.dropsOldest();
        }
        break;
      default:
        model.enters(record, someName(), std::string(random() % 30, 't'));
        break;
    }
    ASSERT_NO_FATAL_FAILURE(model.compare()) << "step " << step;
  }
}

TEST_F(PortMapTest, HoldsNothingButItsTableWhenAllHaveLeft) {
  PortMap map({});
  auto record = connection();
  map.enterWith(named(longName(1)), record);
  map.setStatus(longName(1), "stopping");
  map.setAlert(longName(1), "disk full");
  map.remove(longName(1));
  end(map, *record);
  EXPECT_EQ(map.bytes(), map.slotCount() * PortTable::kSlotBytes);
  EXPECT_EQ(map.leftBehindBytes(), 0U);
  EXPECT_EQ(map.stateListBytes(), 0U);
  EXPECT_EQ(map.alertListBytes(), 0U);
}

TEST_F(PortMapTest, LengthOfTheListsStaysWithinItsIntegerHoweverManyEntriesTellALongName) {
  PortMap map({});
  const auto record = connection();
  for (int number = 0; number < 5000; ++number) {
    map.enterWith(named("db" + std::to_string(number)), record);
  }
  const std::string name(std::size_t{1} << 20, 'n');
  map.enterWith(named(name), record);
  EXPECT_EQ(map.stateListBytes(), 5001 * (name.size() + 9) - 1) << "more than 32 bits can count";
}

// ---- One connection

TEST_F(PortMapTest, HoldsNoMoreForOneConnectionThanItMay) {
  PortMap map({.connection = 10000});
  const auto record = connection();
  int number = 0;
  EXPECT_THROW(
      for (; number < 1000; ++number) { map.enterWith(named(longName(number)), record); },
      NSException);
  EXPECT_GT(number, 10);
  EXPECT_LE(PortMap::bytesOf(*record), 10000U);
  EXPECT_EQ(map.size(), static_cast<std::size_t>(number));
  EXPECT_EQ(*record->portName(), longName(number - 1));
  EXPECT_NO_THROW(map.enterWith(named(longName(number)), connection())) << "another one may";
}

TEST_F(PortMapTest, TakesExactlyAsMuchForOneConnectionAsItMay) {
  for (const int less : {0, 1}) {
    PortMap unbounded({});
    const auto first = connection();
    unbounded.enterWith(named(longName(1)), first);
    unbounded.enterWith(named(longName(2)), first);
    const std::uint64_t needed = PortMap::bytesOf(*first);
    PortMap map({.connection = needed - static_cast<std::uint64_t>(less)});
    const auto record = connection();
    map.enterWith(named(longName(1)), record);
    if (less == 0) {
      EXPECT_NO_THROW(map.enterWith(named(longName(2)), record));
    } else {
      EXPECT_THROW(map.enterWith(named(longName(2)), record), NSException);
    }
  }
}

TEST_F(PortMapTest, CountsTextsThatOthersSetForTheRecord) {
  PortMap map({.connection = 2000});
  const auto record = connection();
  map.enterWith(named("db1"), record);
  EXPECT_THROW(map.setStatus("db1", std::string(2000, 's')), NSException);
  EXPECT_THROW(map.setAlert("db1", std::string(2000, 's')), NSException);
  EXPECT_FALSE(record->portStatus().has_value());
  EXPECT_FALSE(record->alertAsSet().has_value());
  EXPECT_EQ(record->alertStatusTimestamp(), 0.0);
  map.setStatus("db1", std::string(1000, 's'));
  EXPECT_THROW(map.setAlert("db1", std::string(1000, 'a')), NSException) << "both together";
  EXPECT_NO_THROW(map.setStatus("db1", "short"));
  EXPECT_NO_THROW(map.setAlert("db1", std::string(1000, 'a')));
}

TEST_F(PortMapTest, CountsARegistrationThatIsNotEnteredYet) {
  PortMap map({.connection = 2000});
  const auto record = connection();
  EXPECT_THROW(map.replaceRegistration(*record, named("db1", std::string(2000, 't'))), NSException);
  EXPECT_FALSE(record->portName().has_value());
}

TEST_F(PortMapTest, CountsWhatARegistrationReplacesAsGone) {
  PortMap map({.connection = 3000});
  const auto record = connection();
  for (int number = 0; number < 100; ++number) {
    const std::string name = longName(number, 1000);
    ASSERT_NO_THROW(map.replaceRegistration(*record, named(name))) << number;
    ASSERT_NO_THROW(map.enter(name, record)) << number;
  }
  EXPECT_EQ(map.size(), 1U);
}

TEST_F(PortMapTest, GivesTheBytesOfANameToTheOneThatHasTakenIt) {
  PortMap map({});
  const auto first = connection();
  const auto second = connection();
  map.enterWith(named(longName(1)), first);
  map.enterWith(named("x"), first);
  const std::uint64_t withName = PortMap::bytesOf(*first);
  map.enterWith(named(longName(1)), second);
  EXPECT_EQ(withName - PortMap::bytesOf(*first), kEntryBytes + heapBytes(longName(1).size() + 1));
}

// ---- All of it

TEST_F(PortMapTest, HoldsNoMoreThanItMayInAll) {
  PortMap map({.all = 50000});
  std::vector<std::shared_ptr<PortDescriptor>> records;
  EXPECT_THROW(
      for (;;) {
        records.push_back(connection());
        map.enterWith(named(longName(static_cast<int>(records.size()))), records.back());
        ASSERT_LE(map.bytes(), 50000U);
      },
      NSException);
  EXPECT_GT(records.size(), 20U);
  EXPECT_EQ(map.size(), records.size() - 1);
  EXPECT_FALSE(records.back()->portName().has_value());
  EXPECT_THROW(map.setStatus(longName(1), std::string(50000, 's')), NSException);
  end(map, *records.front());
  EXPECT_NE(map.find(longName(1)), nullptr) << "left behind: it has no key of name and host";
  map.remove(longName(1));
  EXPECT_NO_THROW(map.enterWith(named(longName(1)), records.back()));
}

TEST_F(PortMapTest, CountsTheTableThatItWouldNeedForAnotherName) {
  PortMap map({.all = 100 * PortTable::kSlotBytes});
  const auto record = connection();
  int number = 0;
  EXPECT_THROW(
      for (; number < 1000;
           ++number) { map.enterWith(named("db" + std::to_string(number)), record); },
      NSException);
  EXPECT_LE(map.slotCount(), 64U);
  EXPECT_NO_THROW(map.enterWith(named("db1"), record)) << "it is there already";
}

// ---- What was left behind

TEST_F(PortMapTest, DropsWhatWasLeftBehindFirst) {
  PortMap map({.leftBehind = 8000});
  const auto first = connectionWith(map, 0, 15);
  const auto second = connectionWith(map, 15, 30);
  const auto third = connectionWith(map, 30, 45);
  for (const auto& record : {second, first, third}) {
    end(map, *record);
  }
  EXPECT_EQ(map.leftBehindBytes(),
            PortMap::bytesOf(*first) + PortMap::bytesOf(*second) + PortMap::bytesOf(*third));
  std::vector<std::string> dropped;
  while (map.hasTooMuchLeftBehind()) {
    dropped.push_back(map.removeOldestLeftBehind().name);
  }
  ASSERT_GT(dropped.size(), 16U);
  for (std::size_t index = 0; index < dropped.size(); ++index) {
    const int number = static_cast<int>(index) + (index < 15 ? 15 : -15);
    EXPECT_EQ(dropped[index], longName(number)) << "in the order of leaving, and then of entering";
  }
  EXPECT_LE(map.leftBehindBytes(), 8000U);
  EXPECT_EQ(map.size(), 45 - dropped.size());
}

TEST_F(PortMapTest, KeepsTheOrderOfLeavingWhenItsTableGrows) {
  PortMap map({.leftBehind = 0});
  end(map, *connectionWith(map, 0, 40));
  end(map, *connectionWith(map, 40, 80));
  const auto living = connectionWith(map, 1000, 5000);
  for (int number = 0; number < 80; ++number) {
    ASSERT_TRUE(map.hasTooMuchLeftBehind());
    ASSERT_EQ(map.removeOldestLeftBehind().name, longName(number));
  }
  EXPECT_FALSE(map.hasTooMuchLeftBehind());
  EXPECT_EQ(map.leftBehindBytes(), 0U);
  EXPECT_EQ(map.size(), 4000U);
  end(map, *living);
  EXPECT_EQ(map.removeOldestLeftBehind().name, longName(1000)) << "a ring that has moved, too";
}

TEST_F(PortMapTest, NamesThatAreRegisteredAgainAreNotLeftBehindAnyMore) {
  PortMap map({.leftBehind = 0});
  const auto gone = connectionWith(map, 0, 3);
  end(map, *gone);
  const auto next = connection();
  map.enterWith(named(longName(0)), next);
  map.enterWith(named(longName(2)), next);
  EXPECT_EQ(map.removeOldestLeftBehind().name, longName(1));
  EXPECT_EQ(map.leftBehindBytes(), 0U);
  EXPECT_EQ(*map.find(longName(0)), next);
}

TEST_F(PortMapTest, LetsARecordGoWithItsLastNameThatWasLeftBehind) {
  PortMap map({.leftBehind = 0});
  auto record = connectionWith(map, 0, 2);
  const std::weak_ptr<PortDescriptor> observed = record;
  end(map, *record);
  record.reset();
  map.removeOldestLeftBehind();
  EXPECT_FALSE(observed.expired());
  map.removeOldestLeftBehind();
  EXPECT_TRUE(observed.expired());
  EXPECT_EQ(map.bytes(), map.slotCount() * PortTable::kSlotBytes);
}

TEST_F(PortMapTest, TextsOfWhatWasLeftBehindCountForIt) {
  PortMap map({.leftBehind = 5000});
  end(map, *connectionWith(map, 0, 3));
  EXPECT_FALSE(map.hasTooMuchLeftBehind());
  map.setStatus(longName(1), std::string(5000, 's'));
  EXPECT_TRUE(map.hasTooMuchLeftBehind());
}

}  // namespace
}  // namespace sorvane
