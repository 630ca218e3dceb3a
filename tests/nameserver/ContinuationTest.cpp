// Going on with what was kept: what a description must not have, although it can be read.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <string>

#include "nameserver/NameServer.h"
#include "platform/HandOver.h"
#include "platform/KeptFile.h"
#include "platform/VNFileLock.h"
#include "support/ForkedPart.h"

namespace sorvane::test {
namespace {

class Continuation : public NameServerTest {
 protected:
  /// Why a name server does not go on with what `write` has written; empty if it raises nothing.
  /// Call it in a process of its own.
  template <typename Write>
  std::string faultOf(Write&& write) {
    KeptFile file;
    write(file.writer());
    EXPECT_FALSE(file.finish());
    NameServer server;
    try {
      server.continueConnection(false, std::make_unique<MappedFile>(file.descriptor()), "");
    } catch (const KeptFault& fault) {
      return fault.what();
    }
    return "";
  }

  /// What comes before the registry.
  void writeBegin(KeptWriter& writer, int lock) const {
    writer.text("1.0.0");
    writer.descriptor(lock);
    Continuity().keep(writer);
    PreferenceStore(settings_.userPreferenceFile).keep(writer);
  }
};

TEST_F(Continuation, HasNoEntryWhoseConnectionIsNotThere) {
  inOwnProcess([this] {
    const auto lock = VNFileLock::fileLockWithSorvaneProcessName("sorvinfo");
    ASSERT_TRUE(lock->obtainLock());
    const Descriptor listener = openSocket(AF_INET, SOCK_STREAM);
    ASSERT_EQ(listen(listener.number(), 1), 0);
    Registry registry;
    auto record = std::make_shared<PortDescriptor>();
    record->setRegistration({"db1@host", "db1", "127.0.0.1", "host", "4711", "sql"});
    registry.enterPort(std::string("db1"), record);
    EXPECT_THAT(faultOf([&](KeptWriter& writer) {
                  writeBegin(writer, lock->descriptor());
                  KeptRecords records;
                  registry.keep(writer, records);
                  writer.descriptor(listener.number());
                  writer.number(0);
                }),
                testing::HasSubstr("an entry whose connection is not there"));
  });
}

TEST_F(Continuation, HasALockThatIsOne) {
  inOwnProcess([this] {
    const Descriptor socket = openSocket(AF_INET, SOCK_STREAM);
    EXPECT_THAT(faultOf([&](KeptWriter& writer) { writeBegin(writer, socket.number()); }),
                testing::HasSubstr("a process lock that is none"));
    EXPECT_NE(fcntl(socket.number(), F_GETFD), -1) << "nothing was closed";
  });
}

TEST_F(Continuation, HasALockThatNobodyElseHolds) {
  inOwnProcess([this] {
    const auto other = VNFileLock::fileLockWithSorvaneProcessName("sorvinfo");
    ASSERT_TRUE(other->obtainLock());
    const Descriptor same(
        open((settings_.lockDirectory + "/sorvinfo.lock").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_THAT(faultOf([&](KeptWriter& writer) { writeBegin(writer, same.number()); }),
                testing::HasSubstr("a process lock that is none"));
  });
}

}  // namespace
}  // namespace sorvane::test
