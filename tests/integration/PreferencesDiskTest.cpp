// Preferences on disks that are full, read-only or slow, with the whole name server running.
#include <unistd.h>

#include <cstdlib>

#include "integration/Preferences.h"
#include "support/OwnNamespaces.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

TEST(PreferencesOnAFullDisk, StayWholeAndAreStoredOnceThereIsSpace) {
  inOwnMounts([] {
    Daemon server;
    const fs::path folder = server.tree() / "Users";
    fs::create_directories(folder);
    mountSmallDisk(folder, 64);
    server.start();
    PreferenceClient client(server);
    client.sets("anna", {{"databases", "db1"}});
    const std::string before = readFile(preferenceFile(server));

    fillDisk(folder);
    client.sets("bert", {{"databases", std::string(9000, 'x')}});
    EXPECT_EQ(readFile(preferenceFile(server)), before);
    EXPECT_EQ(filesBesidePreferences(server), 1) << "the filler";
    EXPECT_EQ(client.gets("bert"), (Texts{{"databases", std::string(9000, 'x')}}));
    EXPECT_TRUE(server.registers("db1"));

    fs::remove(folder / "filler");
    client.sets("carl", {});
    EXPECT_EQ(preferencesOnDisk(server).dictionary()->size(), 3U);
    EXPECT_EQ(filesBesidePreferences(server), 0);
  });
}

TEST(PreferencesInAReadOnlyFolder, StayWholeAndAreStoredOnceItIsWritable) {
  inOwnMounts([] {
    Daemon server;
    const fs::path folder = server.tree() / "Users";
    fs::create_directories(folder);
    mountSmallDisk(folder, 64);
    setReadOnly(folder, true);
    server.start();
    PreferenceClient client(server);
    client.sets("anna", {});
    EXPECT_FALSE(fs::exists(preferenceFile(server)));

    setReadOnly(folder, false);
    client.sets("bert", {});
    const std::string before = readFile(preferenceFile(server));
    setReadOnly(folder, true);
    client.sets("carl", {});
    EXPECT_EQ(readFile(preferenceFile(server)), before);
    EXPECT_EQ(client.gets("carl"), kEmptyDictionary);
    EXPECT_TRUE(server.registers("db1"));
  });
}

/// A name server whose disk takes as long to flush as the test likes: see SlowDisk.cpp.
class PreferencesOnASlowDisk : public ::testing::Test {
 protected:
  PreferencesOnASlowDisk() {
    server_.launch({"-noexit"}, [gate = gate_.string()] {
      ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libslow_disk.so", 1);
      ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
      ::setenv("SLOW_DISK_GATE", gate.c_str(), 1);
    });
    EXPECT_TRUE(server_.answers());
  }

  void stopDisk() { writeFile(gate_, ""); }
  void releaseDisk() { fs::remove(gate_); }
  [[nodiscard]] bool diskIsWaitedFor() const {
    return comesToHold(gate_.string() + ".waiting", "waiting");
  }

  TemporaryFolder folder_;
  const fs::path gate_ = folder_ / "gate";
  Daemon server_;
};

TEST_F(PreferencesOnASlowDisk, DelayOtherPreferencesButNoPing) {
  constexpr int kWaiting = 50;
  PreferenceClient writer(server_);
  writer.sets("anna", {{"databases", "db1"}});
  auto leaving = std::make_unique<PreferenceClient>(server_);
  EXPECT_EQ(leaving->gets("anna"), (Texts{{"databases", "db1"}}));

  stopDisk();
  const Message change = PreferenceClient::setting("anna", {{"databases", "db2"}});
  ASSERT_TRUE(writer.connection().sendRequest(change));
  ASSERT_TRUE(diskIsWaitedFor());
  std::vector<std::unique_ptr<PreferenceClient>> readers;
  for (int i = 0; i < kWaiting; ++i) {
    readers.push_back(std::make_unique<PreferenceClient>(server_));
    ASSERT_TRUE(readers.back()->connection().sendRequest(
        request("get_userpreferences", {{"key", "anna"}})));
  }
  leaving.reset();  // the end of a connection that used the info server waits for its lock, too

  // Pings are answered while the disk is still waited for, on old connections and on new ones.
  PreferenceClient pinging(server_);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(pinging.asks(Message{{"ping", ""}}), kEmptyDictionary);
    PreferenceClient another(server_);
    EXPECT_EQ(another.asks(Message{{"ping", ""}}), kEmptyDictionary);
  }
  EXPECT_EQ(preferencesOnDisk(server_), PropertyList::parse("{ anna = { databases = db1; }; }"))
      << "the disk was not waited for all the time";

  releaseDisk();
  EXPECT_EQ(textsOf(writer.connection().receiveReply()), kSucceed);
  for (const auto& reader : readers) {
    EXPECT_EQ(textsOf(reader->connection().receiveReply()), (Texts{{"databases", "db2"}}))
        << "answered before the change was on the disk, or not at all";
  }
  EXPECT_EQ(preferencesOnDisk(server_), PropertyList::parse("{ anna = { databases = db2; }; }"));
}

}  // namespace
}  // namespace sorvane::test
