#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "platform/TimeSource.h"
#include "registry/PortDescriptor.h"
#include "registry/WatchList.h"

namespace sorvane {
namespace {

double now = 0.0;

class PortDescriptorTest : public testing::Test {
 protected:
  PortDescriptorTest() {
    now = 500.0;
    setTimeSource([] { return now; });
  }

  PortDescriptor record_;
  WatchList list_;
};

struct Field {
  const char* name;
  std::optional<std::string_view> (PortDescriptor::*get)() const;
  void (PortDescriptor::*set)(std::optional<std::string_view>);
};

const Field kFields[] = {
    {"portKey", &PortDescriptor::portKey, &PortDescriptor::setPortKey},
    {"portName", &PortDescriptor::portName, &PortDescriptor::setPortName},
    {"portHostAddress", &PortDescriptor::portHostAddress, &PortDescriptor::setPortHostAddress},
    {"portHost", &PortDescriptor::portHost, &PortDescriptor::setPortHost},
    {"portNumber", &PortDescriptor::portNumber, &PortDescriptor::setPortNumber},
    {"portType", &PortDescriptor::portType, &PortDescriptor::setPortType},
    {"portStatus", &PortDescriptor::portStatus, &PortDescriptor::setPortStatus},
};

TEST_F(PortDescriptorTest, IsEmptyAndDirtyWhenFresh) {
  for (const Field& field : kFields) {
    EXPECT_FALSE((record_.*field.get)().has_value()) << field.name;
  }
  EXPECT_FALSE(record_.alertStatus().has_value());
  EXPECT_EQ(record_.alertStatusTimestamp(), 0.0);
  EXPECT_EQ(record_.info(), nullptr);
  EXPECT_TRUE(record_.isDirty());
}

TEST_F(PortDescriptorTest, EachSetterSetsItsOwnFieldAlone) {
  for (const Field& field : kFields) {
    PortDescriptor record;
    (record.*field.set)("a text");
    for (const Field& other : kFields) {
      const bool same = &other == &field;
      EXPECT_EQ((record.*other.get)(),
                same ? std::optional<std::string_view>("a text") : std::nullopt)
          << field.name << " " << other.name;
    }
    (record.*field.set)(std::nullopt);
    EXPECT_FALSE((record.*field.get)().has_value()) << field.name;
  }
}

TEST_F(PortDescriptorTest, TakesAWholeRegistrationAtOnce) {
  record_.setPortStatus("stopping");
  record_.setRegistration({.portKey = "db1@h",
                           .portName = "db1",
                           .portHostAddress = std::nullopt,
                           .portHost = "h",
                           .portNumber = "7",
                           .portType = ""});
  EXPECT_EQ(record_.portKey(), "db1@h");
  EXPECT_EQ(record_.portName(), "db1");
  EXPECT_FALSE(record_.portHostAddress().has_value());
  EXPECT_EQ(record_.portHost(), "h");
  EXPECT_EQ(record_.portNumber(), "7");
  EXPECT_EQ(record_.portType(), "");
  EXPECT_EQ(record_.portStatus(), "stopping");
  PortDescriptor other;
  other.setRegistration(record_.registration());
  EXPECT_EQ(other.portKey(), "db1@h");
  EXPECT_EQ(other.portType(), "");
}

TEST_F(PortDescriptorTest, KeepsAnAlertForExactlyAnHour) {
  record_.setAlertStatus("disk full");
  EXPECT_EQ(record_.alertStatusTimestamp(), 500.0);
  now = 500.0 + 3600.0;
  EXPECT_EQ(record_.alertStatus(), "disk full");
  now = 500.0 + 3600.001;
  EXPECT_FALSE(record_.alertStatus().has_value());
}

TEST_F(PortDescriptorTest, AnExpiredAlertStaysGoneWhenTheClockGoesBack) {
  record_.setAlertStatus("disk full");
  now += 3601.0;
  EXPECT_FALSE(record_.alertStatus().has_value());
  now -= 3601.0;
  EXPECT_FALSE(record_.alertStatus().has_value());
  record_.setAlertStatus("again");
  EXPECT_EQ(record_.alertStatus(), "again");
}

TEST_F(PortDescriptorTest, SettingTheSameAlertBeginsItsHourAnew) {
  record_.setAlertStatus("disk full");
  now += 3000.0;
  record_.setAlertStatus(record_.alertStatus());
  now += 3000.0;
  EXPECT_EQ(record_.alertStatus(), "disk full");
}

TEST_F(PortDescriptorTest, AStateHasNoLifetime) {
  record_.setPortStatus("stopping");
  now += 1e9;
  EXPECT_EQ(record_.portStatus(), "stopping");
}

TEST_F(PortDescriptorTest, AnExpiringAlertLeavesTheState) {
  record_.setPortStatus("stopping");
  record_.setAlertStatus("disk full");
  now += 3601.0;
  EXPECT_FALSE(record_.alertStatus().has_value());
  EXPECT_EQ(record_.portStatus(), "stopping");
}

TEST_F(PortDescriptorTest, CreateInfoTwiceKeepsTheFirstDictionary) {
  record_.createInfo();
  auto* const first = record_.info();
  (*first)["key"] = "value";
  record_.createInfo();
  EXPECT_EQ(record_.info(), first);
  EXPECT_EQ(record_.info()->at("key"), "value");
}

// Counts the bytes of what it allocates.
template <typename T>
struct Counting {
  using value_type = T;
  explicit Counting(std::size_t* counted) : bytes(counted) {}
  template <typename U>
  explicit Counting(const Counting<U>& other) : bytes(other.bytes) {}
  T* allocate(std::size_t count) {
    *bytes += count * sizeof(T);
    return std::allocator<T>().allocate(count);
  }
  void deallocate(T* at, std::size_t count) { std::allocator<T>().deallocate(at, count); }
  friend bool operator==(const Counting&, const Counting&) = default;

  std::size_t* bytes;
};

TEST_F(PortDescriptorTest, CostsItsTextsItselfAndAnInfoDictionary) {
  std::size_t withCounter = 0;
  const auto shared = std::allocate_shared<PortDescriptor>(Counting<PortDescriptor>(&withCounter));
  EXPECT_EQ(shared->registrationBytes(), 0U) << "it is not registered";
  shared->setPortName("db1");
  const std::size_t ofItself = heapBytes(withCounter - sizeof(void*));
  const std::size_t words = 6 * sizeof(std::uint32_t);
  EXPECT_EQ(shared->registrationBytes(), heapBytes(words + textEntryBytes("portName", 3)) +
                                             ofItself + heapBytes(sizeof(PortDescriptor::Info)));
  EXPECT_EQ(PortDescriptor::Prepared(shared->registration()).bytes(), shared->registrationBytes());
  EXPECT_EQ(PortDescriptor::Prepared({}).bytes(), 0U);
}

TEST_F(PortDescriptorTest, TellsWhatStateAndAlertCostAndWouldCost) {
  EXPECT_EQ(record_.stateBytes(), 0U);
  const std::string longer(100, 's');
  for (const std::string& status : {std::string("stopping"), longer}) {
    for (const std::string& alert : {std::string("full"), longer + longer}) {
      PortDescriptor record;
      const std::size_t withStatus = record.stateBytesWithStatus(status);
      record.setPortStatus(status);
      EXPECT_EQ(record.stateBytes(), withStatus);
      EXPECT_EQ(withStatus, heapBytes(3 * sizeof(std::uint32_t) + status.size()));
      const std::size_t withBoth = record.stateBytesWithAlert(alert);
      record.setAlertStatus(alert);
      EXPECT_EQ(record.stateBytes(), withBoth);
      EXPECT_EQ(withBoth, heapBytes(3 * sizeof(std::uint32_t) + status.size() + alert.size() +
                                    sizeof(double)));
    }
  }
}

TEST_F(PortDescriptorTest, TheWatchFlagReadsAsItWasSet) {
  record_.setDirty(false);
  EXPECT_FALSE(record_.isDirty());
  record_.setDirty(true);
  EXPECT_TRUE(record_.isDirty());
  EXPECT_TRUE(record_.takeDirty());
  EXPECT_FALSE(record_.takeDirty());
}

TEST_F(PortDescriptorTest, InvalidateDoesNothing) {
  record_.setPortName("db1");
  record_.invalidate();
  EXPECT_EQ(record_.portName(), "db1");
}

TEST_F(PortDescriptorTest, MarkingReachesOnlyRecordsThatAreOnTheList) {
  PortDescriptor outside;
  outside.setDirty(false);
  list_.append(record_);
  record_.setDirty(false);
  list_.setAllDirty();
  EXPECT_TRUE(record_.isDirty());
  EXPECT_FALSE(outside.isDirty());
}

TEST_F(PortDescriptorTest, AMarkingBeforeARecordCameDoesNotReachIt) {
  list_.setAllDirty();
  list_.append(record_);
  record_.setDirty(false);
  EXPECT_FALSE(record_.isDirty());
}

TEST_F(PortDescriptorTest, ARecordKeepsItsFlagWhenItLeavesTheList) {
  list_.append(record_);
  record_.setDirty(false);
  list_.setAllDirty();
  list_.remove(record_);
  EXPECT_TRUE(record_.isDirty());
  record_.setDirty(false);
  list_.setAllDirty();
  EXPECT_FALSE(record_.isDirty());
}

TEST_F(PortDescriptorTest, ARecordThatWasToldEverythingKeepsThatWhenItLeavesTheList) {
  list_.append(record_);
  list_.setAllDirty();
  record_.setDirty(false);
  list_.remove(record_);
  EXPECT_FALSE(record_.isDirty());
}

TEST_F(PortDescriptorTest, JoiningAListThatWasSetDirtyBeforeTellsOfNoChange) {
  const std::atomic<std::uint64_t> timesSetDirty = 7;
  record_.setDirty(false);
  EXPECT_TRUE(record_.joinWatchList(timesSetDirty));
  EXPECT_FALSE(record_.isDirty());
  EXPECT_FALSE(record_.takeDirty());
}

TEST_F(PortDescriptorTest, SeveralMarkingsAreToldOnce) {
  list_.append(record_);
  EXPECT_TRUE(record_.takeDirty());
  list_.setAllDirty();
  list_.setAllDirty();
  EXPECT_TRUE(record_.takeDirty());
  EXPECT_FALSE(record_.takeDirty());
}

TEST_F(PortDescriptorTest, OneRemovalTakesOutEveryOccurrence) {
  PortDescriptor other;
  list_.append(other);
  list_.append(record_);
  list_.append(record_);
  EXPECT_EQ(list_.count(), 3U);
  list_.remove(record_);
  EXPECT_FALSE(WatchList::contains(record_));
  EXPECT_TRUE(WatchList::contains(other));
  EXPECT_EQ(list_.count(), 1U);
  list_.remove(record_);
  EXPECT_EQ(list_.count(), 1U);
}

TEST_F(PortDescriptorTest, AppendingAgainSetsTheFlagAgain) {
  list_.append(record_);
  record_.setDirty(false);
  list_.append(record_);
  EXPECT_TRUE(record_.isDirty());
  EXPECT_EQ(record_.timesOnWatchList(), 2U);
}

}  // namespace
}  // namespace sorvane
