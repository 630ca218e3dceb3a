#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/TimeSource.h"
#include "registry/ConnectionEnd.h"

namespace sorvane {
namespace {

class EndConnection : public testing::Test {
 protected:
  EndConnection() {
    setTimeSource([] { return 1000.0; });
  }

  std::shared_ptr<PortDescriptor> enters(const std::string& name, int count) {
    auto record = std::make_shared<PortDescriptor>();
    record->setPortName("not entered");
    for (int number = 0; number < count; ++number) {
      registry_.enterPort(name + std::to_string(number), record);
    }
    return record;
  }

  Registry registry_{{.leftBehind = 10000}};
};

TEST_F(EndConnection, TellsOnceHowManyPortsWereDroppedThatHadBeenLeftBehind) {
  const auto first = enters("first", 40);
  const auto second = enters("second", 40);
  EXPECT_EQ(endConnection(registry_, first.get()).droppedPorts, 0U);
  const std::uint64_t dropped = endConnection(registry_, second.get()).droppedPorts;
  EXPECT_GT(dropped, 0U);
  EXPECT_EQ(registry_.portCount(), 80 - dropped);
  EXPECT_EQ(endConnection(registry_, nullptr).droppedPorts, 0U);
}

TEST_F(EndConnection, WithoutARecordTellsTheWatchersAndNotesTheTime) {
  PortDescriptor watcher;
  registry_.watchingPortsList().append(watcher);
  watcher.setDirty(false);
  setTimeSource([] { return 2000.0; });
  const ConnectionEnd end = endConnection(registry_, nullptr);
  EXPECT_FALSE(end.removedHost.has_value());
  EXPECT_TRUE(watcher.isDirty());
  EXPECT_EQ(registry_.changeStamp().timestampFlag, 2000.0);
}

TEST_F(EndConnection, NotesTheTimeAlsoWhileAnotherThreadSetsTheWatchersDirty) {
  PortDescriptor record;
  setTimeSource([] { return 2000.0; });
  registry_.setDirtyLock().lock();
  static_cast<void>(endConnection(registry_, &record));
  registry_.setDirtyLock().unlock();
  EXPECT_EQ(registry_.changeStamp().timestampFlag, 2000.0);
}

TEST_F(EndConnection, TakesTheRecordOffTheWatchList) {
  PortDescriptor record;
  registry_.watchingPortsList().append(record);
  registry_.watchingPortsList().append(record);
  static_cast<void>(endConnection(registry_, &record));
  EXPECT_EQ(registry_.watchingPortsList().count(), 0U);
}

}  // namespace
}  // namespace sorvane
