// Descriptions of registries that cannot be, each with a right check sum.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "registry/KeptBody.h"

namespace sorvane::test {
namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

/// A name whose search begins at that slot in each table of up to 1024 slots.
const std::string& nameFor(std::size_t slot) {
  static std::map<std::size_t, std::string> names;
  std::string& name = names[slot];
  for (int number = 0; name.empty(); ++number) {
    const std::string each = "n" + std::to_string(number);
    if ((PortName(each).hash() & 1023) == slot) {
      name = each;
    }
  }
  return name;
}

/// The values of a body, each under a name of its own.
class Values {
 public:
  using Value = std::variant<std::uint64_t, double, std::string>;

  Values& add(const std::string& name, Value value) {
    values_.push_back({name, std::move(value)});
    return *this;
  }
  Values& add(const std::string& name, const std::vector<Value>& values) {
    for (const Value& each : values) {
      add(name, each);
    }
    return *this;
  }
  void set(const std::string& name, Value value) { at(name)->second = std::move(value); }
  void insertBehind(const std::string& name, Value value) {
    values_.insert(at(name) + 1, {"", std::move(value)});
  }
  void erase(const std::string& name, std::size_t count = 1) {
    const auto first = at(name);
    values_.erase(first, first + static_cast<std::ptrdiff_t>(count));
  }

  [[nodiscard]] std::string body() const {
    KeptWriter writer;
    for (const auto& [name, value] : values_) {
      if (const auto* const number = std::get_if<std::uint64_t>(&value)) {
        writer.number(*number);
      } else if (const auto* const real = std::get_if<double>(&value)) {
        writer.real(*real);
      } else {
        writer.text(std::get<std::string>(value));
      }
    }
    return std::string(writer.body());
  }

 private:
  using Named = std::pair<std::string, Value>;
  std::vector<Named>::iterator at(const std::string& name) {
    const auto found = std::ranges::find(values_, name, &Named::first);
    EXPECT_NE(found, values_.end()) << name;
    return found;
  }

  std::vector<Named> values_;
};

/// What is kept of a record that has registered nothing.
void addPlainRecord(Values& values, const std::string& name) {
  for (int text = 0; text < 6; ++text) {
    values.add(name + " text", std::uint64_t{0});
  }
  values.add(name + " status", std::uint64_t{0})
      .add(name + " has an alert time", std::uint64_t{0})
      .add(name + " info", std::uint64_t{0})
      .add(name + " cleared", std::uint64_t{0})
      .add(name + " watches", std::uint64_t{0})
      .add(name + " dirty", std::uint64_t{1});
}

/// A registry with a record that has the names of the slots 3 and 5, one at 7 and one at 8 that
/// ended connections have left behind, the last one first, and removed names.
Values smallRegistry() {
  using Number = std::uint64_t;
  const SipKey& key = SipKey::ofThisProcess();
  Values values;
  values.add("key low", key.low).add("key high", key.high);
  values.add("instance", std::string("0123456789abcdef0123456789abcdef"));
  values.add("times set dirty", Number{3}).add("dropped", Number{1}).add("due", Number{1});
  values.add("slots", Number{16}).add("entries", Number{4}).add("removed", Number{2});
  values.add("first removed", Number{9}).add("second removed", Number{2});  // slots 9 and 12
  values.add("last change", Number{8}).add("moves", Number{4});
  values.add("first change", Number{2}).add("first place", Number{3});
  values.add("second change", Number{2}).add("second place", Number{7});
  values.add("third change", Number{1}).add("third place", Number{8});
  values.add("no further change", Number{0});

  values.add("has number", Number{1}).add("number", std::string("5001"));
  values.add("has name", Number{1}).add("name", nameFor(3));
  values.add("other texts", {Number{0}, Number{0}, Number{0}, Number{0}});
  values.add("status", Number{0}).add("has an alert time", Number{1}).add("alert time", 500.25);
  values.add("has an alert", Number{1}).add("alert", std::string("full"));
  values.add("info", Number{1}).add("notes", Number{2});
  values.add("first key", std::string("a")).add("first note", std::string("1"));
  values.add("second key", std::string("b")).add("second note", std::string("2"));
  values.add("cleared", Number{2}).add("watches", Number{2}).add("dirty", Number{0});
  values.add("names", Number{2}).add("name at 3", nameFor(3));
  values.add("further slot", Number{5}).add("further name", nameFor(5));
  addPlainRecord(values, "second");
  values.add("names of second", Number{1}).add("name at 7", nameFor(7));
  addPlainRecord(values, "third");
  values.add("names of third", Number{1}).add("name at 8", nameFor(8));
  values.add("left first", Number{9}).add("left then", Number{8}).add("left no more", Number{0});

  values.add("forgotten up to", Number{1}).add("places", Number{64});
  values.add("first removal", Number{2}).add("place of first removal", Number{0});
  values.add("second removal", Number{3}).add("place of second removal", Number{2});
  values.add("no further removal", Number{0});
  values.add("first gone", std::string("gone1")).add("second gone", std::string("gone2"));
  values.add("free", Number{1});
  for (Number place = 3; place < 64; ++place) {
    values.add("free places", place);
  }

  values.add("has hosts", Number{1}).add("hosts", Number{2});
  values.add("host", {std::string("a@1"), std::string("b@2")});
  values.add("has alternate hosts", Number{0});
  values.add("has host name", Number{1}).add("host name", std::string("a"));
  values.add("next number", Number{5003}).add("time", 999.5);
  values.add("refresh", Number{10000}).add("version", kMost);
  values.add("has states", Number{1}).add("states", std::string("n:running"));
  values.add("has alerts", Number{0});
  return values;
}

TEST(KeptRegistryByHand, IsReadAndWrittenAgain) {
  const std::string body = smallRegistry().body();
  Registry registry;
  restore(registry, body);
  EXPECT_EQ(keptBody(registry), body);
  EXPECT_EQ(registry.instance(), "0123456789abcdef0123456789abcdef");
  EXPECT_EQ(registry.takeDroppedPorts(), 1U);
  EXPECT_EQ(registry.port(nameFor(3)), registry.port(nameFor(5)));
  EXPECT_EQ(registry.port(nameFor(3))->holdings().entries, 2U);
  EXPECT_EQ(registry.port(nameFor(3))->holdings().anchor,
            static_cast<std::uint32_t>(PortName(nameFor(3)).hash()))
      << "where the search for its oldest entry begins";
  EXPECT_EQ(registry.port(nameFor(8))->holdings().hasLeft, 1U);
  EXPECT_EQ(registry.watchingPortsList().count(), 2U);
}

TEST(KeptRegistryByHand, MayHaveALargerTableAfterRemovals) {
  Values values = smallRegistry();
  values.set("slots", std::uint64_t{32});
  Registry registry;
  restore(registry, values.body());
  EXPECT_EQ(keptBody(registry), values.body());
}

TEST(KeptRegistryByHand, IsRefusedWhenItEndsTooEarly) {
  const std::string body = smallRegistry().body();
  for (std::size_t length = 0; length < body.size(); ++length) {
    Registry registry;
    EXPECT_THROW(restore(registry, body.substr(0, length)), KeptFault) << length;
  }
}

/// What is wrong, what the fault says, and how it is made.
struct Wrong {
  const char* what;
  const char* fault;
  std::function<void(Values&)> edit;
};

template <typename Number>
std::function<void(Values&)> with(const std::string& name, Number number) {
  return [name, number](Values& values) {
    if constexpr (std::is_floating_point_v<Number>) {
      values.set(name, number);
    } else {
      values.set(name, static_cast<std::uint64_t>(number));
    }
  };
}
std::function<void(Values&)> with(const std::string& name, const std::string& text) {
  return [name, text](Values& values) { values.set(name, text); };
}

std::vector<Wrong> everyWrong() {
  constexpr const char* kNumber = "a number that cannot be";
  constexpr const char* kSize = "a table of a size";
  constexpr const char* kOutside = "outside the table";
  constexpr const char* kOnePlace = "two things in one place";
  constexpr const char* kPlace = "in the wrong place, or twice";
  constexpr const char* kChange = "a change of nothing, or two of one";
  constexpr const char* kEnd = "an end of a connection";
  constexpr const char* kShort = "ends too early";
  constexpr const char* kPlaces = "a number of removed names";
  constexpr const char* kPlaceTwice = "a place for a removed name twice";
  const SipKey& key = SipKey::ofThisProcess();
  return {
      {"another key", kPlace, with("key low", key.low + 1)},
      {"a short instance", "no name of the registry", with("instance", std::string(31, 'a'))},
      {"a long instance", "no name of the registry", with("instance", std::string(33, 'a'))},
      {"an instance of other digits", "no name of the registry",
       with("instance", std::string(32, 'A'))},
      {"a flag that is none", kNumber, with("due", 2)},

      {"no slots for the entries", kSize, with("slots", 0)},
      {"few slots", kSize, with("slots", 8)},
      {"slots that are no power of two", kSize, with("slots", 24)},
      {"more slots than the entries need", kSize, with("slots", 64)},
      {"more slots than there can be", kNumber, with("slots", std::uint64_t{1} << 31)},
      {"a full table", kSize,
       [](Values& values) {
         values.set("removed", std::uint64_t{9});
         for (int more = 0; more < 7; ++more) {
           values.insertBehind("second removed", std::uint64_t{0});
         }
       }},
      {"slots in a table of no size", kSize,
       [](Values& values) {
         values.set("slots", std::uint64_t{0});
         values.set("entries", std::uint64_t{0});
       }},
      {"more entries than there is room for", kShort, with("entries", std::uint64_t{1} << 40)},
      {"more removed slots than there is room for", kShort,
       with("removed", std::uint64_t{1} << 40)},
      {"an entry that is missing", "less names than it says", with("entries", 5)},
      {"an entry too many", kNumber, with("entries", 3)},
      {"a removed slot behind the table", kOutside, with("second removed", 6)},
      {"a removed slot far away", kOutside, with("first removed", kMost)},
      {"a removed slot behind the last one", kOutside,
       [](Values& values) {
         values.set("first removed", std::uint64_t{15});
         values.set("second removed", std::uint64_t{0});
       }},
      {"a removed slot with a record", kOnePlace, with("first removed", 3)},

      {"a change after the last one", kNumber, with("last change", 4)},
      {"so many changes that none can follow", kNumber,
       with("last change", std::uint64_t{1} << 63)},
      {"too many moves", kNumber, with("moves", 10000)},
      {"a change behind the table", kChange, with("second place", 16)},
      {"a change of no index", kNumber, with("second place", std::uint64_t{1} << 32)},
      {"two changes of one record", kChange, with("second place", 3)},

      {"an alert at no time", "an alert at no time",
       with("alert time", std::numeric_limits<double>::quiet_NaN())},
      {"an alert that never ends", "an alert at no time",
       with("alert time", std::numeric_limits<double>::infinity())},
      {"a note twice", "notes in another order", with("second key", std::string("a"))},
      {"notes in another order", "notes in another order", with("second key", std::string(""))},
      {"more notes than there is room for", kShort, with("notes", std::uint64_t{1} << 40)},
      {"a flag that was cleared in the future", kNumber, with("cleared", 4)},
      {"a record too often on the list", kNumber, with("watches", std::uint64_t{1} << 31)},
      {"a record that is neither dirty nor not", kNumber, with("dirty", 2)},

      {"a record without a name", "without a name", with("names", 0)},
      {"an entry behind the table", kNumber, with("further slot", 16)},
      {"an entry in the slot of another of its record", kOnePlace, with("further slot", 3)},
      {"an entry in a removed slot", kOnePlace, with("further slot", 9)},
      {"an entry in the slot of another record", kOnePlace, with("further slot", 7)},
      {"a name in a slot before its own", kPlace, with("name at 3", nameFor(4))},
      {"a name behind an empty slot", kPlace, with("further name", nameFor(3))},
      {"a name twice", kPlace,
       [](Values& values) {
         values.set("further slot", std::uint64_t{4});
         values.set("further name", nameFor(3));
       }},

      {"an end of a record behind the table", kNumber, with("left first", 17)},
      {"an end of no record", kEnd, with("left first", 1)},
      {"an end of a removed name", kEnd, with("left first", 10)},
      {"an end of a further name", kEnd,
       [](Values& values) {
         values.set("watches", std::uint64_t{0});
         values.set("left first", std::uint64_t{6});
       }},
      {"two ends of a record", kEnd, with("left then", 9)},
      {"an end of a watcher", kEnd, with("third watches", 1)},

      {"names that will be forgotten", kNumber, with("forgotten up to", 9)},
      {"more places than there is room for", kShort, with("places", std::uint64_t{1} << 40)},
      {"places that are no power of two", kPlaces, with("places", 96)},
      {"few places", kPlaces, with("places", 32)},
      {"names without places", kChange, with("places", 0)},
      {"a removal behind the places", kChange, with("place of second removal", 64)},
      {"two removals of one place", kChange, with("place of second removal", 0)},
      {"a removal after the last change", kNumber, with("second removal", 6)},
      {"a removal with the number of a change", "two changes of one number",
       with("second removal", 2)},
      {"a removed name twice", "a removed name twice", with("second gone", std::string("gone1"))},
      {"a free place that has a name", kPlaceTwice, with("free", 2)},
      {"a free place twice", kPlaceTwice, with("free", 3)},
      {"a free place behind the places", kNumber, with("free", 64)},

      {"more hosts than there is room for", kShort, with("hosts", std::uint64_t{1} << 40)},
      {"so many ports that none can follow", kNumber, with("next number", std::uint64_t{1} << 62)},
      {"a change at no time", "a change at no time",
       with("time", -std::numeric_limits<double>::infinity())},
      {"too many refreshes", kNumber, with("refresh", 10001)},
  };
}

TEST(KeptRegistryByHand, IsRefusedForEachThingThatCannotBeAndChangesNothing) {
  for (const Wrong& wrong : everyWrong()) {
    Values values = smallRegistry();
    wrong.edit(values);
    Registry registry;
    const std::string before = keptBody(registry);
    try {
      restore(registry, values.body());
      ADD_FAILURE() << wrong.what << " is taken";
    } catch (const KeptFault& fault) {
      EXPECT_NE(std::string(fault.what()).find(wrong.fault), std::string::npos)
          << wrong.what << ": " << fault.what();
    }
    EXPECT_EQ(keptBody(registry), before) << wrong.what;
    EXPECT_EQ(registry.watchingPortsList().count(), 0U) << wrong.what;
  }
}

// Without a name: nothing is where it cannot be found.
std::string emptyRegistryWith(const SipKey& key) {
  KeptWriter writer;
  for (const std::uint64_t word : {key.low, key.high}) {
    writer.number(word);
  }
  writer.text("0123456789abcdef0123456789abcdef");
  for (int value = 0; value < 17; ++value) {
    writer.number(0);
  }
  writer.real(1000);
  for (int value = 0; value < 4; ++value) {
    writer.number(0);
  }
  return std::string(writer.body());
}

TEST(KeptRegistryByHand, IsRefusedWhenItsKeyOfHashesIsNotThatOfTheProcess) {
  const SipKey key = SipKey::ofThisProcess();
  Registry registry;
  const std::string before = keptBody(registry);
  const std::string other = emptyRegistryWith({.low = key.low, .high = key.high + 1});
  EXPECT_THROW(restore(registry, other), KeptFault);
  EXPECT_EQ(keptBody(registry), before);
  const std::string own = emptyRegistryWith(key);
  EXPECT_NO_THROW(restore(registry, own));
  EXPECT_EQ(keptBody(registry), own);
}

TEST(KeptRegistryByHand, MakesItsKeyThatOfANewProcess) {
  // The test runs in a process that was started for it: nothing has used a key there.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr SipKey kKey = {.low = 1, .high = 2};
  EXPECT_EXIT(
      {
        Registry registry;
        restore(registry, emptyRegistryWith(kKey));
        std::exit(SipKey::ofThisProcess() == kKey ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

/// Connections whose records follow the small registry.
class KeptRecordsByHand : public testing::Test {
 protected:
  void restores(const std::vector<std::uint64_t>& connections, const std::string& rest = "") {
    std::string body = smallRegistry().body();
    KeptWriter writer;
    for (const std::uint64_t connection : connections) {
      writer.number(connection);
    }
    body += writer.body();
    registry_ = std::make_unique<Registry>();
    records_ = restore(*registry_, body + rest, connections.size());
  }

  std::unique_ptr<Registry> registry_;
  std::vector<std::shared_ptr<PortDescriptor>> records_;
};

TEST_F(KeptRecordsByHand, AreThoseOfTheirSlots) {
  restores({4});
  EXPECT_EQ(records_[0], registry_->port(nameFor(3)));
}

TEST_F(KeptRecordsByHand, AreRefusedWhenTwoConnectionsHaveOne) {
  EXPECT_THROW(restores({4, 4}), KeptFault);
}

TEST_F(KeptRecordsByHand, AreRefusedWhenTheirConnectionHasEnded) {
  EXPECT_THROW(restores({8}), KeptFault);
}

TEST_F(KeptRecordsByHand, AreRefusedUnlessTheOldestEntryTellsThem) {
  EXPECT_THROW(restores({6}), KeptFault) << "a further name";
  EXPECT_THROW(restores({10}), KeptFault) << "a removed name";
  EXPECT_THROW(restores({1}), KeptFault) << "an empty slot";
  EXPECT_THROW(restores({17}), KeptFault) << "behind the table";
}

TEST_F(KeptRecordsByHand, WithoutAnEntryAreReadWithTheirConnection) {
  Values values;
  addPlainRecord(values, "record");
  values.set("record watches", std::uint64_t{5});
  values.set("record cleared", std::uint64_t{3});
  restores({0}, values.body());
  ASSERT_EQ(records_.size(), 1U);
  EXPECT_EQ(records_[0]->timesOnWatchList(), 5U);
  EXPECT_EQ(registry_->watchingPortsList().count(), 7U);
  values.set("record cleared", std::uint64_t{4});
  EXPECT_THROW(restores({0}, values.body()), KeptFault);
}

}  // namespace
}  // namespace sorvane::test
