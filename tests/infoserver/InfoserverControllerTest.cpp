// The info server as a message handler: its instance, its lock, its guard.
#include <atomic>
#include <mutex>
#include <thread>

#include "infoserver/InfoServer.h"
#include "infoserver/InfoserverController.h"
#include "platform/Console.h"
#include "platform/Settings.h"
#include "registry/PortDescriptor.h"
#include "support/ConsoleLines.h"
#include "support/WatchedThread.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

class InfoServer : public InfoServerTest {
 protected:
  InfoServer() { start(); }

  /// A request that raises: neither the entry nor a fallback is there.
  const Message raising_ = request("get_userpreferences", {{"key", "nobody"}});
  const ConsoleLines console_;
};

TEST_F(InfoServer, IsTheGlobalObjectWhileItLives) {
  EXPECT_EQ(InfoserverController::globalObject(), server_.get());
  server_.reset();
  EXPECT_EQ(InfoserverController::globalObject(), nullptr);
}

TEST_F(InfoServer, MadeLaterIsTheGlobalObjectEvenAfterTheEarlierOnesEnd) {
  const auto later = std::make_unique<InfoserverController>((folder_ / "other").string());
  EXPECT_EQ(InfoserverController::globalObject(), later.get());
  server_.reset();
  EXPECT_EQ(InfoserverController::globalObject(), later.get());
}

TEST_F(InfoServer, KeepsThePreferencesWhereTheSettingsSay) {
  server_.reset();
  Settings settings;
  settings.userPreferenceFile = (folder_ / "of the settings").string();
  Settings::replaceForTest(settings);
  server_ = std::make_unique<InfoserverController>();
  sets("anna", {{"databases", "db1"}});
  EXPECT_EQ(PropertyList::parse(readFile(folder_ / "of the settings")).dictionary()->count("anna"),
            1U);
}

TEST_F(InfoServer, AnswersACommandThatRaisesWithAnEmptyDictionaryAndGoesOn) {
  EXPECT_EQ(asks(raising_), kEmptyDictionary);
  EXPECT_TRUE(server_->commLock().tryLock()) << "the lock is released";
  server_->commLock().unlock();
  sets("anna", {});
  EXPECT_EQ(console_.all(), std::vector<std::string>{});
}

TEST_F(InfoServer, TellsTheConsoleOfACommandThatRaisesWhenVerbose) {
  server_->runConnection(true);
  EXPECT_EQ(asks(raising_), kEmptyDictionary);
  EXPECT_EQ(asks("get_userpreferences", {}), kNil);
  ASSERT_EQ(console_.all().size(), 1U) << "nothing is told of a missing key";
  EXPECT_NE(console_.all()[0].find("An exception was detected."), std::string::npos);

  server_->runConnection(false);
  EXPECT_EQ(asks(raising_), kEmptyDictionary);
  EXPECT_EQ(console_.all().size(), 1U);
}

TEST_F(InfoServer, TellsTheConsoleAFewTimesOfManyCommandsThatRaise) {
  server_->runConnection(true);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(asks(raising_), kEmptyDictionary);
  }
  EXPECT_EQ(console_.all().size(), static_cast<std::size_t>(ConsoleRateLimit::kBurst));
}

TEST_F(InfoServer, TellsTheConsoleOfAFailedWrite) {
  fs::remove_all(file_.parent_path());
  writeFile(file_.parent_path(), "a file where the folder should be");
  sets("anna", {});
  ASSERT_EQ(console_.all().size(), 1U);
  EXPECT_NE(console_.all()[0].find("Not a directory"), std::string::npos) << console_.all()[0];
  for (int i = 0; i < 100; ++i) {
    sets("anna", {});
  }
  EXPECT_EQ(console_.all().size(), static_cast<std::size_t>(ConsoleRateLimit::kBurst));
}

TEST_F(InfoServer, TellsTheConsoleOfAFailedWriteAtItsStart) {
  fs::remove_all(file_.parent_path());
  writeFile(file_.parent_path(), "a file where the folder should be");
  start();
  EXPECT_EQ(console_.count("The preferences could not be written: "), 1);
}

TEST_F(InfoServer, DeliveredWithTheLockHeldRaisesWhereTheGuardWouldAnswer) {
  const std::lock_guard hold(server_->commLock());
  ReplyBuffer output;
  client_.setReplyBuffer(&output);
  EXPECT_THROW((void)server_->deliverLockedCommunication(raising_, client_), NSException);
  EXPECT_EQ(server_->deliverLockedCommunication(request("get_userpreferences", {}), client_),
            Reply::none());
  EXPECT_TRUE(output.empty());
}

TEST_F(InfoServer, GivesTheSendersRecordItsInfoDictionaryWhateverTheRequest) {
  const auto record = std::make_shared<PortDescriptor>();
  client_.setContextObject(record);
  EXPECT_EQ(record->info(), nullptr);
  EXPECT_EQ(asks(Message{}), kEmptyDictionary);
  const auto* const info = record->info();
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(asks("get_userpreferences", {}), kNil);
  EXPECT_EQ(asks(raising_), kEmptyDictionary);
  EXPECT_EQ(record->info(), info) << "the first one is kept";
}

TEST_F(InfoServer, AnswersASenderWithoutARecord) {
  EXPECT_EQ(client_.context<PortDescriptor>(), nullptr);
  sets("anna", {{"databases", "db1"}});
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
  server_->endCommunication(client_);
}

TEST_F(InfoServer, ChangesNothingWhenAConnectionStartsOrEnds) {
  sets("anna", {{"databases", "db1"}});
  const std::string before = readFile(file_);
  client_.setContextObject(std::make_shared<PortDescriptor>());
  server_->startCommunication(client_);
  server_->ping();
  server_->cleanupAfterMessage();
  server_->endCommunication(client_);
  EXPECT_EQ(readFile(file_), before);
  EXPECT_EQ(gets("anna"), (Texts{{"databases", "db1"}}));
}

TEST_F(InfoServer, NeverAsksToReconnect) {
  EXPECT_FALSE(server_->reconnect());
  EXPECT_FALSE(server_->lazyreconnect());
}

TEST_F(InfoServer, HandlesRequestsAndEndsOfConnectionsOneAtATime) {
  std::unique_lock hold(server_->commLock());
  WatchedThread delivering([&] {
    InProcessConnection other;
    (void)deliverInProcess(*server_, Message{}, other);
  });
  WatchedThread ending([&] {
    InProcessConnection other;
    server_->endCommunication(other);
  });
  EXPECT_TRUE(delivering.comesToAWait());
  EXPECT_TRUE(ending.comesToAWait());
  hold.unlock();
}

TEST_F(InfoServer, LosesNothingOfWhatManyConnectionsStoreAtTheSameTime) {
  constexpr int kClients = 4;
  constexpr int kRounds = 25;
  std::vector<std::thread> clients;
  for (int i = 0; i < kClients; ++i) {
    clients.emplace_back([&, i] {
      InProcessConnection connection;
      connection.setContextObject(std::make_shared<PortDescriptor>());
      for (int round = 0; round < kRounds; ++round) {
        const std::string entry = std::to_string(i) + "-" + std::to_string(round);
        const Texts settings = {{"key", entry}, {"databases", entry}};
        EXPECT_EQ(textsOf(deliverInProcess(*server_, request("set_userpreferences", settings),
                                           connection)),
                  kSucceed);
        EXPECT_EQ(textsOf(deliverInProcess(
                      *server_, request("get_userpreferences", {{"key", entry}}), connection)),
                  (Texts{{"databases", entry}}));
        server_->runConnection(round % 2 == 0);
      }
      server_->endCommunication(connection);
    });
  }
  for (std::thread& client : clients) {
    client.join();
  }
  EXPECT_EQ(onDisk().dictionary()->size(), static_cast<std::size_t>(kClients * kRounds));
  EXPECT_EQ(filesBesideTheFile(), 0);
}

}  // namespace
}  // namespace sorvane::test
