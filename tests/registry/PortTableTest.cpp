#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "registry/PortTable.h"

namespace sorvane {
namespace {

PortTable::Record record() { return std::make_shared<PortDescriptor>(); }

PortTable::Record enter(PortTable& table, std::string_view name, PortTable::Record record) {
  return table.enter(table.placeOf(name), OwnedPortName(name), std::move(record));
}

PortTable::Record remove(PortTable& table, std::string_view name) {
  const auto place = table.placeOf(name);
  return place.isTaken() ? table.remove(place).record : nullptr;
}

TEST(PortTable, HasNothingAtFirst) {
  PortTable table;
  EXPECT_EQ(table.size(), 0U);
  EXPECT_EQ(table.find("db1"), nullptr);
  EXPECT_EQ(remove(table, "db1"), nullptr);
}

TEST(PortTable, TellsApartNamesThatDifferInAnyByte) {
  PortTable table;
  const std::string names[] = {
      "", "db1", "DB1", "db1 ", "d\xc3\xa4tenbank", "a name that is too long to lie in its slot"};
  std::map<std::string, PortTable::Record> entered;
  for (const std::string& name : names) {
    entered[name] = record();
    EXPECT_EQ(enter(table, name, entered[name]), nullptr);
  }
  for (const std::string& name : names) {
    ASSERT_NE(table.find(name), nullptr) << name;
    EXPECT_EQ(*table.find(name), entered[name]) << name;
  }
  EXPECT_EQ(table.size(), std::size(names));
}

TEST(PortTable, AnswersTheRecordThatIsReplacedOrRemoved) {
  PortTable table;
  const auto first = record();
  const auto second = record();
  enter(table, "db1", first);
  EXPECT_EQ(enter(table, "db1", second), first);
  EXPECT_EQ(table.size(), 1U);
  EXPECT_EQ(remove(table, "db1"), second);
  EXPECT_EQ(table.size(), 0U);
  EXPECT_EQ(table.find("db1"), nullptr);
}

TEST(PortTable, LetsGoOfWhatIsRemoved) {
  PortTable table;
  const auto kept = record();
  enter(table, "db1", kept);
  remove(table, "db1");
  EXPECT_EQ(kept.use_count(), 1);
}

TEST(PortTable, KeepsASlotInItsPlaceWhileOthersAreRemoved) {
  PortTable table;
  for (int number = 0; number < 1000; ++number) {
    enter(table, "db" + std::to_string(number), record());
  }
  std::map<std::size_t, PortTable::Record> before;
  for (std::size_t slot = 0; slot < table.slotCount(); ++slot) {
    before[slot] = table.inSlot(slot);
  }
  std::map<PortTable::Record, bool> gone;
  for (int number = 0; number < 1000; number += 2) {
    gone[remove(table, "db" + std::to_string(number))] = true;
  }
  for (std::size_t slot = 0; slot < table.slotCount(); ++slot) {
    if (!gone.contains(before[slot])) {
      EXPECT_EQ(table.inSlot(slot), before[slot]);
    }
  }
}

// The names "0", "1", "2" and so on.
class PortTableSize : public testing::Test {
 protected:
  void enters(int from, int to) {
    for (int number = from; number < to; ++number) {
      enter(table_, std::to_string(number), record());
    }
  }
  void removes(int from, int to) {
    for (int number = from; number < to; ++number) {
      ASSERT_NE(remove(table_, std::to_string(number)), nullptr);
    }
  }
  /// How many slots the table has got once another name has come.
  [[nodiscard]] std::size_t slotsWithOneMore() const {
    const std::size_t more = table_.bytesToEnter() / PortTable::kSlotBytes;
    return more == 0 ? table_.slotCount() : more;
  }

  PortTable table_;
};

TEST_F(PortTableSize, GrowsWhenThreeQuartersOfTheSlotsAreTaken) {
  EXPECT_EQ(table_.slotCount(), 0U);
  const std::pair<std::size_t, std::size_t> steps[] = {
      {12, 16}, {24, 32}, {48, 64}, {96, 128}, {192, 256}};
  for (const auto& [names, slots] : steps) {
    while (table_.size() < names) {
      const std::size_t expected = slotsWithOneMore();
      enters(static_cast<int>(table_.size()), static_cast<int>(table_.size()) + 1);
      ASSERT_EQ(table_.slotCount(), expected);
      ASSERT_EQ(table_.slotCount(), slots) << table_.size();
      ASSERT_EQ(table_.bytes(), slots * 80);
    }
  }
}

TEST_F(PortTableSize, CountsTheSlotsOfRemovedNamesAsTaken) {
  enters(0, 12);
  removes(0, 4);
  EXPECT_EQ(slotsWithOneMore(), 32U) << "nine names fill half of as many at most";
  EXPECT_EQ(table_.bytesToEnter(), 32 * PortTable::kSlotBytes);
  removes(4, 5);
  EXPECT_EQ(table_.bytesToEnter(), 16 * PortTable::kSlotBytes) << "eight need another 16";
  enters(12, 13);
  EXPECT_EQ(table_.slotCount(), 16U);
  enters(13, 17);
  EXPECT_EQ(table_.bytesToEnter(), 32 * PortTable::kSlotBytes)
      << "none of the slots counts as removed that the names have moved to";
}

TEST_F(PortTableSize, ShrinksWhenLessThanAnEighthOfTheSlotsIsTaken) {
  enters(0, 49);
  EXPECT_EQ(table_.slotCount(), 128U);
  removes(0, 34);
  EXPECT_EQ(table_.bytesToEnter(), 0U) << "one more fills an eighth";
  removes(34, 35);
  EXPECT_EQ(table_.bytesToEnter(), 32 * PortTable::kSlotBytes);
  enters(0, 1);
  EXPECT_EQ(table_.slotCount(), 32U);
}

TEST_F(PortTableSize, IsNeverLessThanSixteenSlotsAgain) {
  enters(0, 1);
  removes(0, 1);
  EXPECT_EQ(table_.bytesToEnter(), 0U);
  EXPECT_EQ(table_.slotCount(), 16U);
}

TEST_F(PortTableSize, StaysWhileANameComesAndGoes) {
  enters(0, 5);
  for (int time = 0; time < 1000; ++time) {
    enters(5, 6);
    ASSERT_EQ(table_.bytesToEnter(), 0U) << time;
    removes(5, 6);
    ASSERT_EQ(table_.bytesToEnter(), 0U) << time;
  }
}

// Where the search for the empty name begins is chance: it meets removed names in one of the tables
// at least.
TEST(PortTable, DoesNotTakeARemovedNameForTheEmptyOne) {
  for (int names = 12; names < 5000; names *= 2) {
    PortTable table;
    for (int number = 0; number < names; ++number) {
      enter(table, std::to_string(number), record());
    }
    for (int number = 1; number < names; ++number) {
      remove(table, std::to_string(number));
    }
    EXPECT_EQ(table.find(""), nullptr);
  }
}

// Names that come and go for months: the slots of removed ones are used again.
TEST(PortTable, DoesNotGrowWhileAsManyNamesGoAsCome) {
  PortTable table;
  for (int number = 0; number < 100000; ++number) {
    enter(table, "db" + std::to_string(number), record());
    if (number >= 100) {
      ASSERT_NE(remove(table, "db" + std::to_string(number - 100)), nullptr);
    }
  }
  EXPECT_EQ(table.size(), 100U);
  EXPECT_LE(table.slotCount(), 512U);
}

// A walk over all names takes as long as the table is.
TEST(PortTable, GivesBackTheRoomOfNamesThatAreGoneWhenTheNextOneComes) {
  PortTable table;
  for (int number = 0; number < 10000; ++number) {
    enter(table, "db" + std::to_string(number), record());
  }
  for (int number = 100; number < 10000; ++number) {
    remove(table, "db" + std::to_string(number));
  }
  enter(table, "last", record());
  EXPECT_LE(table.slotCount(), 1024U);
  for (int number = 0; number < 100; ++number) {
    EXPECT_NE(table.find("db" + std::to_string(number)), nullptr) << number;
  }
}

// The most slots that a search can look at: they follow one another without an empty one.
std::size_t longestSearch(const PortTable& table) {
  std::size_t longest = 0;
  std::size_t length = 0;
  for (std::size_t slot = 0; slot < 2 * table.slotCount(); ++slot) {  // the last one goes on at 0
    const bool isTaken = table.inSlot(slot % table.slotCount()) != nullptr;
    length = isTaken ? length + 1 : 0;
    longest = std::max(longest, length);
  }
  return longest;
}

// Names as somebody chooses them who knows the hash of the standard library, or one without a key.
TEST(PortTable, KeepsSearchesShortForNamesThatWereChosenToMeet) {
  constexpr std::size_t kMeetingBits = 0x3ff;
  constexpr std::size_t kNames = 500;
  PortTable table;
  for (int number = 0; table.size() < kNames; ++number) {
    const std::string name = "db" + std::to_string(number);
    if ((std::hash<std::string_view>{}(name)&kMeetingBits) == 0) {
      enter(table, name, record());
    }
  }
  EXPECT_LT(longestSearch(table), kNames / 4);
}

TEST(PortTable, OrdersNamesByTheKeyOfTheirHash) {
  const auto orderWith = [](const SipKey& key) {
    PortTable table;
    std::map<PortTable::Record, int> numbers;
    for (int number = 0; number < 50; ++number) {
      const auto entered = record();
      numbers[entered] = number;
      const std::string name = "db" + std::to_string(number);
      table.enter(table.placeOf(PortName(name, key)), OwnedPortName(name), entered);
    }
    std::vector<int> order;
    for (std::size_t slot = 0; slot < table.slotCount(); ++slot) {
      if (table.inSlot(slot) != nullptr) {
        order.push_back(numbers[table.inSlot(slot)]);
      }
    }
    return order;
  };
  EXPECT_EQ(orderWith({.low = 1, .high = 2}), orderWith({.low = 1, .high = 2}));
  EXPECT_NE(orderWith({.low = 1, .high = 2}), orderWith({.low = 1, .high = 3}));
  EXPECT_NE(orderWith({.low = 1, .high = 2}), orderWith({.low = 2, .high = 2}));
}

TEST(PortTable, BehavesAsAMapWhateverIsDoneToIt) {
  std::minstd_rand random(20261121);
  PortTable table;
  std::map<std::string, PortTable::Record> model;
  for (int step = 0; step < 50000; ++step) {
    const std::string name = "name" + std::to_string(random() % 700);
    if (random() % 2 == 0) {
      const auto entered = record();
      const auto before = model.contains(name) ? model[name] : nullptr;
      ASSERT_EQ(enter(table, name, entered), before);
      model[name] = entered;
    } else {
      const auto before = model.contains(name) ? model[name] : nullptr;
      ASSERT_EQ(remove(table, name), before);
      model.erase(name);
    }
    ASSERT_EQ(table.size(), model.size());
  }
  for (int number = 0; number < 700; ++number) {
    const std::string name = "name" + std::to_string(number);
    const auto* const found = table.find(name);
    EXPECT_EQ(found == nullptr ? nullptr : *found, model.contains(name) ? model[name] : nullptr);
  }
  std::size_t inSlots = 0;
  for (std::size_t slot = 0; slot < table.slotCount(); ++slot) {
    inSlots += table.inSlot(slot) != nullptr ? 1 : 0;
  }
  EXPECT_EQ(inSlots, model.size());
}

}  // namespace
}  // namespace sorvane
