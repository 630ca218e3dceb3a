// The sums of the port map and its bounds.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
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

/// Drops the entry that was left behind first, and returns its name.
std::string dropOldest(PortMap& map) {
  static_cast<void>(map.removeOldestLeftBehind());
  return std::string(map.removedNames().nameAt(map.removedNames().order().newest()));
}

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
  void dropsOldest() { entries_.erase(dropOldest(map_)); }

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

TEST_F(PortMapTest, NamesOfUpToFifteenBytesCostTheirSlotsAlone) {
  PortMap map({});
  const auto record = connection();
  map.enterWith(named("db1"), record);
  const auto costOf = [&](const std::string& name) {
    const std::uint64_t before = PortMap::bytesOf(*record);
    map.enter(name, record);
    return PortMap::bytesOf(*record) - before;
  };
  EXPECT_EQ(costOf(std::string(15, 'n')), kEntryBytes);
  EXPECT_EQ(costOf(std::string(16, 'n')), kEntryBytes + heapBytes(17));
}

TEST_F(PortMapTest, CountsAllOfARecordThatHadTextsBeforeItWasEntered) {
  PortMap map({});
  const auto record = connection();
  record->setRegistration(named("db1"));
  record->setPortStatus("stopping for the night");
  EXPECT_EQ(map.bytes(), 0U);
  map.enter(std::string("db1"), record);
  EXPECT_EQ(map.bytes(), record->registrationBytes() + record->stateBytes() +
                             map.slotCount() * PortTable::kSlotBytes);
}

// ---- The limits

TEST(RegistryLimits, AreThoseThatThePagesTell) {
  constexpr std::uint64_t kMebibyte = 1048576;
  const RegistryLimits limits;
  EXPECT_EQ(limits.connection, 64 * kMebibyte);
  EXPECT_EQ(limits.leftBehind, 64 * kMebibyte);
  EXPECT_EQ(limits.all, 512 * kMebibyte);
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

// ---- Exactly as much as it needs

/// A change of a record: what goes before it, and the change itself.
struct Change {
  const char* name;
  std::function<PortMap::Record(PortMap&)> before;  ///< returns the record
  std::function<void(PortMap&, const PortMap::Record&)> make;
};

const std::string kLongText(600, 't');

void leavesBehind(PortMap& map, const std::vector<std::string>& names) {
  const auto gone = std::make_shared<PortDescriptor>();
  for (const std::string& name : names) {
    map.enterWith(named(name), gone);
  }
  map.setStatus(names.back(), std::string(300, 's'));
  end(map, *gone);
}

PortMap::Record fresh(PortMap& /*map*/) { return std::make_shared<PortDescriptor>(); }
PortMap::Record registered(PortMap& map, const std::string& name) {
  auto record = std::make_shared<PortDescriptor>();
  map.replaceRegistration(*record, named(name));
  return record;
}
PortMap::Record entered(PortMap& map, const std::string& name) {
  auto record = std::make_shared<PortDescriptor>();
  map.enterWith(named(name), record);
  return record;
}
// A record that the map does not count yet, though it has texts.
PortMap::Record uncounted(PortMap& /*map*/) {
  auto record = std::make_shared<PortDescriptor>();
  record->setRegistration(named(longName(1)));
  record->setPortStatus("stopping for the night");
  return record;
}

const Change kChanges[] = {
    {"the first registration", fresh,
     [](PortMap& map, const auto& record) { map.replaceRegistration(*record, named("db1")); }},
    {"a registration with more text", [](PortMap& map) { return registered(map, "db1"); },
     [](PortMap& map, const auto& record) {
       map.replaceRegistration(*record, named("db1", kLongText));
     }},
    {"a registration that gives its entry up",
     [](PortMap& map) { return entered(map, longName(1)); },
     [](PortMap& map, const auto& record) {
       map.replaceRegistration(*record, named("db2", kLongText));
     }},
    {"a registration that removes somebody else's entry",
     [](PortMap& map) {
       auto record = registered(map, longName(1));
       entered(map, longName(1));
       return record;
     },
     [](PortMap& map, const auto& record) {
       map.replaceRegistration(*record, named("db2", kLongText));
     }},
    {"a registration that removes the last entry of a record that was left behind",
     [](PortMap& map) {
       auto record = registered(map, longName(1));
       leavesBehind(map, {longName(1)});
       return record;
     },
     [](PortMap& map, const auto& record) {
       map.replaceRegistration(*record, named("db2", kLongText + kLongText));
     }},
    {"a registration that removes one of two entries that were left behind",
     [](PortMap& map) {
       auto record = registered(map, longName(1));
       leavesBehind(map, {longName(1), longName(2)});
       return record;
     },
     [](PortMap& map, const auto& record) {
       map.replaceRegistration(*record, named("db2", kLongText + kLongText));
     }},
    {"a registration of a record that was not counted", uncounted,
     [](PortMap& map, const auto& record) {
       map.replaceRegistration(*record, named("db2", kLongText));
     }},
    {"an entry of a short name", [](PortMap& map) { return registered(map, "db1"); },
     [](PortMap& map, const auto& record) { map.enter(std::string("db1"), record); }},
    {"an entry of a long name", [](PortMap& map) { return registered(map, longName(1)); },
     [](PortMap& map, const auto& record) { map.enter(longName(1), record); }},
    {"an entry of a record that was not counted", uncounted,
     [](PortMap& map, const auto& record) { map.enter(longName(1), record); }},
    {"an entry with its registration", fresh,
     [](PortMap& map, const auto& record) { map.enterWith(named(longName(1)), record); }},
    {"an entry with the registration of a record that was not counted", uncounted,
     [](PortMap& map, const auto& record) {
       map.enterWith(named(longName(2), kLongText), record);
     }},
    {"a further entry", [](PortMap& map) { return entered(map, longName(1)); },
     [](PortMap& map, const auto& record) { map.enterWith(named(longName(2)), record); }},
    {"its entry again, with more text", [](PortMap& map) { return entered(map, longName(1)); },
     [](PortMap& map, const auto& record) {
       map.enterWith(named(longName(1), kLongText), record);
     }},
    {"an entry that another record has",
     [](PortMap& map) {
       entered(map, longName(1));
       return fresh(map);
     },
     [](PortMap& map, const auto& record) {
       map.enterWith(named(longName(1), kLongText), record);
     }},
    {"an entry that a record has left behind last",
     [](PortMap& map) {
       leavesBehind(map, {longName(1)});
       return fresh(map);
     },
     [](PortMap& map, const auto& record) {
       map.enterWith(named(longName(1), kLongText + kLongText), record);
     }},
    {"an entry that a record has left behind with another",
     [](PortMap& map) {
       leavesBehind(map, {longName(1), longName(2)});
       return fresh(map);
     },
     [](PortMap& map, const auto& record) {
       map.enterWith(named(longName(1), kLongText + kLongText), record);
     }},
    {"a state", [](PortMap& map) { return entered(map, "db1"); },
     [](PortMap& map, const auto& /*record*/) { map.setStatus("db1", "stopping"); }},
    {"a longer state",
     [](PortMap& map) {
       auto record = entered(map, "db1");
       map.setStatus("db1", "stopping");
       map.setAlert("db1", "disk full");
       return record;
     },
     [](PortMap& map, const auto& /*record*/) { map.setStatus("db1", kLongText); }},
    {"an alert", [](PortMap& map) { return entered(map, "db1"); },
     [](PortMap& map, const auto& /*record*/) { map.setAlert("db1", "disk full"); }},
};

TEST_F(PortMapTest, EachChangeTakesExactlyTheRoomThatItNeeds) {
  for (const Change& change : kChanges) {
    SCOPED_TRACE(change.name);
    std::uint64_t ofAll = 0;
    std::uint64_t ofConnection = 0;
    {
      PortMap map({});
      const auto record = change.before(map);
      change.make(map, record);
      ofAll = map.bytes();
      ofConnection = PortMap::bytesOf(*record);
    }
    const auto tryWith = [&](const RegistryLimits& limits, bool hasRoom) {
      PortMap map(limits);
      const auto record = change.before(map);
      const std::uint64_t before = map.bytes();
      const std::uint64_t ofConnectionBefore = PortMap::bytesOf(*record);
      if (hasRoom) {
        EXPECT_NO_THROW(change.make(map, record));
        return;
      }
      EXPECT_THROW(change.make(map, record), NSException);
      EXPECT_EQ(map.bytes(), before);
      EXPECT_EQ(PortMap::bytesOf(*record), ofConnectionBefore);
    };
    tryWith({.all = ofAll}, true);
    tryWith({.all = ofAll - 1}, false);
    tryWith({.connection = ofConnection}, true);
    tryWith({.connection = ofConnection - 1}, false);
  }
}

TEST_F(PortMapTest, NeedsRoomForBothTablesWhileItMovesToALongerOne) {
  constexpr int kFitInTheFirst = 12;
  const auto room = [](std::uint64_t more) {
    PortMap filled({});
    const auto record = connectionWith(filled, 0, kFitInTheFirst, 0);
    const std::uint64_t before = filled.bytes();
    EXPECT_EQ(filled.slotCount(), 16U);
    PortMap map({.all = before + more});
    map.enter(std::string("db1"), connectionWith(map, 0, kFitInTheFirst, 0));
  };
  EXPECT_NO_THROW(room(32 * PortTable::kSlotBytes));
  EXPECT_THROW(room(32 * PortTable::kSlotBytes - 1), NSException);
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
    dropped.push_back(dropOldest(map));
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
    ASSERT_EQ(dropOldest(map), longName(number));
  }
  EXPECT_FALSE(map.hasTooMuchLeftBehind());
  EXPECT_EQ(map.leftBehindBytes(), 0U);
  EXPECT_EQ(map.size(), 4000U);
  end(map, *living);
  EXPECT_EQ(dropOldest(map), longName(1000)) << "a ring that has moved, too";
}

TEST_F(PortMapTest, NamesThatAreRegisteredAgainAreNotLeftBehindAnyMore) {
  PortMap map({.leftBehind = 0});
  const auto gone = connectionWith(map, 0, 3);
  end(map, *gone);
  const auto next = connection();
  map.enterWith(named(longName(0)), next);
  map.enterWith(named(longName(2)), next);
  EXPECT_EQ(dropOldest(map), longName(1));
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
