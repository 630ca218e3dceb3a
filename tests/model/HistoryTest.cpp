// Tests the search of History.h itself, with histories that are possible and histories that are
// not.
#include <gtest/gtest.h>

#include "model/History.h"
#include "support/WireBytes.h"

namespace sorvane::model {
namespace {

Entries entriesOf(const Texts& texts) {
  Entries entries;
  for (const auto& [key, text] : texts) {
    entries.push_back({key, text + '\0', text});
  }
  return entries;
}

/// A story that is written down by hand. A second of it lasts from one number to the next.
class Story {
 public:
  /// A request that is sent at a time and gets a reply at another. No texts: no dictionary.
  Story& asks(int connection, const Texts& request, double sent, double replied,
              const std::optional<Texts>& reply) {
    Operation operation{.request = entriesOf(request),
                        .sent = {sent, sent},
                        .replied = {replied, replied},
                        .kind = reply ? 1 : 0,
                        .body = reply ? bodyOf(entriesOf(*reply)) : ""};
    strandOf(connection).operations.push_back(operation);
    return *this;
  }
  Story& isCutAsking(int connection, const Texts& request, double sent) {
    strandOf(connection)
        .operations.push_back({.request = entriesOf(request), .sent = {sent, sent}});
    return closes(connection, sent);
  }
  Story& closes(int connection, double time) {
    strandOf(connection).closed = Moment{time, time};
    return *this;
  }

  Story& registers(int connection, const std::string& number, double sent, double replied) {
    const Texts request = registration(number);
    return asks(connection, request, sent, replied, request);
  }
  Story& finds(int connection, const std::string& number, double sent, double replied) {
    return asks(connection, {{"findPort", "db1"}, {"portHost", "here"}}, sent, replied,
                number == "none" ? Texts{{"notFound", "notFound"}}
                                 : Texts{{"portNumber", number},
                                         {"portName", "db1"},
                                         {"portHostAddress", "here"},
                                         {"portHost", "hostA"},
                                         {"portType", "db"}});
  }
  Story& getsNumber(int connection, const std::string& number, double sent, double replied) {
    return asks(connection,
                {{"newPort", ""}, {"portName", "db2"}, {"portHost", "hostA"}, {"portType", "db"}},
                sent, replied, Texts{{"portNumber", number}});
  }
  Story& hears(int connection, const std::string& answer, double sent, double replied) {
    return asks(connection, {{"action", "didPortsChange"}}, sent, replied,
                Texts{{"result", answer}});
  }
  Story& isTold(int connection, const std::string& time, double sent, double replied) {
    return asks(connection, {{"action", "changeTimestamp"}}, sent, replied,
                Texts{{"result", time}});
  }
  [[nodiscard]] static Texts registration(const std::string& number) {
    return {{"reconnectPort", "db1"},
            {"portNumber", number},
            {"portHost", "hostA"},
            {"portType", "db"}};
  }

  [[nodiscard]] bool canBe() const {
    const std::vector<Situation> fresh = {
        {.registry = RegistryModel({.name = "testhost", .basePort = 5000}, 0.0)}};
    return !explained(fresh, history_).after.empty();
  }

 private:
  Strand& strandOf(int connection) {
    for (Strand& strand : history_) {
      if (strand.connection == connection) {
        return strand;
      }
    }
    history_.push_back({.connection = connection});
    return history_.back();
  }

  History history_;
};

TEST(History, HasLookupsThatFindWhatIsThere) {
  EXPECT_TRUE(Story().registers(1, "4000", 0, 1).finds(2, "4000", 2, 3).canBe());
  EXPECT_FALSE(Story().registers(1, "4000", 0, 1).finds(2, "none", 2, 3).canBe());
  EXPECT_FALSE(Story().registers(1, "4000", 2, 3).finds(2, "4000", 0, 1).canBe());
}

TEST(History, HasLookupsThatFindTheFormerPortOnlyWhileTheLatterIsRegistered) {
  const Story story = Story().registers(1, "4000", 0, 1).registers(1, "4001", 2, 4);
  EXPECT_TRUE(Story(story).finds(2, "4000", 3, 5).canBe());
  EXPECT_TRUE(Story(story).finds(2, "4001", 3, 5).canBe());
  EXPECT_TRUE(Story(story).finds(2, "4001", 5, 6).canBe());
  EXPECT_FALSE(Story(story).finds(2, "4000", 5, 6).canBe());
  EXPECT_FALSE(Story(story).finds(2, "4001", 3, 5).finds(2, "4000", 3, 5).canBe());
  EXPECT_FALSE(Story(story).finds(2, "4001", 2.5, 3).finds(3, "4000", 3.5, 5).canBe());
}

TEST(History, HasChangesThatTakeEffectLateThoughTheyWouldChangeNothingEarly) {
  const Texts alert = {{"action", "setAlertState"}, {"databaseName", "db1"}, {"state", "full"}};
  const Texts accept = {{"acceptPort", ""}};
  const Texts lists = {{"action", "databaseStates"}};
  const Texts success = {{"result", "success"}};
  const Texts full = {{"result", "db1:running"}, {"alerts", "db1:full"}};
  EXPECT_TRUE(Story()
                  .asks(3, alert, 0, 10, success)
                  .asks(3, alert, 0, 10, success)
                  .registers(1, "4000", 1, 2)
                  .registers(2, "4001", 3, 4)
                  .asks(2, lists, 11, 12, full)
                  .asks(1, accept, 13, 14, accept)
                  .asks(1, lists, 15, 16, full)
                  .canBe())
      << "each connection has had the name when one of the alerts was set";
}

TEST(History, HasNoNumberThatIsGivenTwice) {
  EXPECT_TRUE(Story().getsNumber(1, "5001", 0, 2).getsNumber(2, "5002", 0, 2).canBe());
  EXPECT_TRUE(Story().getsNumber(1, "5002", 0, 2).getsNumber(2, "5001", 0, 2).canBe());
  EXPECT_FALSE(Story().getsNumber(1, "5001", 0, 2).getsNumber(2, "5001", 0, 2).canBe());
  EXPECT_FALSE(Story().getsNumber(1, "5002", 0, 1).getsNumber(2, "5001", 2, 3).canBe());
}

TEST(History, HasClosedConnectionsWhosePortsGoAtSomeLaterTime) {
  const Story story = Story().registers(1, "4000", 0, 1).closes(1, 3);
  EXPECT_TRUE(Story(story).finds(2, "4000", 4, 5).canBe());
  EXPECT_TRUE(Story(story).finds(2, "none", 4, 5).canBe());
  EXPECT_TRUE(Story(story).finds(2, "4000", 4, 5).finds(2, "none", 6, 7).canBe());
  EXPECT_FALSE(Story(story).finds(2, "none", 4, 5).finds(2, "4000", 6, 7).canBe());
  EXPECT_FALSE(Story(story).finds(2, "none", 1.5, 2).canBe()) << "not before it closes";
}

TEST(History, HasConnectionsThatAreCutBeforeOrAfterTheirLastRequests) {
  const Story story = Story().isCutAsking(1, Story::registration("4000"), 1);
  EXPECT_TRUE(Story(story).finds(2, "none", 2, 3).canBe());
  EXPECT_TRUE(Story(story).finds(2, "4000", 2, 3).finds(2, "none", 4, 5).canBe());
  EXPECT_FALSE(Story(story).finds(2, "4000", 0, 0.5).canBe());
  EXPECT_FALSE(Story(story)
                   .finds(2, "none", 2, 3)
                   .finds(2, "4000", 4, 5)
                   .finds(2, "none", 6, 7)
                   .finds(2, "4000", 8, 9)
                   .canBe());
}

TEST(History, HasWatchersThatHearOfEachChange) {
  const Story watching = Story().hears(2, "YES", 0, 1).hears(2, "NO", 1, 2);
  EXPECT_TRUE(Story(watching).registers(1, "4000", 3, 4).hears(2, "YES", 5, 6).canBe());
  EXPECT_FALSE(Story(watching).registers(1, "4000", 3, 4).hears(2, "NO", 5, 6).canBe());
  EXPECT_FALSE(Story(watching).hears(2, "YES", 5, 6).canBe());
  EXPECT_FALSE(Story(watching)
                   .registers(1, "4000", 3, 4)
                   .hears(2, "YES", 5, 6)
                   .hears(2, "YES", 7, 8)
                   .canBe())
      << "one change, told once";
}

TEST(History, HasWatchersThatHearLaterOnlyWhileAConnectionEnds) {
  const Story story = Story()
                          .hears(2, "YES", 0, 1)
                          .finds(3, "none", 0, 1)
                          .closes(3, 2)
                          .hears(2, "YES", 3, 4)
                          .registers(1, "4000", 5, 6);
  EXPECT_TRUE(Story(story).hears(2, "NO", 7, 8).hears(2, "YES", 9, 10).canBe());
  EXPECT_FALSE(
      Story(story).hears(2, "NO", 7, 8).hears(2, "YES", 9, 10).hears(2, "YES", 11, 12).canBe());
}

TEST(History, HasTimesOfChangesThatFit) {
  const Story story = Story().registers(1, "4000", 2, 4);
  EXPECT_TRUE(Story(story).isTold(2, "3.000000", 5, 6).canBe());
  EXPECT_FALSE(Story(story).isTold(2, "1.000000", 5, 6).canBe()) << "before the change";
  EXPECT_FALSE(Story(story).isTold(2, "7.000000", 5, 6).canBe()) << "after the reply";
  EXPECT_FALSE(Story(story).isTold(2, "3.000000", 5, 6).isTold(3, "3.500000", 5, 6).canBe());
  EXPECT_TRUE(Story(story)
                  .registers(1, "4001", 5, 6)
                  .isTold(2, "3.000000", 4.5, 6)
                  .isTold(2, "5.500000", 6, 7)
                  .canBe());
}

}  // namespace
}  // namespace sorvane::model
