#include "registry/CommandServer.h"

namespace sorvane::test {
namespace {

class DidPortsChange : public CommandTest {};
class AwaitPortChanges : public CommandTest {};
class WatchPortChanges : public CommandTest {};
class NeedsRefresh : public CommandTest {};
class ChangeTimestamp : public CommandTest {};
class SetWatchToDirty : public CommandTest {};

TEST_F(DidPortsChange, AnswersYesTheFirstTimeAndNoTheSecond) {
  Peer watcher(server_);
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
  EXPECT_EQ(server_.registry.watchingPortsList().count(), 1U);
}

TEST_F(DidPortsChange, AnswersYesAgainToOneThatWasClearedBeforeItRegistered) {
  Peer watcher(server_);
  watcher.record().setDirty(false);
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
}

TEST_F(DidPortsChange, TellsSeveralChangesOnce) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  server_.registry.setWatchToDirty();
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
}

TEST_F(DidPortsChange, TellsEachWatcherOfItsOwn) {
  Peer first(server_);
  Peer second(server_);
  (void)first.action("didPortsChange");
  (void)second.action("didPortsChange");
  server_.registry.setWatchToDirty();
  EXPECT_EQ(first.action("didPortsChange"), "YES");
  EXPECT_EQ(first.action("didPortsChange"), "NO");
  EXPECT_EQ(second.action("didPortsChange"), "YES");
}

TEST_F(DidPortsChange, ReadsTheResultAsTextWithItsNul) {
  Peer watcher(server_);
  EXPECT_EQ(watcher.sends({{"action", "DIDPORTSCHANGE"}})->data("result"),
            std::string_view("YES\0", 4));
  EXPECT_EQ(watcher.sends({{"action", "didPortsChange"}})->data("result"),
            std::string_view("NO\0", 3));
}

TEST_F(AwaitPortChanges, AnswersAtOnceWhatDidPortsChangeWouldAnswerWithYes) {
  Peer watcher(server_);
  EXPECT_EQ(watcher.action("awaitPortChanges"), "YES") << "the first time";
  EXPECT_EQ(watcher.action("didPortsChange"), "NO") << "the mark is cleared";
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.action("AwaitPortChanges"), "YES");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
  EXPECT_EQ(server_.registry.watchingPortsList().count(), 1U);
}

TEST_F(AwaitPortChanges, IsHeldUntilSomethingChangesAndThenToldOnce) {
  Peer watcher(server_);
  (void)watcher.action("awaitPortChanges");
  EXPECT_EQ(watcher.action("awaitPortChanges", "held"), "30");
  EXPECT_EQ(watcher.heldAnswer(), "held");
  server_.registry.setWatchToDirty();
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.heldAnswer(), "YES");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
}

TEST_F(AwaitPortChanges, AnswersTheLastTimeWhateverIsTheCase) {
  Peer watcher(server_);
  (void)watcher.action("awaitPortChanges");
  (void)watcher.action("awaitPortChanges");
  EXPECT_EQ(watcher.heldAnswer(true), "NO");
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.heldAnswer(true), "YES");
  EXPECT_EQ(watcher.heldAnswer(true), "NO") << "the mark is cleared";
}

TEST_F(AwaitPortChanges, IsHeldForTheSecondsOfTheTimeoutOrThirty) {
  const std::pair<std::string_view, std::string_view> times[] = {
      {"1", "1"},    {"300", "300"},       {"007", "7"},
      {"301", "30"}, {"-1", "30"},         {"+1", "30"},
      {"", "30"},    {" 5", "30"},         {"5 ", "30"},
      {"5.0", "30"}, {"0x5", "30"},        {"ten", "30"},
      {"1e2", "30"}, {"4294967297", "30"}, {"18446744073709551617", "30"},
  };
  Peer watcher(server_);
  (void)watcher.action("awaitPortChanges");
  for (const auto& [timeout, held] : times) {
    EXPECT_EQ(watcher.answer({{"action", "awaitPortChanges"}, {"timeout", timeout}}, "held"), held)
        << timeout;
  }
  const auto withBytes = [&](std::string_view bytes) {
    return watcher.answer(
        Message({{"action", "awaitPortChanges"}}).setData("timeout", bytes).owned(), "held");
  };
  EXPECT_EQ(withBytes("\xff"), "30");
  EXPECT_EQ(withBytes(""), "30");
  EXPECT_EQ(withBytes("9"), "9") << "without a NUL";
  EXPECT_EQ(withBytes(std::string_view("9\0x", 3)), "9") << "what follows the NUL is ignored";
}

TEST_F(AwaitPortChanges, IsNotHeldForNoTime) {
  Peer watcher(server_);
  const Message request({{"action", "awaitPortChanges"}, {"timeout", "0"}});
  EXPECT_EQ(watcher.answer(request), "YES");
  EXPECT_EQ(watcher.answer(request), "NO");
  EXPECT_EQ(watcher.answer({{"action", "awaitPortChanges"}, {"timeout", "000"}}), "NO");
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.answer(request), "YES");
}

TEST_F(AwaitPortChanges, MayBeAskedBesideTheOtherWaysToWatch) {
  Peer watcher(server_);
  (void)watcher.action("watchPortChanges");
  EXPECT_EQ(watcher.action("awaitPortChanges"), "YES");
  EXPECT_EQ(server_.registry.watchingPortsList().count(), 1U);
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  EXPECT_EQ(watcher.action("awaitPortChanges", "held"), "30");
}

TEST_F(WatchPortChanges, RegistersAndSetsTheFlag) {
  Peer watcher(server_);
  EXPECT_EQ(watcher.action("watchPortChanges"), "succeed");
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
  EXPECT_EQ(watcher.action("watchPortChanges"), "succeed");
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
}

TEST_F(WatchPortChanges, TwiceIsOnTheListTwiceAndToldOnceForAChange) {
  Peer watcher(server_);
  (void)watcher.action("watchPortChanges");
  (void)watcher.action("watchPortChanges");
  EXPECT_EQ(server_.registry.watchingPortsList().count(), 2U);
  EXPECT_EQ(watcher.record().timesOnWatchList(), 2U);
  (void)watcher.action("didPortsChange");
  EXPECT_EQ(server_.registry.watchingPortsList().count(), 2U);
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
  watcher.leaves();
  EXPECT_EQ(server_.registry.watchingPortsList().count(), 0U);
}

TEST_F(NeedsRefresh, MarksEveryWatcherAndMovesTheTimeWhateverForceSays) {
  const Message requests[] = {
      {{"action", "needsRefresh"}},
      {{"action", "needsRefresh"}, {"force", "NO"}},
      {{"action", "needsRefresh"}, {"force", "YES"}},
      Message({{"action", "needsRefresh"}}).setData("force", "\xff").owned(),
      Message({{"action", "needsRefresh"}}).setData("force", "").owned(),
  };
  Peer watcher(server_);
  Peer tool(server_);
  for (const Message& request : requests) {
    (void)watcher.action("didPortsChange");
    movedTime += 1.0;
    EXPECT_EQ(tool.answer(request), "success");
    EXPECT_EQ(watcher.action("didPortsChange"), "YES");
    EXPECT_EQ(watcher.action("changeTimestamp"), std::to_string(movedTime));
  }
  EXPECT_EQ(watcher.action("changeTimestamp", "force_refresh"), "1");
}

TEST_F(NeedsRefresh, ReadsForceInAnyLetterCase) {
  Peer tool(server_);
  int expected = 0;
  for (const char* force : {"YES", "yes", "Yes"}) {
    (void)tool.answer({{"action", "needsRefresh"}, {"force", force}});
    EXPECT_EQ(tool.action("changeTimestamp", "force_refresh"), std::to_string(++expected));
  }
  for (const char* force : {"NO", "YE", "YESS", "1", ""}) {
    (void)tool.answer({{"action", "needsRefresh"}, {"force", force}});
    EXPECT_EQ(tool.action("changeTimestamp", "force_refresh"), std::to_string(expected)) << force;
  }
}

TEST_F(NeedsRefresh, CountsToTenThousandAndBeginsAgainAtOne) {
  Peer tool(server_);
  const Message forced({{"action", "needsRefresh"}, {"force", "YES"}});
  for (int count = 1; count <= 9999; ++count) {
    (void)tool.sends(forced);
  }
  EXPECT_EQ(tool.action("changeTimestamp", "force_refresh"), "9999");
  (void)tool.sends(forced);
  EXPECT_EQ(tool.action("changeTimestamp", "force_refresh"), "10000");
  (void)tool.sends(forced);
  EXPECT_EQ(tool.action("changeTimestamp", "force_refresh"), "1");
  (void)tool.sends(forced);
  EXPECT_EQ(tool.action("changeTimestamp", "force_refresh"), "2");
}

TEST_F(ChangeTimestamp, HasOnlyTheTimeBeforeAForcedRefresh) {
  Peer tool(server_);
  EXPECT_EQ(keysOf(tool.sends({{"action", "changeTimestamp"}})), "result ");
  (void)tool.answer({{"action", "needsRefresh"}, {"force", "yes"}});
  const auto reply = tool.sends({{"action", "changeTimestamp"}});
  EXPECT_EQ(keysOf(reply), "result force_refresh ");
  EXPECT_EQ(reply->data("force_refresh"), std::string_view("1\0", 2));
}

TEST_F(ChangeTimestamp, BeginsWithTheTimeOfCreationAndHasSixDecimals) {
  movedTime = 812345678.123456;
  CommandServer fresh;
  movedTime += 100;
  EXPECT_EQ(Peer(fresh).action("changeTimestamp"), "812345678.123456");
}

TEST_F(ChangeTimestamp, IsWrittenInFullHoweverLargeItIs) {
  movedTime = 1e300;
  CommandServer fresh;
  EXPECT_EQ(Peer(fresh).action("changeTimestamp").size(), 301U + 7U);
  movedTime = -0.5;
  fresh.registry.stampTime();
  EXPECT_EQ(Peer(fresh).action("changeTimestamp"), "-0.500000");
}

TEST_F(ChangeTimestamp, ChangesNothing) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  movedTime += 5;
  EXPECT_EQ(watcher.action("changeTimestamp"), "1000.000000");
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
}

TEST_F(SetWatchToDirty, MarksNobodyWhileAMarkingIsUnderWay) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  movedTime += 1.0;
  server_.registry.setDirtyLock().lock();
  server_.registry.setWatchToDirty();
  Peer(server_).registers("db1");
  server_.registry.setDirtyLock().unlock();
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
  EXPECT_EQ(watcher.action("changeTimestamp"), "1000.000000");
  EXPECT_EQ(watcher.finds("db1"), "5001") << "the change itself was made";
  server_.registry.setWatchToDirty();
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
}

TEST_F(SetWatchToDirty, ReleasesItsLock) {
  server_.registry.setWatchToDirty();
  EXPECT_TRUE(server_.registry.setDirtyLock().tryLock());
  server_.registry.setDirtyLock().unlock();
}

TEST_F(SetWatchToDirty, TheMarkingItselfTakesNoSetDirtyLock) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  server_.registry.setDirtyLock().lock();
  server_.registry.setWatchersDirty();
  server_.registry.setDirtyLock().unlock();
  EXPECT_EQ(watcher.action("didPortsChange"), "YES");
}

}  // namespace
}  // namespace sorvane::test
